// Copies of a VERIFY command are zeroed before being freed: freed blocks are searched for it.
#include "CardFixture.hpp"

#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <cstdlib>
#include <malloc.h>
#include <new>
#include <unistd.h>

namespace {

std::atomic<bool> watching{false};
std::atomic<bool> secretFreed{false};
const unsigned char secret[] = {0x00, 0x20, 0x00, 0x01, 0x08, '9', '7',
                                '5',  '3',  '1',  '0',  0xFF, 0xFF};

void inspectFreed(void* block) {
    if (!watching || block == nullptr)
        return;
    const auto* bytes = static_cast<const unsigned char*>(block);
    const auto* end = bytes + malloc_usable_size(block);
    if (std::search(bytes, end, std::begin(secret), std::end(secret)) != end)
        secretFreed = true;
}

} // namespace

void* operator new(std::size_t size) {
    if (void* block = std::malloc(size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    inspectFreed(block);
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    inspectFreed(block);
    std::free(block);
}

namespace hosttest {
namespace {

// Runs `action` while freed blocks are searched; true when one held the command.
template <class Action> bool freesThePin(const Action& action) {
    secretFreed = false;
    watching = true;
    action();
    watching = false;
    return secretFreed;
}

TEST(TransportWipeTest, CommandIsWipedWhenTheCardFailsInTheMiddle) {
    char dir[] = "/tmp/p15-wipe-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string image = std::string(dir) + "/card.json";
    vcard::VirtualCard::personalised()->save(image);
    std::shared_ptr<vcard::VirtualCard> virtualCard = vcard::VirtualCard::open(image);
    const auto channel = boost::make_shared<host::Channel>(
        std::make_unique<host::VirtualCardTransport>(virtualCard));
    host::iso7816::Card card(channel);
    card.selectApplication(*channel, host::iso7816::pkcs15Aid());
    const auto pins = boost::dynamic_pointer_cast<card::service::IPinManagementService>(
        card.getInterface("PinManagementService"));
    const mw::ByteBuffer wrongPin = paddedPin("975310");

    // The detector sees an unwiped copy.
    EXPECT_TRUE(
        freesThePin([] { std::vector<unsigned char>(std::begin(secret), std::end(secret)); }));

    // A wrong PIN costs a try, which the card saves: it "crashes" while saving.
    virtualCard->instrumentation().crashAtSavePoint(vcard::SavePoint::HalfWritten);
    EXPECT_FALSE(freesThePin([&] {
        EXPECT_THROW(pins->authenticate(*channel, pinReference(0x01), wrongPin),
                     vcard::SimulatedCrash);
    })) << "a copy of the VERIFY command was freed without being zeroed";
    std::remove(image.c_str());
    rmdir(dir);
}

} // namespace
} // namespace hosttest

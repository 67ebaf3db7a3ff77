// Copies of a VERIFY command are zeroed before being freed: freed blocks are searched for it.
#include "CardFixture.hpp"
#include "FreeHook.hpp"

#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>
#include <unistd.h>

namespace hosttest {
namespace {

using namespace std::string_view_literals;

TEST(TransportWipeTest, NoReleasedBlockHoldsAVerifyCommandTheCardFailedInTheMiddleOf) {
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

    const std::string_view verify = "\x00\x20\x00\x01\x08"
                                    "975310\xFF\xFF"sv;
    freehook::lookFor(verify);
    std::vector<char>(verify.begin(), verify.end()); // the search sees an unwiped copy
    EXPECT_EQ(freehook::blocksFreedHoldingSecret(), 1u);

    // A wrong PIN costs a try, which the card saves: it "crashes" while saving.
    virtualCard->instrumentation().crashAtSavePoint(vcard::SavePoint::HalfWritten);
    freehook::lookFor(verify);
    EXPECT_THROW(pins->authenticate(*channel, pinReference(0x01), paddedPin("975310")),
                 vcard::SimulatedCrash);
    const std::size_t leaked = freehook::blocksFreedHoldingSecret();
    freehook::lookFor("");
    EXPECT_EQ(leaked, 0u) << "a copy of the VERIFY command was freed without being zeroed";
    std::remove(image.c_str());
    rmdir(dir);
}

} // namespace
} // namespace hosttest

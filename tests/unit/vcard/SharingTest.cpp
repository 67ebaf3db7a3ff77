// One image opened by several cards (as by several processes): each command works on the image
// as it stands, under its lock, and only in the folder the card opened.

#include "CardTestSupport.hpp"

#include "card/CardException.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/CardImage.hpp"

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace vcard::test {
namespace {

namespace fs = std::filesystem;

class Sharing : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/vcard-sharing-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        directory = pattern;
        fs::create_directory(directory / "a");
        fs::permissions(directory / "a", fs::perms(0755));
        VirtualCard::personalised()->save(path = (directory / "a" / "card.json").string());
    }
    void TearDown() override { fs::remove_all(directory); }

    static std::uint8_t triesLeft(const std::string& image, std::uint8_t reference) {
        return CardImage::load(image).pins.pins().at(reference).triesLeft;
    }

    fs::path directory;
    std::string path;
};

TEST_F(Sharing, CardsOnOneImageSeeEachOthersWritesAndNoStaleCopyOverwrites) {
    std::shared_ptr<VirtualCard> a = VirtualCard::open(path), b = VirtualCard::open(path);
    const host::VirtualCardTransport ta(a, host::OnRelease::KeepLogin);
    const host::VirtualCardTransport tb(b, host::OnRelease::KeepLogin);
    for (VirtualCard* card : {a.get(), b.get()}) {
        ASSERT_EQ(sw(*card, "00A40800 04 5015 4404"), 0x9000);
        ASSERT_EQ(verify(*card, 1, "123456"), 0x9000);
    }
    // In turns, each with the selection and login it had before the other's write.
    for (std::uint8_t offset = 0; offset < 6; ++offset) {
        const auto& transport = offset % 2 ? tb : ta;
        transport.beginTransaction();
        EXPECT_EQ(sw(offset % 2 ? *b : *a, apdu(0, 0xD6, 0, offset, {std::uint8_t(0xA0 + offset)})),
                  0x9000);
        transport.endTransaction();
    }
    auto fresh = VirtualCard::open(path);
    ASSERT_EQ(sw(*fresh, "00A40800 04 5015 4404"), 0x9000);
    for (VirtualCard* card : {a.get(), fresh.get()})
        EXPECT_EQ(card->transmit(hex("00B0000006")), hex("A0A1A2A3A4A5 9000"));
    // A wrong try on the other card unverifies the PIN here too, as on one card.
    // The counter it lowered is the one the first card tells: a stale copy never raises it.
    EXPECT_EQ(verify(*b, 1, "000000"), 0x63C2);
    EXPECT_EQ(sw(*a, "00D60000 01 FF"), 0x6982);
    EXPECT_EQ(sw(*a, "00200001"), 0x63C2);
    EXPECT_EQ(triesLeft(path, 1), 2);

    // While one transport holds the image, another waits a bounded time, then fails.
    ::setenv("P15_TRANSACTION_TIMEOUT", "1", 1);
    ta.beginTransaction();
    EXPECT_THROW(tb.beginTransaction(), card::CardException);
    ta.endTransaction();
    ::unsetenv("P15_TRANSACTION_TIMEOUT");
    // An image found corrupt is refused as at open, and nothing is written over it.
    std::ofstream(path) << "{";
    EXPECT_THROW(a->transmit(hex("00200001")), ImageError);
    EXPECT_THROW(tb.beginTransaction(), card::CardException);
    EXPECT_EQ(fs::file_size(path), 1u);
}

TEST_F(Sharing, ASwappedFolderNeverTakesTheSave) {
    auto card = VirtualCard::open(path);
    fs::create_directories(directory / "b");
    const std::string other = (directory / "b" / "card.json").string();
    VirtualCard::personalised()->save(other);
    fs::rename(directory / "a", directory / "kept");
    fs::create_directory_symlink(directory / "b", directory / "a");
    EXPECT_EQ(verify(*card, 3, "00000000"), 0x63C2);
    EXPECT_EQ(triesLeft(other, 3), 3);
    EXPECT_EQ(triesLeft((directory / "kept" / "card.json").string(), 3), 2);
    // A folder given as a link is refused at once.
    EXPECT_THROW(VirtualCard::open(path), ImageError);
}

TEST_F(Sharing, ImagesOthersMayWriteAreRefusedUnlessAllowedAndSavesKeepOwnerAndMode) {
    for (const auto& [file, mode] : {std::pair{directory / "a", 0775},
                                     {directory / "a", 0757},
                                     {fs::path(path), 0620},
                                     {fs::path(path), 0602}}) {
        fs::permissions(file, fs::perms(mode));
        EXPECT_THROW(VirtualCard::open(path), ImageError) << file << " " << mode;
        EXPECT_NO_THROW(VirtualCard::open(path, ImageAccess::Shared));
        fs::permissions(file, fs::perms(file == path ? 0640 : 01777)); // sticky, as /tmp: passes
    }
    const bool root = ::geteuid() == 0; // only root can give a file away
    ASSERT_TRUE(!root || ::chown(path.c_str(), 4321, 4322) == 0);
    EXPECT_EQ(verify(*VirtualCard::open(path), 3, "00000000"), 0x63C2);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(triesLeft(path, 3), 2);
    EXPECT_TRUE(!root || (status.st_uid == 4321u && status.st_gid == 4322u));
}

} // namespace
} // namespace vcard::test

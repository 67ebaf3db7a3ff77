// The card image: round trip, atomic saves, refusal of bad images; one image opened by several
// cards (as by several processes), each command on the image as it stands, under its lock.

#include "CardTestSupport.hpp"

#include "card/CardException.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/CardImage.hpp"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>

namespace vcard::test {
namespace {

namespace fs = std::filesystem;

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeText(const fs::path& path, const std::string& text) {
    std::ofstream(path) << text;
}

/// A personalised card's image, card.json in directory "a" of a fresh temporary root.
class Image : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "vcard-image-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        root = pattern;
        fs::create_directory(directory = root / "a");
        fs::permissions(directory, fs::perms(0755));
        VirtualCard::personalised()->save(path = (directory / "card.json").string());
    }
    void TearDown() override { fs::remove_all(root); }

    static std::uint8_t triesLeft(const std::string& image, std::uint8_t reference) {
        return CardImage::load(image).pins.pins().at(reference).triesLeft;
    }

    fs::path root, directory;
    std::string path;
};
using Sharing = Image;

// A crash at any point of a save leaves the old image or the new one. VERIFY pays its try before
// comparing: even the right PIN leaves it lowered once renamed. Read-only commands never save.
TEST_F(Image, CrashAtEverySavePointLeavesTheOldOrTheNewImage) {
    for (SavePoint point : allSavePoints) {
        SCOPED_TRACE(static_cast<int>(point));
        auto card = VirtualCard::open(path);
        const std::string before = readText(path);
        card->instrumentation().crashAtSavePoint(point);
        for (const char* readOnly :
             {selectPkcs15.c_str(), "00A4020C 02 5031", "00B0000010", "00200003"})
            EXPECT_NO_THROW(sw(*card, readOnly)) << readOnly;
        EXPECT_THROW(verify(*card, 3, "87654321"), SimulatedCrash);
        auto reloaded = VirtualCard::open(path);
        const bool renamed = point == SavePoint::Renamed || point == SavePoint::DirectorySynced;
        EXPECT_EQ(readText(path) != before, renamed);
        EXPECT_EQ(pinStatus(*reloaded, 3), renamed ? 0x63C2 : 0x63C3);
        ASSERT_EQ(verify(*reloaded, 3, "87654321"), 0x9000); // the counter back at its maximum
        EXPECT_EQ(pinStatus(*VirtualCard::open(path), 3), 0x63C3);
    }
}

/// A DF with DFs below it, levels in all, as the image writes files.
std::string nestedDfs(int levels) {
    std::string tree;
    for (int level = levels; level > 0; --level)
        tree = R"({"fid":"D0)" + toHex({static_cast<std::uint8_t>(level)}) +
               R"(","type":"df","security":"","children":[)" + tree + "]}";
    return tree;
}

// An image with a key pair loads back to what it was saved from, byte for byte; any corruption
// is refused, naming the image, and the image left as it was.
TEST_F(Image, CorruptTruncatedOrMissingImagesAreRefusedAndLeftAlone) {
    {
        const auto card = VirtualCard::open(path);
        logIn(*card);
        addKeyPair(*card);
    }
    const std::string good = readText(path);
    EXPECT_EQ(CardImage::serialise(VirtualCard::open(path)->state()), good);
    std::string badPrime = good; // a private key whose prime lost a bit
    char& digit = badPrime.at(badPrime.find(R"("p": ")") + 7);
    digit = digit == '1' ? '3' : '1';
    const auto edit = [&good](const std::string& what, const std::string& with) {
        std::string edited = good; // with the first occurrence of what replaced
        const std::size_t at = edited.find(what);
        EXPECT_NE(at, std::string::npos) << what;
        return at == std::string::npos ? edited : edited.replace(at, what.size(), with);
    };
    const std::string tries = R"("triesLeft": 3)", children = R"("children": [)";
    // clang-format off
    const std::pair<std::string, std::string> images[] = {
        {good.substr(0, good.size() / 2), "corrupt or truncated"},
        {badPrime, ""},
        {"", "corrupt or truncated"},
        {edit(R"("3F00")", R"("3F0Z")"), "hexadecimal"},
        {edit(R"("df")", R"("xx")"), "unknown file type"},
        // A retry counter is never above its maximum: one raised past it is refused.
        {edit(tries, R"("triesLeft": 4)"), R"(PIN 01: field "triesLeft" is 4, not an integer from 0 to 3)"},
        {edit(R"("version": 1)", R"("version": 7)"), "unsupported image version"},
        {"{}", R"(field "format" is missing)"},
        // Numbers: integers of their range only.
        {edit(R"("maxTries": 3)", R"("maxTries": 1e300)"), R"(field "maxTries" is 1e+300)"},
        {edit(R"("reference": 1,)", R"("reference": 257,)"), R"(field "reference" is 257, not an integer from 0 to 255)"},
        {edit(tries, R"("triesLeft": -256)"), R"(field "triesLeft" is -256)"},
        {edit(tries, R"("triesLeft": 2.9)"), R"(field "triesLeft" is 2.9)"},
        {edit(R"("version": 1)", R"("version": true)"), R"(field "version" is true)"},
        // Duplicates: a second PIN 01, a field named twice.
        {edit(R"("reference": 3,)", R"("reference": 1,)"), "PIN 01 appears twice"},
        {edit(tries, tries + ", " + tries), R"(field "triesLeft" appears twice)"},
        {edit(R"("unblockingPin": 2)", R"("unblockingPin": 9)"), R"(field "unblockingPin" names no PIN)"},
        {edit(children, children + R"({"fid":"D001","type":"df","name":"A000000063504B43532D3135","security":"","children":[]},)"), "DF name A000000063504B43532D3135 appears twice"},
        {edit(R"("version": 1)", R"("version": 1, "profile": "ISO")"), R"(field "profile": unknown card profile "ISO" (native or iso))"},
        {edit(R"("pins")", R"("profile": "iso", "hashOnCard": true, "pins")"), "a card of the iso profile does not hash"},
        // Beyond the card's limits.
        {edit(children, children + nestedDfs(17) + ","), "nested more than 16 levels"},
    };
    // clang-format on
    for (const auto& [text, expected] : images) {
        writeText(path, text);
        try {
            VirtualCard::open(path);
            ADD_FAILURE() << "accepted: " << expected;
        } catch (const ImageError& error) {
            EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what();
            EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
        }
        EXPECT_EQ(readText(path), text);
    }
    EXPECT_THROW(VirtualCard::open((directory / "missing.json").string()), ImageError);
}

/// Writes beyond a size fail with EFBIG while it lives, as on a full disk, even for root.
struct FullDisk {
    rlimit saved{};
    void (*previous)(int) = std::signal(SIGXFSZ, SIG_IGN);
    explicit FullDisk(rlim_t size) {
        ::getrlimit(RLIMIT_FSIZE, &saved);
        const rlimit limit{size, saved.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, previous);
    }
};

// A failed save (before the rename, or a full disk) answers 6581, compares nothing, uses no try,
// writes nothing, leaves no temporary file; once renamed, the command happened, synced or not.
TEST_F(Image, ACommandHappensOnlyOnceItsSaveReplacedTheImage) {
    auto card = VirtualCard::open(path);
    const std::string before = readText(path);
    auto expectNoComparison = [&](const std::function<void()>& failNextSave) {
        failNextSave();
        EXPECT_EQ(verify(*card, 3, "00000000"), 0x6581);
        failNextSave();
        EXPECT_EQ(verify(*card, 3, "87654321"), 0x6581); // the same answer: nothing compared
        EXPECT_EQ(pinStatus(*card, 3), 0x63C3);          // and no try used
    };
    for (SavePoint step :
         {SavePoint::TempFileOpened, SavePoint::Written, SavePoint::Synced, SavePoint::Renamed}) {
        SCOPED_TRACE(static_cast<int>(step));
        expectNoComparison([&] { card->instrumentation().failSaveStep(step); });
    }
    {
        FullDisk full(1024);
        expectNoComparison([] {});
    }
    EXPECT_EQ(readText(path), before);
    // Only the image and its lock file.
    EXPECT_EQ(std::distance(fs::directory_iterator(directory), fs::directory_iterator()), 2);

    logIn(*card);
    ASSERT_EQ(sw(*card, "00A4020C 02 4404"), 0x9000);
    card->instrumentation().failSaveStep(SavePoint::DirectorySynced);
    EXPECT_EQ(sw(*card, "00D60000 02 A1B2"), 0x9000);
    card->instrumentation().failSaveStep(SavePoint::DirectorySynced);
    EXPECT_EQ(verify(*card, 3, "00000000"), 0x63C2);
    card->instrumentation().failSaveStep(SavePoint::Renamed);
    EXPECT_EQ(sw(*card, "00D60000 02 C3D4"), 0x6581);
    auto reopened = VirtualCard::open(path);
    ASSERT_EQ(sw(*reopened, "00A4080C 04 5015 4404"), 0x9000);
    EXPECT_EQ(reopened->transmit(hex("00B0000002")), hex("A1B2 9000"));
    EXPECT_EQ(pinStatus(*reopened, 3), 0x63C2);
}

// Saves never follow a link planted at the temporary file or the image, and keep mode 0600.
TEST_F(Image, TheImageIsNeverWrittenThroughALink) {
    const fs::path victim = directory / "victim";
    writeText(victim, "precious");
    fs::create_symlink(victim, path + ".tmp");
    auto card = VirtualCard::open(path);
    EXPECT_EQ(verify(*card, 3, "00000000"), 0x63C2);
    EXPECT_EQ(readText(victim), "precious");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));

    // An image path that is a link, or no regular file, is refused for reading and writing.
    const std::string link = (directory / "link.json").string();
    fs::create_symlink(path, link);
    EXPECT_THROW(VirtualCard::open(link), ImageError);
    const std::string fifo = (directory / "fifo.json").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_THROW(VirtualCard::open(fifo), ImageError);
    fs::remove(path);
    fs::create_symlink(victim, path);
    EXPECT_THROW(verify(*card, 3, "00000000"), ImageError);
    EXPECT_EQ(readText(victim), "precious");
    EXPECT_TRUE(fs::is_symlink(path));
}

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
    // A wrong try on the other card unverifies the PIN here too; a stale copy never raises it.
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
    fs::create_directories(root / "b");
    const std::string other = (root / "b" / "card.json").string();
    VirtualCard::personalised()->save(other);
    fs::rename(directory, root / "kept");
    fs::create_directory_symlink(root / "b", directory);
    EXPECT_EQ(verify(*card, 3, "00000000"), 0x63C2);
    EXPECT_EQ(triesLeft(other, 3), 3);
    EXPECT_EQ(triesLeft((root / "kept" / "card.json").string(), 3), 2);
    // A folder given as a link is refused at once.
    EXPECT_THROW(VirtualCard::open(path), ImageError);
}

TEST_F(Sharing, ImagesOthersMayWriteAreRefusedUnlessAllowedAndSavesKeepOwnerAndMode) {
    for (const auto& [file, mode] : {std::pair{directory, 0775},
                                     {directory, 0757},
                                     {fs::path(path), 0620},
                                     {fs::path(path), 0602}}) {
        fs::permissions(file, fs::perms(mode));
        EXPECT_THROW(VirtualCard::open(path), ImageError) << file << " " << mode;
        EXPECT_NO_THROW(VirtualCard::open(path, ImageAccess::Shared));
        fs::permissions(file, fs::perms(file == path ? 0640 : 01777)); // sticky, as /tmp: passes
    }
    const bool superuser = ::geteuid() == 0; // only root can give a file away
    ASSERT_TRUE(!superuser || ::chown(path.c_str(), 4321, 4322) == 0);
    EXPECT_EQ(verify(*VirtualCard::open(path), 3, "00000000"), 0x63C2);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(triesLeft(path, 3), 2);
    EXPECT_TRUE(!superuser || (status.st_uid == 4321u && status.st_gid == 4322u));
}

} // namespace
} // namespace vcard::test

// The card image: round trip, atomic saves under simulated crashes, refusal of bad images.

#include "CardTestSupport.hpp"

#include "vcard/CardImage.hpp"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>

namespace vcard::test {
namespace {

namespace fs = std::filesystem;

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeText(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

const std::string privateKeyFile = "80020400 820111 83020E01";
const std::string privateKeySecurity = "A0029700 A1029000 A2029000 A303880101";
const std::string publicKeyFile = "80020400 820112 83020F01";
const std::string publicKeySecurity = "A0029000 A1029000 A2029000 A3029700";

class Image : public ::testing::Test {
protected:
    void SetUp() override {
        directory = fs::temp_directory_path() /
                    ("vcard-image-" + std::to_string(::getpid()) + "-" +
                     ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(directory);
        fs::create_directories(directory);
        path = (directory / "card.json").string();
        VirtualCard::personalised()->save(path);
    }
    void TearDown() override { fs::remove_all(directory); }

    static Bytes send(VirtualCard& card, const std::string& command) {
        return card.transmit(hex(command));
    }
    static std::uint16_t sw(VirtualCard& c, const Bytes& b) { return statusWord(c.transmit(b)); }
    static std::uint16_t sw(VirtualCard& c, const std::string& cmd) { return sw(c, hex(cmd)); }

    /// Selects the application, verifies the user PIN and generates key pair 81.
    static void generateKey(VirtualCard& card) {
        ASSERT_EQ(sw(card, "00A4040C 0C A000000063504B43532D3135"), 0x9000);
        ASSERT_EQ(sw(card, apdu(0, 0x20, 0, 1, paddedPin("123456"))), 0x9000);
        ASSERT_EQ(sw(card, createFile(privateKeyFile, privateKeySecurity)), 0x9000);
        ASSERT_EQ(sw(card, "00A4000C 02 5015"), 0x9000);
        ASSERT_EQ(sw(card, createFile(publicKeyFile, publicKeySecurity)), 0x9000);
        ASSERT_EQ(sw(card, "00460081 04 80020400 00"), 0x9000);
    }

    fs::path directory;
    std::string path;
};

TEST_F(Image, RoundTripKeepsEveryChange) {
    {
        auto card = VirtualCard::open(path);
        generateKey(*card);
        ASSERT_EQ(sw(*card, "00A4020C 02 4404"), 0x9000);
        ASSERT_EQ(sw(*card, "00D60010 03 A1B2C3"), 0x9000);
    }
    const std::string saved = readText(path);
    auto card = VirtualCard::open(path);
    EXPECT_EQ(CardImage::serialise(card->state()), saved);
    ASSERT_EQ(sw(*card, "00A40800 04 5015 4404"), 0x9000);
    EXPECT_EQ(send(*card, "00B0001003"), hex("A1B2C3 9000"));
    // The private key survived: it signs.
    ASSERT_EQ(sw(*card, apdu(0, 0x20, 0, 1, paddedPin("123456"))), 0x9000);
    ASSERT_EQ(sw(*card, "002241B6 03 840181"), 0x9000);
    EXPECT_EQ(send(*card, "002A9E9A 02 0102 00").size(), 130u);
}

TEST_F(Image, ReadOnlyCommandsDoNotRewriteTheImage) {
    auto card = VirtualCard::open(path);
    card->instrumentation().crashAtSavePoint(SavePoint::TempFileOpened);
    // Any save would now throw SimulatedCrash.
    EXPECT_EQ(sw(*card, "00A4040C 0C A000000063504B43532D3135"), 0x9000);
    EXPECT_EQ(sw(*card, "00A4020C 02 5031"), 0x9000);
    EXPECT_EQ(sw(*card, "00B0000010"), 0x9000);
    EXPECT_EQ(sw(*card, "00200001"), 0x63C3); // VERIFY without data compares nothing
}

TEST_F(Image, CrashAtEverySavePointLeavesTheOldOrTheNewImage) {
    for (SavePoint point : allSavePoints) {
        SCOPED_TRACE(static_cast<int>(point));
        auto card = VirtualCard::open(path);
        const std::string before = readText(path);
        ASSERT_EQ(sw(*card, "00A4040C 0C A000000063504B43532D3135"), 0x9000);
        card->instrumentation().crashAtSavePoint(point);
        // A wrong PIN changes the try counter: the command must be saved.
        EXPECT_THROW(card->transmit(apdu(0, 0x20, 0, 3, paddedPin("00000000"))), SimulatedCrash);

        auto reloaded = VirtualCard::open(path);
        const std::uint16_t tries = sw(*reloaded, "00200003");
        const std::string after = readText(path);
        if (after == before)
            EXPECT_EQ(tries, 0x63C3);
        else
            EXPECT_EQ(tries, 0x63C2);
        const bool renamed = point == SavePoint::Renamed || point == SavePoint::DirectorySynced;
        EXPECT_EQ(after != before, renamed);
        // Put the counter back for the next round.
        ASSERT_EQ(sw(*reloaded, apdu(0, 0x20, 0, 3, paddedPin("87654321"))), 0x9000);
    }
}

/// good with the first occurrence of what replaced by with.
std::string replaced(std::string good, const std::string& what, const std::string& with) {
    const std::size_t at = good.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return at == std::string::npos ? good : good.replace(at, what.size(), with);
}

/// A DF with DFs below it, levels in all, as the image writes files.
std::string nestedDfs(int levels) {
    std::string tree;
    for (int level = levels; level > 0; --level)
        tree = R"({"fid":"D0)" + toHex({static_cast<std::uint8_t>(level)}) +
               R"(","type":"df","security":"","children":[)" + tree + "]}";
    return tree;
}

std::string namedDf(const std::string& fid, const std::string& name) {
    return R"({"fid":")" + fid + R"(","type":"df","name":")" + name +
           R"(","security":"","children":[]})";
}

TEST_F(Image, CorruptTruncatedOrMissingImagesAreRefusedAndLeftAlone) {
    const std::string good = readText(path);
    const std::string pin1 = "\"reference\": 1,";
    const std::string deep =
        replaced(good, "\"children\": [", "\"children\": [" + nestedDfs(17) + ",");
    for (const auto& [text, expected] : std::vector<std::pair<std::string, std::string>>{
             {good.substr(0, good.size() / 2), "corrupt or truncated"},
             {"", "corrupt or truncated"},
             {replaced(good, "\"3F00\"", "\"3F0Z\""), "hexadecimal"},
             {replaced(good, "\"df\"", "\"xx\""), "unknown file type"},
             {replaced(good, "\"triesLeft\": 3", "\"triesLeft\": 9"),
              "PIN 01: field \"triesLeft\""},
             {replaced(good, "\"version\": 1", "\"version\": 7"), "unsupported image version"},
             {"{}", "field \"format\" is missing"},
             // Numbers: integers of their range only.
             {replaced(good, "\"maxTries\": 3", "\"maxTries\": 1e300"),
              "field \"maxTries\" is 1e+300"},
             {replaced(good, pin1, "\"reference\": 257,"),
              "field \"reference\" is 257, not an integer from 0 to 255"},
             {replaced(good, "\"triesLeft\": 3", "\"triesLeft\": -256"),
              "field \"triesLeft\" is -256"},
             {replaced(good, "\"triesLeft\": 3", "\"triesLeft\": 2.9"),
              "field \"triesLeft\" is 2.9"},
             {replaced(good, "\"version\": 1", "\"version\": true"), "field \"version\" is true"},
             // Duplicates: a second PIN 01, a field named twice.
             {replaced(good, "\"reference\": 3,", "\"reference\": 1,"), "PIN 01 appears twice"},
             {replaced(good, "\"triesLeft\": 3", "\"triesLeft\": 3, \"triesLeft\": 3"),
              "field \"triesLeft\" appears twice"},
             {replaced(good, "\"unblockingPin\": 2", "\"unblockingPin\": 9"),
              "field \"unblockingPin\" names no PIN"},
             {replaced(good, "\"children\": [",
                       "\"children\": [" + namedDf("D001", "A000000063504B43532D3135") + ","),
              "DF name A000000063504B43532D3135 appears twice"},
             {replaced(good, "\"version\": 1", "\"version\": 1, \"profile\": \"ISO\""),
              "field \"profile\": unknown card profile \"ISO\" (native or iso)"},
             {replaced(good, "\"pins\"", "\"profile\": \"iso\", \"hashOnCard\": true, \"pins\""),
              "a card of the iso profile does not hash"},
             // Beyond the card's limits.
             {deep, "nested more than 16 levels"},
         }) {
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

TEST_F(Image, ACorruptKeyIsRefused) {
    generateKey(*VirtualCard::open(path));
    std::string text = readText(path);
    const std::size_t p = text.find("\"p\": \"");
    ASSERT_NE(p, std::string::npos);
    text[p + 7] = text[p + 7] == '1' ? '3' : '1';
    writeText(path, text);
    EXPECT_THROW(VirtualCard::open(path), ImageError);
}

std::uint16_t verify(VirtualCard& card, std::uint8_t reference, const std::string& pin) {
    return statusWord(card.transmit(apdu(0, 0x20, 0, reference, paddedPin(pin))));
}

std::uint16_t pinStatus(VirtualCard& card, std::uint8_t reference) {
    return statusWord(card.transmit(apdu(0, 0x20, 0, reference, {})));
}

/// Writes beyond a size fail with EFBIG while it lives, as on a full disk, even for root.
class FullDisk {
public:
    explicit FullDisk(rlim_t size) {
        ::getrlimit(RLIMIT_FSIZE, &saved_);
        previous_ = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = saved_;
        limit.rlim_cur = size;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &saved_);
        std::signal(SIGXFSZ, previous_);
    }

private:
    rlimit saved_{};
    void (*previous_)(int) = nullptr;
};

TEST_F(Image, APinIsNotComparedWhenItsTryCannotBeStored) {
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
    // No temporary file is left behind by a failed save: only the image and its lock file.
    EXPECT_EQ(std::distance(fs::directory_iterator(directory), fs::directory_iterator()), 2);
}

TEST_F(Image, TheTryIsStoredBeforeTheComparison) {
    auto card = VirtualCard::open(path);
    // Even the right PIN: the lowered counter reaches the image before the comparison.
    card->instrumentation().crashAtSavePoint(SavePoint::DirectorySynced);
    EXPECT_THROW(verify(*card, 3, "87654321"), SimulatedCrash);
    auto reopened = VirtualCard::open(path);
    EXPECT_EQ(pinStatus(*reopened, 3), 0x63C2);
    // Completed, the right PIN stores the counter back at its maximum.
    EXPECT_EQ(verify(*reopened, 3, "87654321"), 0x9000);
    EXPECT_EQ(pinStatus(*VirtualCard::open(path), 3), 0x63C3);
}

TEST_F(Image, AWriteIsStoredOnceTheImageIsReplaced) {
    auto card = VirtualCard::open(path);
    ASSERT_EQ(sw(*card, "00A4040C 0C A000000063504B43532D3135"), 0x9000);
    ASSERT_EQ(verify(*card, 1, "123456"), 0x9000);
    ASSERT_EQ(sw(*card, "00A4020C 02 4404"), 0x9000);
    // A directory sync that fails after the rename: the write happened.
    card->instrumentation().failSaveStep(SavePoint::DirectorySynced);
    EXPECT_EQ(sw(*card, "00D60000 02 A1B2"), 0x9000);
    EXPECT_EQ(send(*card, "00B0000002"), hex("A1B2 9000"));
    card->instrumentation().failSaveStep(SavePoint::DirectorySynced);
    EXPECT_EQ(verify(*card, 3, "00000000"), 0x63C2);
    // A save that fails before the rename had no effect.
    card->instrumentation().failSaveStep(SavePoint::Renamed);
    EXPECT_EQ(sw(*card, "00D60000 02 C3D4"), 0x6581);

    auto reopened = VirtualCard::open(path);
    ASSERT_EQ(sw(*reopened, "00A4080C 04 5015 4404"), 0x9000);
    EXPECT_EQ(send(*reopened, "00B0000002"), hex("A1B2 9000"));
    EXPECT_EQ(pinStatus(*reopened, 3), 0x63C2);
}

TEST_F(Image, TheImageIsNeverWrittenThroughALink) {
    const fs::path victim = directory / "victim";
    writeText(victim, "precious");
    fs::create_symlink(victim, path + ".tmp");
    auto card = VirtualCard::open(path);
    EXPECT_EQ(verify(*card, 3, "00000000"), 0x63C2);
    EXPECT_EQ(readText(victim), "precious");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

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

} // namespace
} // namespace vcard::test

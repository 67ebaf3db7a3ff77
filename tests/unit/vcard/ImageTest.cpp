// The card image: round trip, atomic saves under simulated crashes, refusal of bad images.

#include "CardTestSupport.hpp"

#include "vcard/CardImage.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
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

    fs::path directory;
    std::string path;
};

TEST_F(Image, RoundTripKeepsEveryChange) {
    {
        auto card = VirtualCard::open(path);
        ASSERT_EQ(statusWord(send(*card, "00A4040C 0C A000000063504B43532D3135")), 0x9000);
        ASSERT_EQ(statusWord(card->transmit(apdu(0, 0x20, 0, 1, paddedPin("123456")))), 0x9000);
        ASSERT_EQ(statusWord(send(*card, "00A4020C 02 4404")), 0x9000);
        ASSERT_EQ(statusWord(send(*card, "00D60010 03 A1B2C3")), 0x9000);
        ASSERT_EQ(statusWord(card->transmit(createFile(privateKeyFile, privateKeySecurity))),
                  0x9000);
        ASSERT_EQ(statusWord(send(*card, "00A4000C 02 5015")), 0x9000);
        ASSERT_EQ(statusWord(card->transmit(createFile(publicKeyFile, publicKeySecurity))), 0x9000);
        ASSERT_EQ(statusWord(send(*card, "00460081 04 80020400 00")), 0x9000);
        ASSERT_EQ(statusWord(card->transmit(apdu(0, 0x20, 0, 3, paddedPin("00000000")))), 0x63C2);
    }
    const std::string saved = readText(path);
    auto card = VirtualCard::open(path);
    EXPECT_EQ(CardImage::serialise(card->state()), saved);
    ASSERT_EQ(statusWord(send(*card, "00A40800 04 5015 4404")), 0x9000);
    EXPECT_EQ(send(*card, "00B0001003"), hex("A1B2C3 9000"));
    EXPECT_EQ(statusWord(send(*card, "00200003")), 0x63C2); // the try counter survived
    // The private key survived: it signs.
    ASSERT_EQ(statusWord(card->transmit(apdu(0, 0x20, 0, 1, paddedPin("123456")))), 0x9000);
    ASSERT_EQ(statusWord(send(*card, "002241B6 03 840181")), 0x9000);
    EXPECT_EQ(send(*card, "002A9E9A 02 0102 00").size(), 130u);

    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(Image, ReadOnlyCommandsDoNotRewriteTheImage) {
    auto card = VirtualCard::open(path);
    card->instrumentation().crashAtSavePoint(SavePoint::TempFileOpened);
    // Any save would now throw SimulatedCrash.
    EXPECT_EQ(statusWord(send(*card, "00A4040C 0C A000000063504B43532D3135")), 0x9000);
    EXPECT_EQ(statusWord(send(*card, "00A4020C 02 5031")), 0x9000);
    EXPECT_EQ(statusWord(send(*card, "00B0000010")), 0x9000);
    EXPECT_EQ(statusWord(card->transmit(apdu(0, 0x20, 0, 1, paddedPin("123456")))), 0x9000);
}

TEST_F(Image, CrashAtEverySavePointLeavesTheOldOrTheNewImage) {
    for (SavePoint point : allSavePoints) {
        SCOPED_TRACE(static_cast<int>(point));
        auto card = VirtualCard::open(path);
        const std::string before = readText(path);
        ASSERT_EQ(statusWord(send(*card, "00A4040C 0C A000000063504B43532D3135")), 0x9000);
        card->instrumentation().crashAtSavePoint(point);
        // A wrong PIN changes the try counter: the command must be saved.
        EXPECT_THROW(card->transmit(apdu(0, 0x20, 0, 3, paddedPin("00000000"))), SimulatedCrash);

        auto reloaded = VirtualCard::open(path);
        const std::uint16_t tries = statusWord(send(*reloaded, "00200003"));
        const std::string after = readText(path);
        if (after == before)
            EXPECT_EQ(tries, 0x63C3);
        else
            EXPECT_EQ(tries, 0x63C2);
        const bool renamed = point == SavePoint::Renamed || point == SavePoint::DirectorySynced;
        EXPECT_EQ(after != before, renamed);
        // Put the counter back for the next round.
        ASSERT_EQ(statusWord(reloaded->transmit(apdu(0, 0x20, 0, 3, paddedPin("87654321")))),
                  0x9000);
    }
}

TEST_F(Image, CorruptTruncatedOrMissingImagesAreRefusedAndLeftAlone) {
    const std::string good = readText(path);
    const std::string truncated = good.substr(0, good.size() / 2);
    std::string flipped = good;
    flipped.replace(flipped.find("\"3F00\""), 6, "\"3F0Z\"");
    std::string badKind = good;
    badKind.replace(badKind.find("\"df\""), 4, "\"xx\"");
    std::string badTries = good;
    badTries.replace(badTries.find("\"triesLeft\": 3"), 14, "\"triesLeft\": 9");
    std::string newer = good;
    newer.replace(newer.find("\"version\": 1"), 12, "\"version\": 7");
    for (const auto& [text, expected] :
         std::vector<std::pair<std::string, std::string>>{{truncated, "corrupt or truncated"},
                                                          {"", "corrupt or truncated"},
                                                          {flipped, "hexadecimal"},
                                                          {badKind, "unknown file type"},
                                                          {badTries, "PIN 1"},
                                                          {newer, "unsupported image version"},
                                                          {"{}", "corrupt"}}) {
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
    {
        auto card = VirtualCard::open(path);
        send(*card, "00A4040C 0C A000000063504B43532D3135");
        card->transmit(apdu(0, 0x20, 0, 1, paddedPin("123456")));
        card->transmit(createFile(privateKeyFile, privateKeySecurity));
        send(*card, "00A4000C 02 5015");
        card->transmit(createFile(publicKeyFile, publicKeySecurity));
        ASSERT_EQ(statusWord(send(*card, "00460081 04 80020400 00")), 0x9000);
    }
    std::string text = readText(path);
    const std::size_t p = text.find("\"p\": \"");
    ASSERT_NE(p, std::string::npos);
    text[p + 7] = text[p + 7] == '1' ? '3' : '1';
    writeText(path, text);
    EXPECT_THROW(VirtualCard::open(path), ImageError);
}

TEST_F(Image, AFailedSaveAnswers6581AndKeepsMemoryInStepWithTheImage) {
    auto card = VirtualCard::open(path);
    ASSERT_EQ(statusWord(send(*card, "00A4040C 0C A000000063504B43532D3135")), 0x9000);
    // Make the temporary file impossible to create.
    fs::create_directory(path + ".tmp");
    EXPECT_EQ(statusWord(card->transmit(apdu(0, 0x20, 0, 3, paddedPin("00000000")))), 0x6581);
    EXPECT_EQ(statusWord(send(*card, "00200003")), 0x63C3);
    fs::remove(path + ".tmp");
}

} // namespace
} // namespace vcard::test

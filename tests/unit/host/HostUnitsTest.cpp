// Error messages, ATR capabilities, CRT component sizes; the plugin loader's failures and where it
// finds plugin.conf (loading the real plugin: PluginEndToEnd, e2e).
#include "app/ApplicationException.hpp"
#include "card/CardException.hpp"
#include "card/crypto/spec/RsaPrivateCrtKeySpec.hpp"
#include "host/ErrorMessage.hpp"
#include "host/iso7816/CardCapabilities.hpp"
#include "host/loader/ConfigurationSource.hpp"
#include "host/loader/PluginLoader.hpp"
#include "mw/Hex.hpp"

#include <boost/exception/get_error_info.hpp>
#include <boost/optional/optional_io.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

std::string messageOf(const std::function<void()>& raise) {
    try {
        raise();
    } catch (const std::exception& e) {
        return host::errorMessage(e);
    }
    return "nothing thrown";
}

TEST(ErrorMessage, NamesCommandStatusWordTextAndNumber) {
    const auto cardError = [](const char* command, unsigned short sw) {
        return [=] {
            CARD_THROW(card::CardException() << card::Command(command) << card::StatusCode(sw));
        };
    };
    // clang-format off
    const std::pair<std::function<void()>, const char*> cases[] = {
        {cardError("Select", 0x6A82), "card exception: Select: 6A82 (File or application not found)"},
        {cardError("Verify", 0x63C2), "card exception: Verify: 63C2 (wrong PIN)"},
        {cardError("Put Data", 0x6F42), "card exception: Put Data: 6F42 (unknown error)"},
        {[] { CARD_THROW(card::CardException() << card::ErrorText("card removed")); }, "card exception: card removed"},
        {[] { APP_THROW_DATA(app::InvalidDataException, "invalid modulus size", 4096); }, "invalid data exception: invalid modulus size (4096)"},
        {[] { throw std::runtime_error("no card in Virtual PCD 00 00"); }, "no card in Virtual PCD 00 00"}};
    // clang-format on
    for (const auto& [raise, message] : cases)
        EXPECT_EQ(messageOf(raise), message);
}

bool extended(const char* atrHex) {
    return host::iso7816::CardCapabilities::fromAtr(mw::fromHex(atrHex)).extendedLength;
}

// Only an ATR that plainly announces extended length gets extended APDUs.

TEST(CardCapabilitiesTest, ExtendedLengthOnlyWhereTheHistoricalBytesSaySo) {
    // Category 80, card capabilities 73 with b7 of the third byte, after TA1 TD1 TD2.
    EXPECT_TRUE(extended("3B 95 18 81 01 80 73 00 00 40 00"));
    EXPECT_FALSE(extended("3B 95 18 81 01 80 73 00 00 80 00")) << "chaining only";
    // Category 00: the last three bytes are a status indicator, not TLVs.
    EXPECT_TRUE(extended("3B 88 00 00 73 00 00 40 00 90 00"));
    EXPECT_FALSE(extended("3B 87 00 00 73 00 00 40 90 00")) << "status bytes read as a TLV";
    EXPECT_FALSE(extended("3B 86 01 70 31 35 6B 69 74 85")) << "proprietary category";
    // Broken ATRs announce nothing.
    EXPECT_FALSE(extended(""));
    EXPECT_FALSE(extended("3B"));
    EXPECT_FALSE(extended("3B 81 80")) << "a TD that is not there";
    EXPECT_FALSE(extended("3B 05 80 73 00 00")) << "historical bytes cut short";
    EXPECT_FALSE(extended("3B 05 80 7F 00 00 40")) << "a TLV running past the end";
}

using mw::ByteBuffer;

ByteBuffer filled(std::size_t length) {
    ByteBuffer bytes(length);
    std::fill(bytes.begin(), bytes.end(), 0xC3);
    return bytes;
}

// Each CRT component is at most half the modulus long; leading zero bytes do not count.
TEST(RsaPrivateCrtKeySpecTest, EachComponentIsCheckedAgainstHalfTheModulus) {
    ByteBuffer signedEncoding{0x00};
    signedEncoding.append(filled(64));
    // Which of p, q, dp, dq, p_inv, q_inv, its value, the failure.
    const std::tuple<std::size_t, ByteBuffer, const char*> cases[] = {
        {0, filled(64), ""},
        {0, signedEncoding, ""},
        {0, filled(65), "invalid crt component size: p"},
        {1, ByteBuffer(), "invalid crt component size: q"},
        {2, filled(65), "invalid crt component size: dp"},
        {3, filled(65), "invalid crt component size: dq"},
        {4, filled(100), "invalid crt component size: p_inv"},
        {5, ByteBuffer(64), "invalid crt component size: q_inv"},
    };
    for (const auto& [index, value, expected] : cases) {
        std::vector<ByteBuffer> parts(6, filled(64));
        parts[index] = value;
        std::string failure;
        try {
            card::crypto::spec::RsaPrivateCrtKeySpec(1024, {0x01, 0x00, 0x01}, parts[0], parts[1],
                                                     parts[2], parts[3], parts[4], parts[5]);
        } catch (const app::InvalidDataException& e) {
            const char* const* text = boost::get_error_info<app::ErrorText>(e);
            failure = text ? *text : "(no text)";
        }
        EXPECT_EQ(failure, expected) << index;
    }
}

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;

std::string loadError(const std::string& library) {
    try {
        host::PluginLoader loader(library, host::ConfigurationSource());
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

// A scratch HOME, and no P15_CONF.
class PluginLoaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/p15-loader-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        savedHome_ = std::getenv("HOME") ? std::getenv("HOME") : "";
        setenv("HOME", dir_.c_str(), 1);
        unsetenv("P15_CONF");
    }
    void TearDown() override {
        setenv("HOME", savedHome_.c_str(), 1);
        unsetenv("P15_CONF");
        fs::remove_all(dir_);
    }
    std::string write(const std::string& name, const std::string& content) const {
        const fs::path path = dir_ / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << content;
        return path;
    }

    fs::path dir_;
    std::string savedHome_;
};

TEST_F(PluginLoaderTest, MissingLibraryOrSymbolNamesLibrarySymbolAndCause) {
    const std::string missing = dir_ / "libnothing.so";
    EXPECT_THAT(loadError(missing), AllOf(HasSubstr(missing), HasSubstr("No such file")));
    // A shared library that is no plugin.
    EXPECT_THAT(loadError("libm.so.6"), AllOf(HasSubstr("libm.so.6"), HasSubstr("QueryPlugin"),
                                              HasSubstr("undefined symbol")));
}

TEST_F(PluginLoaderTest, PluginConfIsLookedUpOptionThenEnvironmentThenHome) {
    const std::string option = write("opt/plugin.conf", "option");
    setenv("P15_CONF", write("env/plugin.conf", "environment").c_str(), 1);
    write(".config/p15kit/plugin.conf", "home");
    EXPECT_EQ(host::ConfigurationSource(option).readFile("plugin.conf"), std::string("option"));
    EXPECT_EQ(host::ConfigurationSource(dir_ / "absent.conf").readFile("plugin.conf"),
              std::string("environment"));
    unsetenv("P15_CONF");
    EXPECT_EQ(host::ConfigurationSource().readFile("plugin.conf"), std::string("home"));
    EXPECT_FALSE(host::ConfigurationSource().readFile("other.conf"));
    fs::remove_all(dir_ / ".config");
    EXPECT_FALSE(host::ConfigurationSource().readFile("plugin.conf"));
}

} // namespace

// What the tool reads and writes: messages of any size signed and verified
// as they stream by, inputs that are no file refused by name, oversized files
// refused unread, deciphered secrets written for their owner only.
#include "ToolProcess.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace p15tool::test {
namespace {

class InputOutput : public InitialisedCard {
protected:
    void SetUp() override {
        InitialisedCard::SetUp();
        openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out key.pem");
        openssl("pkey -in key.pem -pubout -out public.pem");
        const ToolResult imported =
            tool({"key", "import", file("key.pem"), "--pin-env", "USER_PIN"});
        ASSERT_EQ(imported.exitCode, 0) << imported.err;
    }
};

// Up to 64 KiB the message goes to the plugin whole; past that the tool
// hashes it as it reads and the card signs the DigestInfo: the signatures
// are the same scheme either way, from a file or from stdin.
TEST_F(InputOutput, MessagesOfEverySizeSignAndVerifyTheSameWay) {
    for (const std::size_t size :
         {std::size_t{64 * 1024}, std::size_t{64 * 1024 + 1}, std::size_t{3 * 1024 * 1024 + 7}}) {
        std::string message(size, 'm');
        writeFile(file("message"), message);
        // Every hash once past the limit, two elsewhere; sha1 last, for stdin below.
        const std::vector<std::string> algs =
            size == 64 * 1024 + 1
                ? std::vector<std::string>{"sha224", "sha256",    "sha384", "sha512",
                                           "md5",    "ripemd160", "sha1"}
                : std::vector<std::string>{"sha256", "sha1"};
        for (const std::string& alg : algs) {
            SCOPED_TRACE(std::to_string(size) + " bytes, " + alg);
            const ToolResult signed_ = tool({"sign", "--alg", alg, "--in", file("message"), "--out",
                                             file("signature"), "--pin-env", "USER_PIN"});
            ASSERT_EQ(signed_.exitCode, 0) << signed_.err;
            EXPECT_NE(openssl("dgst -" + alg + " -verify public.pem -signature signature message")
                          .find("Verified OK"),
                      std::string::npos);
            const ToolResult verified = tool({"verify", "--alg", alg, "--signature",
                                              file("signature"), "--in", file("message")});
            EXPECT_EQ(verified.exitCode, 0) << verified.err;
        }
        const ToolResult piped =
            tool({"sign", "--alg", "sha1", "--pin-env", "USER_PIN"}, file("message"));
        EXPECT_EQ(piped.out, readFile(file("signature"))) << "PKCS#1 v1.5 is deterministic";
        message.back() ^= 1;
        writeFile(file("message"), message);
        EXPECT_EQ(tool({"verify", "--alg", "sha1", "--signature", file("signature"), "--in",
                        file("message")})
                      .exitCode,
                  1);
    }
    EXPECT_NE(
        tool({"verify", "--help"}).out.find("raw: the input is the DigestInfo that was signed"),
        std::string::npos);
}

// A folder or a device is no input: refused by name with the usage status
// before the card is asked for anything. A file larger than the command
// takes is refused before a byte of it is read.
TEST_F(InputOutput, WhatIsNoFileOrTooLargeIsRefusedUnread) {
    const std::string folder = directory.path();
    writeFile(file("signature"), std::string(128, 'S'));
    const std::string isAFolder = folder + " is a folder";
    const struct {
        std::vector<std::string> command;
        std::string says;
    } cases[] = {
        {{"sign", "--in", folder, "--pin-env", "USER_PIN"}, isAFolder},
        {{"verify", "--signature", file("signature"), "--in", folder}, isAFolder},
        {{"verify", "--signature", folder, "--in", file("signature")}, isAFolder},
        {{"data", "write", folder, "--label", "D", "--pin-env", "USER_PIN"}, isAFolder},
        {{"sign", "--in", "/dev/zero", "--pin-env", "USER_PIN"},
         "/dev/zero is not a regular file, a pipe or a terminal"},
    };
    for (const auto& each : cases) {
        const ToolResult refused = tool(each.command);
        EXPECT_EQ(refused.exitCode, 2) << refused.err;
        EXPECT_NE(refused.err.find(each.says), std::string::npos) << refused.err;
    }
    // Sparse: three gigabytes that take no room and no time to make.
    writeFile(file("huge"), "");
    std::filesystem::resize_file(file("huge"), std::uintmax_t{3} << 30);
    const ToolResult huge =
        tool({"data", "write", file("huge"), "--label", "D", "--pin-env", "USER_PIN"});
    EXPECT_EQ(huge.exitCode, 1);
    EXPECT_NE(huge.err.find("has 3221225472 bytes, more than this command takes"),
              std::string::npos)
        << huge.err;
    EXPECT_TRUE(tool({"--json", "list"}).json()["dataObjects"].empty());
}

// A new file is created for its owner alone; an existing one that others
// could read is closed to them before the secret is written into it.
TEST_F(InputOutput, DecipheredSecretsGoToFilesOnlyTheirOwnerReads) {
    writeFile(file("secret"), "a key to wrap");
    openssl("pkeyutl -encrypt -pubin -inkey public.pem -in secret -out cryptogram");
    writeFile(file("existing"), std::string(200, 'x'));
    ASSERT_EQ(::chmod(file("existing").c_str(), 0644), 0);
    for (const char* out : {"new", "existing"}) {
        const ToolResult decrypted = tool(
            {"decrypt", "--in", file("cryptogram"), "--out", file(out), "--pin-env", "USER_PIN"});
        ASSERT_EQ(decrypted.exitCode, 0) << decrypted.err;
        EXPECT_EQ(readFile(file(out)), "a key to wrap") << out;
        EXPECT_EQ(std::filesystem::status(file(out)).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    }
}

} // namespace
} // namespace p15tool::test

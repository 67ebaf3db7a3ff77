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
        ASSERT_EQ(tool({"key", "import", file("key.pem"), "--pin-env", "USER_PIN"}).exitCode, 0);
    }
};

// Up to 64 KiB the message goes to the plugin whole; past that the tool
// hashes it as it reads and the card signs the DigestInfo: the signatures
// are the same scheme either way.
TEST_F(InputOutput, MessagesOfEverySizeSignAndVerifyTheSameWay) {
    for (const std::size_t size :
         {std::size_t{64 * 1024}, std::size_t{64 * 1024 + 1}, std::size_t{3 * 1024 * 1024 + 7}}) {
        std::string message(size, 'm');
        writeFile(file("message"), message);
        for (const char* alg :
             {"sha224", "sha256", "sha384", "sha512", "md5", "ripemd160", "sha1"}) {
            SCOPED_TRACE(std::to_string(size) + " bytes, " + alg);
            const ToolResult signed_ = tool({"sign", "--alg", alg, "--in", file("message"), "--out",
                                             file("signature"), "--pin-env", "USER_PIN"});
            ASSERT_EQ(signed_.exitCode, 0) << signed_.err;
            EXPECT_NE(openssl(std::string("dgst -") + alg +
                              " -verify public.pem -signature signature message")
                          .find("Verified OK"),
                      std::string::npos);
            const ToolResult verified = tool({"verify", "--alg", alg, "--signature",
                                              file("signature"), "--in", file("message")});
            EXPECT_EQ(verified.exitCode, 0) << verified.err;
        }
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
    for (const std::string& bad : {folder, std::string("/dev/zero")}) {
        for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
                 {"sign", "--in", bad, "--pin-env", "USER_PIN"},
                 {"verify", "--signature", file("signature"), "--in", bad},
                 {"data", "write", bad, "--label", "D", "--pin-env", "USER_PIN"}}) {
            const ToolResult refused = tool(command);
            EXPECT_EQ(refused.exitCode, 2) << refused.err;
            EXPECT_EQ(refused.err.rfind("p15tool: " + bad + " is ", 0), 0u) << refused.err;
        }
    }
    // Sparse: three gigabytes that take no room and no time to make.
    writeFile(file("huge"), "");
    std::filesystem::resize_file(file("huge"), std::uintmax_t{3} << 30);
    const ToolResult huge =
        tool({"data", "write", file("huge"), "--label", "D", "--pin-env", "USER_PIN"});
    EXPECT_EQ(huge.exitCode, 1);
    EXPECT_NE(huge.err.find("has 3221225472 bytes, more than"), std::string::npos) << huge.err;
}

// A new file is created for its owner alone; an existing one that others
// could read is closed to them before the secret is written into it. A
// private data object read out is as secret.
TEST_F(InputOutput, DecipheredSecretsGoToFilesOnlyTheirOwnerReads) {
    writeFile(file("secret"), "a key to wrap");
    openssl("pkeyutl -encrypt -pubin -inkey public.pem -in secret -out cryptogram");
    writeFile(file("existing"), std::string(200, 'x'));
    ASSERT_EQ(::chmod(file("existing").c_str(), 0644), 0);
    ASSERT_EQ(tool({"data", "write", file("secret"), "--label", "S", "--private", "--pin-env",
                    "USER_PIN"})
                  .exitCode,
              0);
    for (const char* out : {"new", "existing", "private data"}) {
        const ToolResult decrypted = out == std::string("private data")
                                         ? tool({"data", "read", "--label", "S", "--out", file(out),
                                                 "--pin-env", "USER_PIN"})
                                         : tool({"decrypt", "--in", file("cryptogram"), "--out",
                                                 file(out), "--pin-env", "USER_PIN"});
        ASSERT_EQ(decrypted.exitCode, 0) << decrypted.err;
        EXPECT_EQ(readFile(file(out)), "a key to wrap") << out;
        EXPECT_EQ(std::filesystem::status(file(out)).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    }
}

} // namespace
} // namespace p15tool::test

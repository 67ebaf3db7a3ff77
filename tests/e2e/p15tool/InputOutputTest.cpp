// What the tool reads and writes: messages of any size signed and verified
// as they stream by, inputs that are no file refused by name, oversized files
// refused unread, deciphered secrets written for their owner only.
#include "ToolProcess.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace p15tool::test {
namespace {

class InputOutput : public ProfiledCard {
protected:
    void SetUp() override {
        ProfiledCard::SetUp();
        openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out key.pem");
        openssl("pkey -in key.pem -pubout -out public.pem");
        ASSERT_TRUE(exited(tool({"key", "import", file("key.pem"), "--pin-env", "USER_PIN"}), 0));
    }
};

// Up to 64 KiB the message goes to the plugin whole; past that the tool
// hashes it as it reads and the card signs the DigestInfo: the signatures
// are the same scheme either way.
TEST_P(InputOutput, MessagesOfEverySizeSignAndVerifyTheSameWay) {
    const auto verify = [&](const char* alg) {
        return tool(
            {"verify", "--alg", alg, "--signature", file("signature"), "--in", file("message")});
    };
    for (const std::size_t size :
         {std::size_t{64 * 1024}, std::size_t{64 * 1024 + 1}, std::size_t{3 * 1024 * 1024 + 7}}) {
        std::string message(size, 'm');
        writeFile(file("message"), message);
        for (const char* alg :
             {"sha224", "sha256", "sha384", "sha512", "md5", "ripemd160", "sha1"}) {
            SCOPED_TRACE(std::to_string(size) + " bytes, " + alg);
            ASSERT_TRUE(exited(tool({"sign", "--alg", alg, "--in", file("message"), "--out",
                                     file("signature"), "--pin-env", "USER_PIN"}),
                               0));
            EXPECT_TRUE(contains(openssl(std::string("dgst -") + alg +
                                         " -verify public.pem -signature signature message"),
                                 "Verified OK"));
            EXPECT_TRUE(exited(verify(alg), 0));
        }
        message.back() ^= 1;
        writeFile(file("message"), message);
        EXPECT_EQ(verify("sha1").exitCode, 1);
    }
}

// A folder or a device is no input: refused by name with the usage status
// before the card is asked for anything. A file larger than the command
// takes is refused before a byte of it is read.
TEST_P(InputOutput, WhatIsNoFileOrTooLargeIsRefusedUnread) {
    writeFile(file("signature"), std::string(128, 'S'));
    for (const std::string& bad : {directory.path(), std::string("/dev/zero")}) {
        for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
                 {"sign", "--in", bad, "--pin-env", "USER_PIN"},
                 {"verify", "--signature", file("signature"), "--in", bad},
                 {"data", "write", bad, "--label", "D", "--pin-env", "USER_PIN"}}) {
            const ToolResult refused = tool(command);
            EXPECT_TRUE(exited(refused, 2));
            EXPECT_EQ(refused.err.rfind("p15tool: " + bad + " is ", 0), 0u) << refused.err;
        }
    }
    // Sparse: three gigabytes that take no room and no time to make.
    writeFile(file("huge"), "");
    std::filesystem::resize_file(file("huge"), std::uintmax_t{3} << 30);
    EXPECT_TRUE(
        exited(tool({"data", "write", file("huge"), "--label", "D", "--pin-env", "USER_PIN"}), 1,
               "has 3221225472 bytes, more than"));
}

// A new file is created for its owner alone; an existing one that others
// could read is closed to them before the secret is written into it. A
// private data object read out is as secret.
TEST_P(InputOutput, DecipheredSecretsGoToFilesOnlyTheirOwnerReads) {
    writeFile(file("secret"), "a key to wrap");
    openssl("pkeyutl -encrypt -pubin -inkey public.pem -in secret -out cryptogram");
    writeFile(file("existing"), std::string(200, 'x'));
    ASSERT_EQ(::chmod(file("existing").c_str(), 0644), 0);
    ASSERT_TRUE(exited(tool({"data", "write", file("secret"), "--label", "S", "--private",
                             "--pin-env", "USER_PIN"}),
                       0));
    const std::vector<std::string> decrypt{"decrypt", "--in", file("cryptogram")};
    for (const auto& [out, command] : {std::pair{"new", decrypt},
                                       {"existing", decrypt},
                                       {"private data", {"data", "read", "--label", "S"}}}) {
        std::vector<std::string> arguments = command;
        arguments.insert(arguments.end(), {"--out", file(out), "--pin-env", "USER_PIN"});
        ASSERT_TRUE(exited(tool(arguments), 0));
        EXPECT_EQ(readFile(file(out)), "a key to wrap") << out;
        EXPECT_EQ(std::filesystem::status(file(out)).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    }
}

INSTANTIATE_TEST_SUITE_P(Profiles, InputOutput, p15test::bothProfiles, p15test::profileParamName);

} // namespace
} // namespace p15tool::test

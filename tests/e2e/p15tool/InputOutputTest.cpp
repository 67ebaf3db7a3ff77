// What the tool reads and writes, and what a key accepts.
#include "ToolProcess.hpp"

#include <cryptopp/files.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>

#include <filesystem>

namespace p15tool::test {
namespace {

namespace oss = app::pkcs15::oss;

// A card holding "Signing key", made here; public.pem holds its public half.
class InputOutput : public ProfiledCard {
protected:
    void SetUp() override {
        ProfiledCard::SetUp();
        key.GenerateRandomWithKeySize(random, 1024);
        key.DEREncodePrivateKey(CryptoPP::FileSink(file("key.der").c_str()).Ref());
        openssl("rsa -inform DER -in key.der -pubout -out public.pem");
        succeed(
            {"key", "import", file("key.der"), "--label", "Signing key", "--pin-env", "USER_PIN"});
    }

    CryptoPP::AutoSeededRandomPool random;
    CryptoPP::InvertibleRSAFunction key;
};

// Up to 64 KiB the message goes to the plugin whole; past that the tool hashes it as it reads and
// the card signs the DigestInfo: the signatures are the same scheme either way.
TEST_P(InputOutput, MessagesOfEverySizeSignAndVerifyTheSameWay) {
    const auto verify = [&](const std::string& alg, int code, const std::string& says) {
        expect({"verify", "--alg", alg, "--signature", file("signature"), "--in", file("message")},
               code, says);
    };
    for (const std::size_t size : {64 * 1024, 64 * 1024 + 1, 3 * 1024 * 1024 + 7}) {
        std::string message(size, 'm');
        writeFile(file("message"), message);
        for (const std::string alg :
             {"sha224", "sha256", "sha384", "sha512", "md5", "ripemd160", "sha1"}) {
            SCOPED_TRACE(std::to_string(size) + " bytes, " + alg);
            succeed({"sign", "--alg", alg, "--in", file("message"), "--out", file("signature"),
                     "--pin-env", "USER_PIN"});
            EXPECT_TRUE(contains(
                openssl("dgst -" + alg + " -verify public.pem -signature signature message"),
                "Verified OK"));
            verify(alg, 0, "");
        }
        message.back() ^= 1;
        writeFile(file("message"), message);
        verify("sha1", 1, "does not verify");
    }
}

// PSS of the message or of its hash (--alg raw), OAEP at the longest message, judged by openssl;
// refusals come before any PIN. (Each hash on the card: KeyCommands.PssAndOaepWithEachHash.)
TEST_P(InputOutput, PssAndOaepWorkOnlyOnTheCardThatPerformsThem) {
    const auto flipBit = [&](const std::string& name) {
        std::string value = readFile(file(name));
        writeFile(file(name), value.replace(value.size() / 2, 1, 1, value[value.size() / 2] ^ 1));
    };
    const std::string message = file("message"), block = file("block");
    writeFile(message, std::string(100000, 'p'));
    writeFile(block, std::string(128, '\x01'));
    const nlohmann::json schemes = tool({"--json", "info"}).json()["rsaSchemes"];
    // clang-format off
    if (iso()) {
        EXPECT_EQ(schemes, nlohmann::json::array());
        expectEach({{{"sign", "--pss", "--in", message, "--pin-env", "WRONG"}, 3, "the card does not perform RSA-PSS"},
                    {{"verify", "--pss", "--in", message, "--signature", block}, 3, "the card does not perform RSA-PSS"},
                    {{"encrypt", "--oaep", "--in", block}, 3, "the card does not perform RSAES-OAEP"},
                    {{"decrypt", "--oaep", "--in", block, "--pin-env", "WRONG"}, 3, "the card does not perform RSAES-OAEP"}});
        EXPECT_EQ(storedPin(0x01).triesLeft, 3) << "no PIN was tried";
        return;
    }
    EXPECT_EQ(schemes, nlohmann::json::parse(R"([
        {"name": "id-RSASSA-PSS", "algorithm": "1.2.840.113549.1.1.10", "hashes": ["sha256", "sha384", "sha512"]},
        {"name": "id-RSAES-OAEP", "algorithm": "1.2.840.113549.1.1.7", "hashes": ["sha1", "sha256"]}])"));
    expectEach({{{"sign", "--pss", "--alg", "sha512", "--in", message, "--pin-env", "WRONG"}, 1, "RSA-PSS with sha512 needs a key of at least 1034 bits"}});
    // clang-format on
    EXPECT_EQ(storedPin(0x01).triesLeft, 3) << "no PIN was tried";
    openssl("dgst -sha384 -binary -out hash message");
    for (const auto& [signAlg, in] : {std::pair{"sha384", "message"}, {"raw", "hash"}}) {
        SCOPED_TRACE(signAlg);
        succeed({"sign", "--pss", "--alg", signAlg, "--in", file(in), "--out", file("signature"),
                 "--pin-env", "USER_PIN"});
        EXPECT_TRUE(contains(openssl("dgst -sha384 -sigopt rsa_padding_mode:pss -sigopt "
                                     "rsa_pss_saltlen:digest -verify public.pem -signature "
                                     "signature message"),
                             "Verified OK"));
        const Arguments verify{"--json",      "verify",          "--pss", "--alg", "sha384",
                               "--signature", file("signature"), "--in",  message};
        expect(verify, 0);
        flipBit("signature");
        EXPECT_EQ(expect(verify, 1, "(RSA-PSS with sha384)").json()["verified"], false);
    }
    for (const auto& [alg, longest] : {std::pair{"sha1", 86}, {"sha256", 62}}) {
        SCOPED_TRACE(alg);
        const Arguments decrypt{"decrypt", "--oaep",           "--alg",     alg,
                                "--in",    file("cryptogram"), "--pin-env", "USER_PIN"},
            encrypt{"encrypt", "--oaep", "--alg", alg, "--in", file("secret")};
        writeFile(file("secret"), std::string(longest, 'L'));
        openssl("pkeyutl -encrypt -pubin -inkey public.pem -pkeyopt rsa_padding_mode:oaep "
                "-pkeyopt rsa_oaep_md:" +
                std::string(alg) + " -pkeyopt rsa_mgf1_md:" + alg + " -in secret -out cryptogram");
        EXPECT_EQ(succeed(decrypt).out, readFile(file("secret")));
        writeFile(file("cryptogram"), succeed(encrypt).out);
        EXPECT_EQ(succeed(decrypt).out, readFile(file("secret")));
        flipBit("cryptogram");
        expect(decrypt, 3, "invalid cryptogram (Decipher: 6A80)");
        writeFile(file("secret"), std::string(longest + 1, 'L'));
        expect(encrypt, 1,
               "enciphers at most " + std::to_string(longest) +
                   " bytes with this key; the input has " + std::to_string(longest + 1));
    }
}

// A folder, a device or a file larger than the command takes is refused before it is read.
TEST_P(InputOutput, WhatIsNoFileOrTooLargeIsRefusedUnread) {
    writeFile(file("signature"), std::string(128, 'S'));
    for (const std::string& in : {directory.path, std::string("/dev/zero")}) {
        const std::string says =
            in + (in == "/dev/zero" ? " is not a regular file" : " is a folder");
        expectEach({{{"sign", "--in", in, "--pin-env", "USER_PIN"}, 2, says},
                    {{"verify", "--signature", file("signature"), "--in", in}, 2, says},
                    {{"data", "write", in, "--label", "D", "--pin-env", "USER_PIN"}, 2, says}});
    }
    // Sparse: three gigabytes that take no room and no time to make.
    writeFile(file("huge"), "");
    std::filesystem::resize_file(file("huge"), std::uintmax_t{3} << 30);
    expect({"data", "write", file("huge"), "--label", "D", "--pin-env", "USER_PIN"}, 1,
           "has 3221225472 bytes, more than");
}

// A deciphered secret or a private data object goes to a file only its owner reads, new or not.
TEST_P(InputOutput, DecipheredSecretsGoToFilesOnlyTheirOwnerReads) {
    writeFile(file("secret"), "a key to wrap");
    openssl("pkeyutl -encrypt -pubin -inkey public.pem -in secret -out cryptogram");
    writeFile(file("existing"), std::string(200, 'x'));
    ASSERT_EQ(::chmod(file("existing").c_str(), 0644), 0);
    succeed(
        {"data", "write", file("secret"), "--label", "S", "--private", "--pin-env", "USER_PIN"});
    const std::vector<std::string> decrypt{"decrypt", "--in", file("cryptogram")};
    for (const auto& [out, command] : {std::pair{"new", decrypt},
                                       {"existing", decrypt},
                                       {"private data", {"data", "read", "--label", "S"}}}) {
        std::vector<std::string> arguments = command;
        arguments.insert(arguments.end(), {"--out", file(out), "--pin-env", "USER_PIN"});
        succeed(arguments);
        EXPECT_EQ(readFile(file(out)), "a key to wrap") << out;
        EXPECT_EQ(std::filesystem::status(file(out)).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    }
}

// A signature one byte short or long is handed on as read, and refused; what a key's usage forbids
// is refused before the PIN.
TEST_P(InputOutput, SignDecryptAndVerifyTakeOnlyWhatTheKeyAndTheSignatureAllow) {
    const CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Signer signer(key);
    std::string message, signature(signer.MaxSignatureLength(), '\0');
    for (int attempt = 0; message.empty() || signature.front() != '\0'; ++attempt) {
        ASSERT_LT(attempt, 10000) << "one signature in 256 starts with 00";
        message = "message " + std::to_string(attempt);
        signer.SignMessage(random, reinterpret_cast<const CryptoPP::byte*>(message.data()),
                           message.size(), reinterpret_cast<CryptoPP::byte*>(signature.data()));
    }
    writeFile(file("message"), message);
    for (const auto& [name, value, code] : {std::tuple{"good", signature, 0},
                                            {"stripped", signature.substr(1), 1},
                                            {"padded", '\0' + signature, 1}}) {
        SCOPED_TRACE(name);
        writeFile(file(name), value);
        expect({"verify", "--in", file("message"), "--signature", file(name)}, code,
               code ? "the signature in " + file(name) + " does not verify with \"Signing key\""
                    : "");
    }

    succeed({"encrypt", "--in", file("message"), "--out", file("cryptogram")});
    const auto in = [&](const std::string& command) {
        return file(command == "sign" ? "message" : "cryptogram");
    };
    // Ten bits of usage (bit 0 the top one) keep the entry's length.
    for (const auto& [usage, refused, allowed, says] :
         {std::tuple{
              oss::Bytes{0x20, 0x40}, "decrypt", "sign",
              "\"Signing key\" may only sign (usage: sign, nonRepudiation); it cannot decrypt"},
          {oss::Bytes{0x44, 0x00}, "sign", "decrypt",
           "may only decrypt and unwrap keys (usage: decrypt, unwrap); it cannot sign"}}) {
        editFirstEntry<oss::PrivateKeyType>(image, 0x4400, [&](oss::PrivateKeyType& entry) {
            entry.privateRSAKeyValue.classAttributes.usage = {usage, 10};
        });
        expect({refused, "--in", in(refused), "--pin-env", "WRONG"}, 3, says);
        EXPECT_EQ(storedPin(0x01).triesLeft, 3) << "no PIN was tried";
        expect({allowed, "--in", in(allowed), "--pin-env", "USER_PIN"}, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Profiles, InputOutput, p15test::bothProfiles, p15test::profileParamName);

} // namespace
} // namespace p15tool::test

// key import, export and delete, dump and wipe on a virtual card image, with
// key files and checks from the openssl command line.
#include "ToolProcess.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/CardImage.hpp"

#include <cryptopp/files.h>
#include <cryptopp/nbtheory.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace p15tool::test {
namespace {

class KeyCommands : public InitialisedCard {
protected:
    ToolResult import(const std::string& file, std::vector<std::string> extra = {}) const {
        std::vector<std::string> arguments{"--json", "key",       "import",
                                           file,     "--pin-env", "USER_PIN"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return tool(arguments);
    }
    nlohmann::json list() const {
        const ToolResult result = tool({"--json", "list"});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result.json();
    }
};

// Both key file forms end up as the same key pair: the public key read back
// from the card is the file's, byte for byte, in every export format; the
// same key twice has the same id and is refused.
TEST_F(KeyCommands, AnImportedKeyExportsAsTheFilesPublicKey) {
    openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1536 -out pkcs8.pem");
    openssl("rsa -in pkcs8.pem -traditional -outform DER -out pkcs1.der");
    openssl("pkey -in pkcs8.pem -pubout -out expected.pem");
    openssl("pkey -in pkcs8.pem -pubout -outform DER -out expected.der");
    ASSERT_TRUE(exited(import(file("pkcs1.der"), {"--label", "Mail"}), 0));
    EXPECT_TRUE(exited(import(file("pkcs8.pem")), 1, "already (\"Mail\")"));
    ASSERT_TRUE(exited(import(file("pkcs8.pem"), {"--id", "0a0b"}), 0));

    const nlohmann::json objects = list();
    ASSERT_EQ(objects["privateKeys"].size(), 2u);
    const nlohmann::json& mail = objects["privateKeys"][0];
    EXPECT_EQ(mail["id"].get<std::string>().size(), 40u) << "SHA-1 of the modulus";
    EXPECT_EQ(mail["usage"], nlohmann::json({"decrypt", "sign"}));
    EXPECT_EQ(mail["modulusLength"], 1536);
    EXPECT_EQ(objects["privateKeys"][1]["id"], "0A0B");
    EXPECT_EQ(objects["publicKeys"].size(), 2u);

    const ToolResult pem = tool({"key", "export", "--label", "Mail"});
    ASSERT_TRUE(exited(pem, 0));
    EXPECT_EQ(pem.out, readFile(file("expected.pem")));
    ASSERT_TRUE(exited(
        tool({"key", "export", "--id", "0A0B", "--format", "der", "--out", file("key.der")}), 0));
    EXPECT_EQ(readFile(file("key.der")), readFile(file("expected.der")));
    ASSERT_EQ(std::system(("ssh-keygen -i -m PKCS8 -f " + file("expected.pem") + " > " +
                           file("expected.ssh"))
                              .c_str()),
              0);
    const ToolResult ssh = tool({"key", "export", "--label", "Mail", "--ssh"});
    const std::string expectedSsh = readFile(file("expected.ssh"));
    EXPECT_EQ(ssh.out, expectedSsh.substr(0, expectedSsh.size() - 1) + " Mail\n");
    EXPECT_EQ(tool({"key", "export", "--label", "Mail", "--format", "ssh"}).out, ssh.out);

    const nlohmann::json dump = tool({"--json", "dump"}).json();
    EXPECT_EQ(dump["objects"]["publicKeys"][0]["publicExponent"], "010001");
    EXPECT_EQ(dump["objects"]["publicKeys"][0]["modulus"].get<std::string>().size(), 384u);
}

// A 1024-bit key whose components agree with each other (n = pq, d inverts
// e modulo lcm(p-1, q-1), CRT values to match) but whose p is the product of
// two primes, as PKCS#8 DER. Factors from 1.75 * 2^255 make n 1024 bits.
void writeKeyWithCompositeP(const std::string& path) {
    using CryptoPP::Integer;
    CryptoPP::AutoSeededRandomPool random;
    const Integer e(65537), top = Integer::Power2(255) * 7 / 4,
                            q(random, top * top, top * top * 8 / 7, Integer::PRIME);
    Integer p, d;
    while (d.IsZero()) {
        p = Integer(random, top, top * 8 / 7, Integer::PRIME) *
            Integer(random, top, top * 8 / 7, Integer::PRIME);
        d = e.InverseMod(CryptoPP::LCM(p - 1, q - 1));
    }
    CryptoPP::RSA::PrivateKey key;
    key.Initialize(p * q, e, d, p, q, d % (p - 1), d % (q - 1), q.InverseMod(p));
    CryptoPP::FileSink sink(path.c_str());
    key.DEREncode(sink);
}

// Files that are no RSA key the card can hold, and a wrong PIN, leave the
// card as it was.
TEST_F(KeyCommands, ImportRefusesWhatTheCardCannotTakeAndWritesNothing) {
    openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out rsa.pem");
    openssl("pkey -in rsa.pem -aes128 -passout pass:secret -out encrypted.pem");
    openssl("genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ec.pem");
    openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:512 -out small.pem");
    const std::string pem = readFile(file("rsa.pem"));
    writeFile(file("cut.pem"), pem.substr(0, pem.size() - 40));
    openssl("pkey -in rsa.pem -pubout -out public.pem");
    writeKeyWithCompositeP(file("composite.der"));

    const struct {
        std::string file;
        int exitCode;
        const char* says;
    } cases[] = {
        {"encrypted.pem", 1, "holds an encrypted key; decrypt it first"},
        {"ec.pem", 1, "is not an RSA private key in PKCS#8 or PKCS#1 form"},
        {"public.pem", 1, "holds no private key (PEM blocks: PUBLIC KEY)"},
        {"small.pem", 1, "has 512 bits; the card takes 1024, 1536 or 2048"},
        {"cut.pem", 1, "has no END line"},
        {"composite.der", 1, "composite.der is not a valid RSA key: p is not prime"},
        {"missing.pem", 5, "missing.pem: No such file"},
    };
    for (const auto& each : cases) {
        EXPECT_TRUE(exited(import(file(each.file)), each.exitCode, each.says)) << each.file;
    }
    EXPECT_TRUE(
        exited(tool({"key", "import", file("rsa.pem"), "--pin-env", "WRONG"}), 4, "2 tries left"));
    EXPECT_TRUE(list()["privateKeys"].empty());
}

namespace oss = app::pkcs15::oss;

// Lists a key that the card keeps under its own reference 01 and path, first
// in the PrKDF (`keyObject` of a PrivateKeyType) or the PuKDF.
template <class KeyType, class KeyObject>
void listCardsOwnKey(vcard::CardState& state, std::uint8_t directory,
                     KeyObject KeyType::*keyObject) {
    KeyType key;
    KeyObject& object = key.*keyObject;
    object.commonObjectAttributes.label = "card key";
    object.classAttributes.iD = {0x01};
    object.classAttributes.usage = {{0x20, 0x00}, 10};
    object.classAttributes.keyReference = 0x01;
    object.typeAttributes.value.indirectValue.pathValue.path = {0x3F, 0x00, 0x50, 0x15, 0x4B, 0x01};
    object.typeAttributes.modulusLength = 1024;
    vcard::Bytes& content =
        state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, directory}, true).content;
    vcard::Bytes listed = oss::encode(key);
    listed.insert(listed.end(), content.begin(), content.end() - listed.size());
    content = listed;
}

// Delete and wipe take keys only when asked plainly. Deleting the card's own
// key removes its entries and says that the key stays; the key under 81
// beside it keeps its files (0E01, 0F01).
TEST_F(KeyCommands, DeleteAndWipeTakeKeysOnlyWhenAskedPlainlyAndLeaveACardsOwnKey) {
    openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out rsa.pem");
    openssl("pkey -in rsa.pem -pubout -out public.pem");
    ASSERT_TRUE(exited(import(file("rsa.pem"), {"--label", "one", "--id", "01"}), 0));
    ASSERT_TRUE(exited(import(file("rsa.pem"), {"--label", "two", "--id", "02"}), 0));
    vcard::CardState state = vcard::CardImage::load(image);
    listCardsOwnKey(state, 0x00, &oss::PrivateKeyType::privateRSAKeyValue);
    listCardsOwnKey(state, 0x01, &oss::PublicKeyType::publicRSAKeyValue);
    vcard::CardImage::store(image, vcard::CardImage::serialise(state));

    const ToolResult cardsOwn =
        tool({"key", "delete", "--label", "card key", "--pin-env", "USER_PIN"});
    ASSERT_TRUE(exited(cardsOwn, 0));
    const std::string stays = "only the entry is removed: the key stays on the card";
    EXPECT_NE(cardsOwn.out.find(stays), cardsOwn.out.rfind(stays))
        << "both halves: " << cardsOwn.out;
    EXPECT_EQ(tool({"key", "export", "--label", "one"}).out, readFile(file("public.pem")));

    EXPECT_EQ(tool({"key", "delete", "--pin-env", "USER_PIN"}).exitCode, 2) << "names none";
    EXPECT_EQ(tool({"key", "delete", "--label", "three", "--pin-env", "USER_PIN"}).exitCode, 5);
    const ToolResult deleted = tool({"key", "delete", "--id", "01", "--pin-env", "USER_PIN"});
    ASSERT_TRUE(exited(deleted, 0));
    EXPECT_EQ(deleted.out.find(stays), std::string::npos) << deleted.out;
    nlohmann::json objects = list();
    ASSERT_EQ(objects["privateKeys"].size(), 1u);
    EXPECT_EQ(objects["privateKeys"][0]["label"], "two");
    EXPECT_EQ(objects["publicKeys"].size(), 1u);

    EXPECT_TRUE(exited(tool({"wipe", "--pin-env", "USER_PIN"}), 2, "--yes"))
        << "no terminal to ask on";
    EXPECT_EQ(list()["privateKeys"].size(), 1u);
    const ToolResult wiped = tool({"wipe", "--yes", "--pin-env", "USER_PIN"});
    ASSERT_TRUE(exited(wiped, 0));
    EXPECT_TRUE(wiped.err.empty()) << "no progress when stderr is not a terminal";
    objects = list();
    EXPECT_TRUE(objects["privateKeys"].empty() && objects["publicKeys"].empty()) << objects;
    EXPECT_EQ(objects["pins"].size(), 3u) << "the PINs stay";
}

} // namespace
} // namespace p15tool::test

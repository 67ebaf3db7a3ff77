// key import, export and delete, and wipe, judged by openssl.
#include "ToolProcess.hpp"
#include "mw/Hex.hpp"

#include <cryptopp/files.h>
#include <cryptopp/nbtheory.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>

namespace p15tool::test {
namespace {

class KeyCommands : public InitialisedCard {
protected:
    void import(const std::string& file, int code, const std::string& says = "",
                Arguments extra = {}) const {
        extra.insert(extra.begin(), {"--json", "key", "import", file, "--pin-env", "USER_PIN"});
        expect(extra, code, says);
    }
    nlohmann::json list() const { return succeed({"--json", "list"}).json(); }
};

using CryptoPP::Integer;

// A prime of `bits` bits from 1.75 * 2^(bits-1): the product of two has all their bits.
Integer prime(unsigned bits) {
    static CryptoPP::AutoSeededRandomPool random;
    const Integer low = Integer::Power2(bits - 1) * 7 / 4;
    return Integer(random, low, Integer::Power2(bits) - 1, Integer::PRIME);
}

// A consistent key of the factors `factors` makes (p need not be prime, as a card never knows).
template <class Factors> void writeKey(const std::string& path, Factors factors) {
    const Integer e(65537);
    Integer p, q, d;
    while (d.IsZero()) {
        std::tie(p, q) = factors();
        d = e.InverseMod(CryptoPP::LCM(p - 1, q - 1));
    }
    CryptoPP::RSA::PrivateKey key;
    key.Initialize(p * q, e, d, p, q, d % (p - 1), d % (q - 1), q.InverseMod(p));
    key.DEREncode(CryptoPP::FileSink(path.c_str()).Ref());
}

// What the card cannot hold, and a wrong PIN, leave it as it was; either key file form exports as
// the file's public key, byte for byte; the same key twice is refused.
TEST_F(KeyCommands, AnImportedKeyExportsAsTheFilesPublicKey) {
    openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out rsa.pem");
    openssl("pkey -in rsa.pem -aes128 -passout pass:secret -out encrypted.pem");
    openssl("genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ec.pem");
    openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:512 -out small.pem");
    const std::string pem = readFile(file("rsa.pem"));
    writeFile(file("cut.pem"), pem.substr(0, pem.size() - 40));
    openssl("pkey -in rsa.pem -pubout -out public.pem");
    writeKey(file("composite.der"), [] { return std::pair{prime(256) * prime(256), prime(512)}; });
    writeKey(file("uneven.der"), [] { return std::pair{prime(520), prime(504)}; });

    for (const auto& [name, says] :
         {std::pair{"encrypted.pem", "holds an encrypted key; decrypt it first"},
          {"ec.pem", "is not an RSA private key in PKCS#8 or PKCS#1 form"},
          {"public.pem", "holds no private key (PEM blocks: PUBLIC KEY)"},
          {"small.pem", "has 512 bits; the card takes 1024, 1536 or 2048"},
          {"cut.pem", "has no END line"},
          {"composite.der", "composite.der is not a valid RSA key: p is not prime"},
          {"uneven.der", "uneven.der differ in size; the card takes keys whose primes are half"}}) {
        import(file(name), 1, says);
    }
    import(file("missing.pem"), 5, "missing.pem: No such file");
    expect({"key", "import", file("rsa.pem"), "--pin-env", "WRONG"}, 4, "2 tries left");
    EXPECT_TRUE(list()["privateKeys"].empty());

    openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1536 -out pkcs8.pem");
    openssl("rsa -in pkcs8.pem -traditional -outform DER -out pkcs1.der");
    openssl("pkey -in pkcs8.pem -pubout -out expected.pem");
    openssl("pkey -in pkcs8.pem -pubout -outform DER -out expected.der");
    import(file("pkcs1.der"), 0, "", {"--label", "Mail"});
    import(file("pkcs8.pem"), 1, "already (\"Mail\")");
    import(file("pkcs8.pem"), 0, "", {"--id", "0a0b"});

    const nlohmann::json keys = list()["privateKeys"];
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(std::tuple(keys[0]["usage"], keys[0]["modulusLength"], keys[1]["id"]),
              std::tuple(nlohmann::json({"decrypt", "sign"}), 1536, "0A0B"));
    EXPECT_EQ(succeed({"key", "export", "--label", "Mail"}).out, readFile(file("expected.pem")));
    succeed({"key", "export", "--id", "0A0B", "--format", "der", "--out", file("key.der")});
    EXPECT_EQ(readFile(file("key.der")), readFile(file("expected.der")));
    const std::string ssh = succeed({"key", "export", "--label", "Mail", "--ssh"}).out;
    EXPECT_EQ(ssh, shell("ssh-keygen -i -m PKCS8 -f expected.pem | sed 's/$/ Mail/'"));
    EXPECT_EQ(tool({"key", "export", "--label", "Mail", "--format", "ssh"}).out, ssh);
    EXPECT_EQ(tool({"--json", "dump"}).json()["objects"]["publicKeys"][0]["publicExponent"],
              "010001");
}

// Deleting the card's own key removes its entries and says that the key stays; the key under 81
// beside it keeps its files (0E01, 0F01).
TEST_F(KeyCommands, DeleteAndWipeTakeKeysOnlyWhenAskedPlainlyAndLeaveACardsOwnKey) {
    openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out rsa.pem");
    openssl("pkey -in rsa.pem -pubout -out public.pem");
    for (const char* id : {"01", "02"}) {
        import(file("rsa.pem"), 0, "", {"--label", id, "--id", id});
    }
    // First in the PrKDF and the PuKDF alike: "card key", id 01, usage sign, 1024 bits, the card's
    // own reference 01 and path 3F00 5015 4B01.
    const mw::ByteBuffer entry =
        mw::fromHex("302B300A0C0863617264206B6579300B0401010303062000020101"
                    "A110300E300804063F0050154B0102020400");
    for (const std::uint16_t fid : {0x4400, 0x4401}) {
        editCardFile(image, fid, [&](vcard::CardFile& file) {
            file.content.insert(file.content.begin(), entry.begin(), entry.end());
            file.content.resize(file.content.size() - entry.size());
        });
    }

    const ToolResult cardsOwn =
        succeed({"key", "delete", "--label", "card key", "--pin-env", "USER_PIN"});
    const std::string stays = "only the entry is removed: the key stays on the card";
    EXPECT_NE(cardsOwn.out.find(stays), cardsOwn.out.rfind(stays))
        << "both halves: " << cardsOwn.out;
    EXPECT_EQ(tool({"key", "export", "--label", "01"}).out, readFile(file("public.pem")));

    expect({"key", "delete", "--pin-env", "USER_PIN"}, 2, "--label");
    expect({"key", "delete", "--label", "three", "--pin-env", "USER_PIN"}, 5, "three");
    const ToolResult deleted = succeed({"key", "delete", "--id", "01", "--pin-env", "USER_PIN"});
    EXPECT_EQ(deleted.out.find(stays), std::string::npos) << deleted.out;
    nlohmann::json objects = list();
    EXPECT_EQ(std::tuple(objects["privateKeys"].size(), objects["privateKeys"].at(0)["label"],
                         objects["publicKeys"].size()),
              std::tuple(1u, nlohmann::json("02"), 1u));
    expect({"wipe", "--pin-env", "USER_PIN"}, 2, "--yes"); // no terminal to ask on
    EXPECT_EQ(list()["privateKeys"].size(), 1u);
    EXPECT_EQ(succeed({"wipe", "--yes", "--pin-env", "USER_PIN"}).err, "")
        << "no progress when stderr is not a terminal";
    objects = list();
    EXPECT_TRUE(objects["privateKeys"].empty() && objects["publicKeys"].empty()) << objects;
    EXPECT_EQ(objects["pins"].size(), 3u) << "the PINs stay";
}

} // namespace
} // namespace p15tool::test

// The virtual card's key commands: key files, generation, import, environment, PKCS#1, PSS, OAEP.

#include "CardTestSupport.hpp"
#include "FreeHook.hpp"

#include "vcard/Tlv.hpp"

#include <cryptopp/integer.h>
#include <cryptopp/nbtheory.h>
#include <cryptopp/oaep.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>
#include <numeric>

namespace vcard::test {
namespace {

using CryptoPP::Integer;

Integer integerOf(const Bytes& bytes) {
    return Integer(bytes.data(), bytes.size());
}

Bytes bytesOf(const Integer& value, std::size_t size = 0) {
    Bytes out(size ? size : value.MinEncodedSize());
    value.Encode(out.data(), out.size());
    return out;
}

class KeyCommands : public CardTest {
protected:
    void SetUp() override { logIn(); }

    static std::pair<Integer, Integer> publicKeyOf(const Bytes& answer) {
        std::vector<Tlv> outer = parseTlvs(answer);
        EXPECT_EQ(outer.at(0).tag, 0x7F49);
        std::vector<Tlv> parts = parseTlvs(outer.at(0).value);
        return {integerOf(*findTlv(parts, 0x81)), integerOf(*findTlv(parts, 0x82))};
    }

    /// Key files of kid and a key pair generated in them; its public key.
    CryptoPP::RSA::PublicKey newKey(std::uint8_t kid, unsigned bits) {
        sendAll(*card, keyFileCommands(kid, bits));
        const Bytes answer =
            send(apdu(0, 0x46, 0, static_cast<std::uint8_t>(0x80 | kid),
                      {0x80, 0x02, static_cast<std::uint8_t>(bits >> 8), std::uint8_t(bits)}, 0));
        EXPECT_EQ(statusWord(answer), 0x9000);
        const auto [n, e] = publicKeyOf(dataOf(answer));
        CryptoPP::RSA::PublicKey key;
        key.Initialize(n, e);
        return key;
    }

    std::uint16_t setEnvironment(std::uint8_t p2, std::uint8_t reference,
                                 std::uint8_t algorithm = 0x01) {
        return sw(apdu(0, 0x22, 0x41, p2, {0x84, 0x01, reference, 0x80, 0x01, algorithm}));
    }
};

// A key signs at most eleven bytes less than its modulus, with an environment that a reset
// clears; deciphering takes off type 2 padding and nothing else.
TEST_F(KeyCommands, SigningAndDecipheringNeedAnEnvironmentAndTheirPadding) {
    const CryptoPP::RSA::PublicKey publicKey = newKey(0x01, 1024);
    const Integer &n = publicKey.GetModulus(), &e = publicKey.GetPublicExponent();
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(20, 1), 0)), 0x6985); // no environment
    ASSERT_EQ(setEnvironment(0xB6, 0x81), 0x9000);
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(117, 1), 0)), 0x9000);
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(118, 1), 0)), 0x6A80);
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9B, Bytes(20, 1), 0)), 0x6A86);

    CryptoPP::RSAES_PKCS1v15_Encryptor encryptor(publicKey);
    CryptoPP::AutoSeededRandomPool rng;
    const Bytes secret = hex("000102030405060708090A0B0C0D0E0F1011121314151617");
    Bytes cryptogram(encryptor.CiphertextLength(secret.size()));
    encryptor.Encrypt(rng, secret.data(), secret.size(), cryptogram.data());
    ASSERT_EQ(setEnvironment(0xB8, 0x81), 0x9000);
    EXPECT_EQ(send(apdu(0, 0x2A, 0x80, 0x86, concat({0x00}, cryptogram), 0)),
              concat(secret, hex("9000")));
    // A type 1 block (what a signature opens to) is not type 2 padding.
    const Bytes type1 =
        concat(concat({0x00, 0x01}, Bytes(128 - 3 - secret.size(), 0xFF)), concat({0x00}, secret));
    const Bytes notType2 = bytesOf(a_exp_b_mod_c(integerOf(type1), e, n), 128);
    for (const Bytes& refused : {concat({0x00}, notType2), concat({0x01}, cryptogram),
                                 concat({0x00}, Bytes(cryptogram.begin() + 1, cryptogram.end())),
                                 concat({0x00}, bytesOf(n, 128))})
        EXPECT_EQ(sw(apdu(0, 0x2A, 0x80, 0x86, refused, 0)), 0x6A80);

    card->reset();
    logIn();
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(20, 1), 0)), 0x6985);
}

// Answers the card layer reads (the algorithm list, random bytes of any length): ProfileTest.
TEST_F(KeyCommands, RefusalsOfGenerationEnvironmentChallengeAndData) {
    EXPECT_EQ(sw("00840000"), 0x6700);
    EXPECT_EQ(sw("0084010008"), 0x6A86);
    EXPECT_EQ(sw("00CA01A100"), 0x6A88);
    sendAll(*card, keyFileCommands(0x04, 1024));
    EXPECT_EQ(sw("00460085 04 80020400 00"), 0x6A88); // key files of kid 05 missing
    EXPECT_EQ(sw("00460084 04 80020800 00"), 0x6A80); // 2048 bits into 1024-bit files
    EXPECT_EQ(sw("00460004 04 80020400 00"), 0x6A88); // not a key reference (bit 8 clear)
    EXPECT_EQ(sw("0046008400"), 0x6700);
    EXPECT_EQ(sw("0046028400"), 0x6A86);
    EXPECT_EQ(sw("0046018400"), 0x6985); // no key generated yet
    EXPECT_EQ(setEnvironment(0xB6, 0x85), 0x6A88);
    EXPECT_EQ(sw("002241B6 06 840184 800102"), 0x6A80); // unknown algorithm reference
    EXPECT_EQ(sw("002241B6 03 800101"), 0x6A80);        // no key reference
    EXPECT_EQ(sw("002281B6 03 840184"), 0x6A86);
    EXPECT_EQ(sw("002241A4 03 840184"), 0x6A86);
    ASSERT_EQ(sw("0020FF01"), 0x9000);
    EXPECT_EQ(sw("00460084 04 80020400 00"), 0x6982); // generation needs the update condition
    verifyUserPin();
    const std::vector<Bytes> files = keyFileCommands(0x05, 1024);
    sendAll(*card, {files[0], files[1]});             // the private key file alone
    EXPECT_EQ(sw("00460085 04 80020400 00"), 0x6A88); // generation wants both files
    ASSERT_EQ(sw("00E40000 02 0E05"), 0x9000);
    EXPECT_EQ(setEnvironment(0xB6, 0x85), 0x6A88); // a deleted key file takes its key along
}

// Each hash reference is for PSS or OAEP alone; SHA-512 PSS needs more than 1024 bits. The longest
// OAEP message leaves no freed copy; SHA-256 OAEP blocks wrong in one place each are refused.
TEST_F(KeyCommands, PssAndOaepWithEachHash) {
    const CryptoPP::RSA::PublicKey key = newKey(0x01, 1024);
    for (const auto& [p2, reference] :
         {std::pair{0xB8, 0x23}, {0xB8, 0x24}, {0xB8, 0x25}, {0xB6, 0x31}, {0xB6, 0x33}})
        EXPECT_EQ(setEnvironment(p2, 0x81, reference), 0x6A80) << reference;
    ASSERT_EQ(setEnvironment(0xB6, 0x81, 0x25), 0x9000);
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(64, 1), 0)), 0x6A80);

    ASSERT_EQ(setEnvironment(0xB8, 0x81, 0x33), 0x9000);
    CryptoPP::RSAES<CryptoPP::OAEP<CryptoPP::SHA256>>::Encryptor encryptor(key);
    CryptoPP::AutoSeededRandomPool rng;
    Bytes longest(encryptor.FixedMaxPlaintextLength()), cryptogram(128);
    std::iota(longest.begin(), longest.end(), std::uint8_t{0x80});
    encryptor.Encrypt(rng, longest.data(), longest.size(), cryptogram.data());
    freehook::lookFor({reinterpret_cast<const char*>(longest.data()), longest.size()});
    const Bytes answer = send(apdu(0, 0x2A, 0x80, 0x86, concat({0x00}, cryptogram), 0));
    const std::size_t holding = freehook::blocksFreedHoldingSecret();
    freehook::lookFor("");
    EXPECT_EQ(answer, concat(longest, hex("9000")));
    EXPECT_EQ(holding, 0u);
    Bytes labelHash(32);
    CryptoPP::SHA256().CalculateDigest(labelHash.data(), nullptr, 0);
    for (const auto& [y, label, tail, answer] :
         std::vector<std::tuple<std::uint8_t, std::uint8_t, Bytes, Bytes>>{
             {0x00, 0x00, hex("01 4F4B"), hex("4F4B 9000")},
             {0x00, 0x00, hex("01"), hex("9000")},        // the empty message
             {0x01, 0x00, hex("01 4F4B"), hex("6A80")},   // first byte
             {0x00, 0x01, hex("01 4F4B"), hex("6A80")},   // label hash
             {0x00, 0x00, hex("02 4F4B"), hex("6A80")},   // separator
             {0x00, 0x00, hex("FF0001 4F"), hex("6A80")}, // padding
             {0x00, 0x00, hex("0000"), hex("6A80")}}) {   // no separator
        Bytes seed(32, 0x17), db = concat(labelHash, Bytes(95 - 32, 0x00));
        db[0] ^= label;
        std::copy(tail.begin(), tail.end(), db.end() - static_cast<std::ptrdiff_t>(tail.size()));
        CryptoPP::SHA256 hash;
        CryptoPP::P1363_MGF1().GenerateAndMask(hash, db.data(), db.size(), seed.data(), 32);
        CryptoPP::P1363_MGF1().GenerateAndMask(hash, seed.data(), 32, db.data(), db.size());
        const Integer block = key.ApplyFunction(integerOf(concat(concat({y}, seed), db)));
        EXPECT_EQ(send(apdu(0, 0x2A, 0x80, 0x86, concat({0x00}, bytesOf(block, 128)), 0)), answer);
    }
}

/// The CRT components e, p, q, q⁻¹, dp, dq of a key, in the order of tags 91 to 96.
std::vector<Bytes> crtComponents(const CryptoPP::InvertibleRSAFunction& key) {
    return {bytesOf(key.GetPublicExponent()),
            bytesOf(key.GetPrime1()),
            bytesOf(key.GetPrime2()),
            bytesOf(key.GetMultiplicativeInverseOfPrime2ModPrime1()),
            bytesOf(key.GetModPrime1PrivateExponent()),
            bytesOf(key.GetModPrime2PrivateExponent())};
}

/// The 7F48 template of the components, with extra after them.
Bytes importTemplate(const std::vector<Bytes>& components, const Bytes& extra = {}) {
    Bytes inner;
    for (std::size_t i = 0; i < components.size(); ++i)
        appendTlv(inner, static_cast<std::uint16_t>(0x91 + i), components[i]);
    inner = concat(inner, extra);
    Bytes keyTemplate;
    appendTlv(keyTemplate, 0x7F48, inner);
    return keyTemplate;
}

TEST_F(KeyCommands, ImportChecksComponentSizesByValue) {
    sendAll(*card, keyFileCommands(0x0C, 1024));
    CryptoPP::AutoSeededRandomPool rng;
    CryptoPP::InvertibleRSAFunction key;
    key.Initialize(rng, 1024, Integer(65537));
    const std::vector<Bytes> good = crtComponents(key);
    const auto import = [this](const std::vector<Bytes>& components, const Bytes& extra = {}) {
        return statusWord(sendChained(0xDB, 0x00, 0x8C, importTemplate(components, extra)));
    };
    const auto replacing = [&good](std::size_t index, const Bytes& value) {
        std::vector<Bytes> components = good;
        components[index] = value;
        return components;
    };
    // p and q of 32,000 bytes each: refused by their size, before any arithmetic on them.
    std::vector<Bytes> huge = replacing(1, concat({0x01}, Bytes(31999, 0x00)));
    huge[2] = concat({0x01}, Bytes(31999, 0x01));
    // p = 2 satisfies the CRT relations, but the image would refuse the key: so does the card.
    Integer q(rng, 1023);
    q.SetBit(1022);
    q.SetBit(0);
    while (CryptoPP::GCD(q - 1, Integer(65537)) != Integer::One())
        q += 2;
    const Integer d = Integer(65537).InverseMod(q - 1);
    const std::vector<Bytes> refused[] = {
        replacing(4, bytesOf(key.GetModPrime1PrivateExponent() + 1)), // dp off by one
        huge,
        replacing(3, concat({0x01}, good[1])), // q⁻¹ longer than p
        {good[0], {0x02}, bytesOf(q), {0x01}, {0x00}, bytesOf(d)},
    };
    for (std::size_t i = 0; i < std::size(refused); ++i)
        EXPECT_EQ(import(refused[i]), 0x6A80) << i;
    // A good key, but an object after it whose length runs one byte past the template.
    EXPECT_EQ(import(good, hex("970200")), 0x6A80);
    EXPECT_EQ(sw("00DB008C 04 7F480100"), 0x6A80);
    EXPECT_EQ(sw("0046018C00"), 0x6985); // every refusal left the key files empty

    // Leading zero bytes do not make a component larger: the padded key is accepted.
    std::vector<Bytes> padded = good;
    for (Bytes& component : padded)
        component = concat(Bytes(64, 0x00), component);
    EXPECT_EQ(import(padded), 0x9000);
    EXPECT_EQ(publicKeyOf(dataOf(send("0046018C00"))).first, key.GetModulus());
}

} // namespace
} // namespace vcard::test

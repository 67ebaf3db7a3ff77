// RSA-PSS and RSAES-OAEP: the private half on a card that lists them, the
// public half in software, each checked against Crypto++; what the card
// cannot take is refused with the codes PKCS#11 gives it.
#include "ModuleFixture.hpp"

#include <cryptopp/oaep.h>
#include <cryptopp/pssr.h>
#include <set>

namespace {

using namespace p15test;

struct Scheme {
    CK_MECHANISM_TYPE mechanism, hash;
    CK_RSA_PKCS_MGF_TYPE mgf;
    std::size_t length;
    // Crypto++'s half: verifies a PSS signature, or makes an OAEP cryptogram.
    bool (*verifies)(const Bytes& message, const Bytes& signature);
    Bytes (*made)(const Bytes& message); // a PSS signature or an OAEP cryptogram
    Bytes (*hashOf)(const Bytes& message);
};

template <class Hash>
Scheme pss(CK_MECHANISM_TYPE mechanism, CK_MECHANISM_TYPE hash, CK_RSA_PKCS_MGF_TYPE mgf) {
    using Scheme = CryptoPP::RSASS<CryptoPP::PSS, Hash>;
    return {
        mechanism,
        hash,
        mgf,
        Hash::DIGESTSIZE,
        [](const Bytes& message, const Bytes& signature) {
            return typename Scheme::Verifier{CryptoPP::RSA::PublicKey(softwareKey())}.VerifyMessage(
                message.data(), message.size(), signature.data(), signature.size());
        },
        [](const Bytes& message) {
            CryptoPP::AutoSeededRandomPool rng;
            Bytes signature(256);
            typename Scheme::Signer(softwareKey())
                .SignMessage(rng, message.data(), message.size(), signature.data());
            return signature;
        },
        [](const Bytes& message) {
            Bytes hash(Hash::DIGESTSIZE);
            Hash().CalculateDigest(hash.data(), message.data(), message.size());
            return hash;
        }};
}

template <class Hash> Scheme oaep(CK_MECHANISM_TYPE hash, CK_RSA_PKCS_MGF_TYPE mgf) {
    return {CKM_RSA_PKCS_OAEP,
            hash,
            mgf,
            Hash::DIGESTSIZE,
            nullptr,
            [](const Bytes& message) {
                CryptoPP::AutoSeededRandomPool rng;
                Bytes cipher(256);
                typename CryptoPP::RSAES<CryptoPP::OAEP<Hash>>::Encryptor{
                    CryptoPP::RSA::PublicKey(softwareKey())}
                    .Encrypt(rng, message.data(), message.size(), cipher.data());
                return cipher;
            },
            nullptr};
}

class PaddingTest : public ProfiledModuleTest {
protected:
    bool native() const { return profile() == vcard::CardProfile::Native; }

    // Init and one call of C_Sign, C_Verify, C_Encrypt or C_Decrypt; `out`
    // takes the result.
    template <class Init, class Call>
    CK_RV run(Init init, Call call, CK_MECHANISM mechanism, CK_OBJECT_HANDLE key, Bytes in,
              Bytes& out) {
        out.assign(256, 0);
        CK_ULONG length = out.size();
        if (const CK_RV rv = (f->*init)(session_, &mechanism, key); rv != CKR_OK) {
            return rv;
        }
        const CK_RV done = call(in.data(), in.size(), out.data(), &length);
        out.resize(length);
        return done;
    }
    CK_RV sign(CK_MECHANISM m, Bytes in, Bytes& out) {
        return run(
            &CK_FUNCTION_LIST::C_SignInit, [&](auto... a) { return f->C_Sign(session_, a...); }, m,
            privateKey(session_), in, out);
    }
    CK_RV verify(CK_MECHANISM m, Bytes in, Bytes signature) {
        Bytes unused;
        return run(
            &CK_FUNCTION_LIST::C_VerifyInit,
            [&](CK_BYTE_PTR d, CK_ULONG n, CK_BYTE_PTR, CK_ULONG_PTR) {
                return f->C_Verify(session_, d, n, signature.data(), signature.size());
            },
            m, publicKey(session_), in, unused);
    }
    CK_RV cipher(bool encrypt, CK_MECHANISM m, Bytes in, Bytes& out) {
        if (encrypt) {
            return run(
                &CK_FUNCTION_LIST::C_EncryptInit,
                [&](auto... a) { return f->C_Encrypt(session_, a...); }, m, publicKey(session_), in,
                out);
        }
        return run(
            &CK_FUNCTION_LIST::C_DecryptInit,
            [&](auto... a) { return f->C_Decrypt(session_, a...); }, m, privateKey(session_), in,
            out);
    }
    void SetUp() override {
        ProfiledModuleTest::SetUp();
        session_ = open(CKF_SERIAL_SESSION);
        ASSERT_EQ(login(session_, CKU_USER, userPin), CKR_OK);
    }
    CK_SESSION_HANDLE session_ = 0;
};

// Each hash: the card's signatures of a message and of its hash verify with
// Crypto++, with a fresh salt each time; the module verifies Crypto++'s
// signature, of the message and of its hash, and not a flipped one, also
// where the card does not sign.
TEST_P(PaddingTest, RsaPssSignsOnACardThatListsItAndVerifiesInSoftware) {
    const Bytes message(300, 0x5C);
    for (const Scheme& each :
         {pss<CryptoPP::SHA256>(CKM_SHA256_RSA_PKCS_PSS, CKM_SHA256, CKG_MGF1_SHA256),
          pss<CryptoPP::SHA384>(CKM_SHA384_RSA_PKCS_PSS, CKM_SHA384, CKG_MGF1_SHA384),
          pss<CryptoPP::SHA512>(CKM_SHA512_RSA_PKCS_PSS, CKM_SHA512, CKG_MGF1_SHA512)}) {
        SCOPED_TRACE(each.mechanism);
        const Bytes hash = each.hashOf(message);
        Bytes first, second, unused;
        CK_RSA_PKCS_PSS_PARAMS params{each.hash, each.mgf, each.length};
        const CK_MECHANISM hashing{each.mechanism, &params, sizeof params},
            given{CKM_RSA_PKCS_PSS, &params, sizeof params};
        if (native()) {
            ASSERT_EQ(sign(hashing, message, first), CKR_OK);
            ASSERT_EQ(sign(given, hash, second), CKR_OK);
            EXPECT_TRUE(each.verifies(message, first) && each.verifies(message, second));
            EXPECT_NE(first, second) << "a fresh salt every time";
            EXPECT_EQ(sign(given, Bytes(each.length - 1), unused), CKR_DATA_LEN_RANGE);
        } else {
            EXPECT_EQ(sign(hashing, message, first), CKR_MECHANISM_INVALID);
        }
        Bytes signature = each.made(message);
        EXPECT_EQ(verify(hashing, message, signature), CKR_OK);
        EXPECT_EQ(verify(given, hash, signature), CKR_OK);
        signature[7] ^= 0x40;
        EXPECT_EQ(verify(hashing, message, signature), CKR_SIGNATURE_INVALID);
    }
}

// Both hashes: the module's cryptogram of the longest message and Crypto++'s
// decipher on the card; a corrupted one and one byte more are refused.
TEST_P(PaddingTest, RsaOaepDeciphersOnACardThatListsItAndEnciphersInSoftware) {
    for (const Scheme& each : {oaep<CryptoPP::SHA1>(CKM_SHA_1, CKG_MGF1_SHA1),
                               oaep<CryptoPP::SHA256>(CKM_SHA256, CKG_MGF1_SHA256)}) {
        SCOPED_TRACE(each.hash);
        CK_RSA_PKCS_OAEP_PARAMS params{each.hash, each.mgf, CKZ_DATA_SPECIFIED, nullptr, 0};
        const CK_MECHANISM mechanism{CKM_RSA_PKCS_OAEP, &params, sizeof params};
        const Bytes longest(256 - 2 * each.length - 2, 0x6B), secret{'k', 'e', 'y'};
        Bytes cryptogram, plain;
        EXPECT_EQ(cipher(true, mechanism, Bytes(longest.size() + 1), cryptogram),
                  CKR_DATA_LEN_RANGE);
        ASSERT_EQ(cipher(true, mechanism, longest, cryptogram), CKR_OK);
        if (!native()) {
            EXPECT_EQ(cipher(false, mechanism, cryptogram, plain), CKR_MECHANISM_INVALID);
            continue;
        }
        ASSERT_EQ(cipher(false, mechanism, cryptogram, plain), CKR_OK);
        EXPECT_EQ(plain, longest);
        ASSERT_EQ(cipher(false, mechanism, each.made(secret), plain), CKR_OK);
        EXPECT_EQ(plain, secret);
        cryptogram[200] ^= 0x01;
        EXPECT_EQ(cipher(false, mechanism, cryptogram, plain), CKR_ENCRYPTED_DATA_INVALID);
    }
}

// Parameters the card cannot take are refused at Init, whichever half does
// the work; the mechanism information and each key's CKA_ALLOWED_MECHANISMS
// keep only the software half where the card lacks the algorithm.
TEST_P(PaddingTest, WhatTheCardCannotTakeIsRefusedAtInitAndNotOffered) {
    CK_RSA_PKCS_PSS_PARAMS sha1{CKM_SHA_1, CKG_MGF1_SHA1, 20},
        otherMgf{CKM_SHA256, CKG_MGF1_SHA1, 32}, noSalt{CKM_SHA256, CKG_MGF1_SHA256, 0},
        sha384{CKM_SHA384, CKG_MGF1_SHA384, 48};
    unsigned char label[] = "label";
    CK_RSA_PKCS_OAEP_PARAMS labelled{CKM_SHA256, CKG_MGF1_SHA256, CKZ_DATA_SPECIFIED, label, 5},
        oaep384{CKM_SHA384, CKG_MGF1_SHA384, CKZ_DATA_SPECIFIED, nullptr, 0},
        oaepMgf{CKM_SHA_1, CKG_MGF1_SHA256, CKZ_DATA_SPECIFIED, nullptr, 0};
    const CK_MECHANISM refused[] = {
        {CKM_RSA_PKCS_PSS, nullptr, 0},
        {CKM_RSA_PKCS_PSS, &sha1, sizeof sha1},
        {CKM_RSA_PKCS_PSS, &otherMgf, sizeof otherMgf},
        {CKM_RSA_PKCS_PSS, &noSalt, sizeof noSalt},
        {CKM_RSA_PKCS_PSS, &sha384, sizeof sha384 - 1},
        {CKM_SHA256_RSA_PKCS_PSS, &sha384, sizeof sha384},
        {CKM_RSA_PKCS_OAEP, &labelled, sizeof labelled},
        {CKM_RSA_PKCS_OAEP, &oaep384, sizeof oaep384},
        {CKM_RSA_PKCS_OAEP, &oaepMgf, sizeof oaepMgf},
        {CKM_RSA_PKCS, &sha384, sizeof sha384},
    };
    for (std::size_t row = 0; row < std::size(refused); ++row) {
        SCOPED_TRACE(row);
        CK_MECHANISM mechanism = refused[row];
        const bool oaepOnly = mechanism.mechanism == CKM_RSA_PKCS_OAEP;
        const CK_OBJECT_HANDLE publicHalf = publicKey(session_), key = privateKey(session_);
        EXPECT_EQ(oaepOnly ? f->C_EncryptInit(session_, &mechanism, publicHalf)
                           : f->C_VerifyInit(session_, &mechanism, publicHalf),
                  CKR_MECHANISM_PARAM_INVALID);
        EXPECT_EQ(oaepOnly ? f->C_DecryptInit(session_, &mechanism, key)
                           : f->C_SignInit(session_, &mechanism, key),
                  native() || mechanism.mechanism == CKM_RSA_PKCS ? CKR_MECHANISM_PARAM_INVALID
                                                                  : CKR_MECHANISM_INVALID);
    }

    CK_MECHANISM_INFO pss, oaep;
    ASSERT_EQ(f->C_GetMechanismInfo(0, CKM_SHA256_RSA_PKCS_PSS, &pss), CKR_OK);
    ASSERT_EQ(f->C_GetMechanismInfo(0, CKM_RSA_PKCS_OAEP, &oaep), CKR_OK);
    const CK_FLAGS card = native() ? CKF_HW | CKF_SIGN | CKF_DECRYPT : 0;
    EXPECT_EQ(pss.flags, (card & ~CKF_DECRYPT) | CKF_VERIFY);
    EXPECT_EQ(oaep.flags, (card & ~CKF_SIGN) | CKF_ENCRYPT);
    const auto allowed = [&](CK_OBJECT_HANDLE key) {
        const Bytes value = values(session_, key, {CKA_ALLOWED_MECHANISMS})[0];
        std::set<CK_MECHANISM_TYPE> types;
        for (std::size_t at = 0; at + sizeof(CK_MECHANISM_TYPE) <= value.size();
             at += sizeof(CK_MECHANISM_TYPE)) {
            types.insert(*reinterpret_cast<const CK_MECHANISM_TYPE*>(&value[at]));
        }
        return types;
    };
    const auto ofPrivate = allowed(privateKey(session_)), ofPublic = allowed(publicKey(session_));
    EXPECT_EQ(ofPrivate.count(CKM_RSA_PKCS_PSS) + ofPrivate.count(CKM_RSA_PKCS_OAEP),
              native() ? 2u : 0u);
    EXPECT_EQ(ofPrivate.count(CKM_RSA_PKCS) + ofPrivate.count(CKM_RSA_PKCS_KEY_PAIR_GEN), 1u);
    EXPECT_EQ(ofPublic.count(CKM_SHA512_RSA_PKCS_PSS) + ofPublic.count(CKM_RSA_PKCS_OAEP), 2u);
}

INSTANTIATE_TEST_SUITE_P(Profiles, PaddingTest, bothProfiles, profileParamName);

} // namespace

// RSA-PSS and RSAES-OAEP, the private half on a card that lists them, the public half in software;
// what the card cannot take is refused. The encodings are checked against Crypto++ in the card's
// tests, and against openssl's clients by pkcs11.login.
#include "ModuleFixture.hpp"

#include <set>

namespace {

using namespace p15test;

class PaddingTest : public ProfiledModuleTest {
protected:
    bool native() const { return profile() == vcard::CardProfile::Native; }

    void SetUp() override {
        ProfiledModuleTest::SetUp();
        session_ = userSession(CKF_SERIAL_SESSION);
    }
    CK_SESSION_HANDLE session_ = 0;
};

// Each hash, the module hashing or the caller: what the card signs the module verifies, the message
// and its hash alike, with a fresh salt each time; a hash of another length and a flipped bit are
// refused. OAEP: the module's cryptogram of the longest message deciphers on the card, one byte
// more and a corrupted cryptogram are refused. A card without them signs and deciphers neither.
TEST_P(PaddingTest, PssAndOaepRunOnACardThatListsThem) {
    const Bytes message(300, 0x5C);
    const auto digest = [&message](auto&& function) {
        Bytes hash(function.DigestSize());
        function.CalculateDigest(hash.data(), message.data(), message.size());
        return hash;
    };
    // clang-format off
    for (const auto& [type, hashType, mgf, hash] :
         {std::tuple{CKM_SHA256_RSA_PKCS_PSS, CKM_SHA256, CKG_MGF1_SHA256, digest(CryptoPP::SHA256())},
          std::tuple{CKM_SHA384_RSA_PKCS_PSS, CKM_SHA384, CKG_MGF1_SHA384, digest(CryptoPP::SHA384())},
          std::tuple{CKM_SHA512_RSA_PKCS_PSS, CKM_SHA512, CKG_MGF1_SHA512, digest(CryptoPP::SHA512())}}) {
        // clang-format on
        SCOPED_TRACE(type);
        Bytes first, second;
        CK_RSA_PKCS_PSS_PARAMS params{hashType, mgf, hash.size()};
        const CK_MECHANISM hashing{type, &params, sizeof params},
            given{CKM_RSA_PKCS_PSS, &params, sizeof params};
        if (!native()) {
            EXPECT_EQ(run(session_, CKF_SIGN, hashing, message, first), CKR_MECHANISM_INVALID);
            continue;
        }
        ASSERT_EQ(run(session_, CKF_SIGN, hashing, message, first), CKR_OK);
        ASSERT_EQ(run(session_, CKF_SIGN, given, hash, second), CKR_OK);
        EXPECT_NE(first, second) << "a fresh salt every time";
        EXPECT_EQ(run(session_, CKF_VERIFY, given, hash, first), CKR_OK);
        EXPECT_EQ(run(session_, CKF_VERIFY, hashing, message, second), CKR_OK);
        EXPECT_EQ(run(session_, CKF_SIGN, given, Bytes(hash.size() - 1), first),
                  CKR_DATA_LEN_RANGE);
        second[7] ^= 0x40;
        EXPECT_EQ(run(session_, CKF_VERIFY, hashing, message, second), CKR_SIGNATURE_INVALID);
    }
    for (const auto& [hash, mgf, length] :
         {std::tuple{CKM_SHA_1, CKG_MGF1_SHA1, 20}, std::tuple{CKM_SHA256, CKG_MGF1_SHA256, 32}}) {
        SCOPED_TRACE(hash);
        CK_RSA_PKCS_OAEP_PARAMS params{hash, mgf, CKZ_DATA_SPECIFIED, nullptr, 0};
        const CK_MECHANISM oaep{CKM_RSA_PKCS_OAEP, &params, sizeof params};
        const Bytes longest(256 - 2 * length - 2, 0x6B);
        Bytes cryptogram, plain;
        EXPECT_EQ(run(session_, CKF_ENCRYPT, oaep, Bytes(longest.size() + 1), cryptogram),
                  CKR_DATA_LEN_RANGE);
        ASSERT_EQ(run(session_, CKF_ENCRYPT, oaep, longest, cryptogram), CKR_OK);
        EXPECT_EQ(run(session_, CKF_DECRYPT, oaep, cryptogram, plain),
                  native() ? CKR_OK : CKR_MECHANISM_INVALID);
        EXPECT_TRUE(!native() || plain == longest);
        cryptogram[200] ^= 0x01;
        EXPECT_EQ(run(session_, CKF_DECRYPT, oaep, cryptogram, plain),
                  native() ? CKR_ENCRYPTED_DATA_INVALID : CKR_MECHANISM_INVALID);
    }
}

// Parameters the card cannot take are refused at Init, whichever half does the work; the mechanism
// information and each key's CKA_ALLOWED_MECHANISMS keep only the software half where the card
// lacks the algorithm.
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
        const auto* types = reinterpret_cast<const CK_MECHANISM_TYPE*>(value.data());
        return std::set<CK_MECHANISM_TYPE>(types, types + value.size() / sizeof *types);
    };
    const auto ofPrivate = allowed(privateKey(session_)), ofPublic = allowed(publicKey(session_));
    EXPECT_EQ(ofPrivate.count(CKM_RSA_PKCS_PSS) + ofPrivate.count(CKM_RSA_PKCS_OAEP),
              native() ? 2u : 0u);
    EXPECT_EQ(ofPrivate.count(CKM_RSA_PKCS) + ofPrivate.count(CKM_RSA_PKCS_KEY_PAIR_GEN), 1u);
    EXPECT_EQ(ofPublic.count(CKM_SHA512_RSA_PKCS_PSS) + ofPublic.count(CKM_RSA_PKCS_OAEP), 2u);
}

INSTANTIATE_TEST_SUITE_P(Profiles, PaddingTest, bothProfiles, profileParamName);

} // namespace

// RSA-PSS and RSAES-OAEP: the private half on a card that lists them, the
// public half in software, each checked against Crypto++; what the card
// cannot take is refused with the codes PKCS#11 gives it.
#include "ModuleFixture.hpp"

#include <cryptopp/oaep.h>
#include <cryptopp/pssr.h>

namespace {

using namespace p15test;

template <class Hash> bool pssVerifies(const Bytes& message, const Bytes& signature) {
    const typename CryptoPP::RSASS<CryptoPP::PSS, Hash>::Verifier verifier{
        CryptoPP::RSA::PublicKey(softwareKey())};
    return verifier.VerifyMessage(message.data(), message.size(), signature.data(),
                                  signature.size());
}

template <class Hash> Bytes pssSigned(const Bytes& message) {
    CryptoPP::AutoSeededRandomPool rng;
    const typename CryptoPP::RSASS<CryptoPP::PSS, Hash>::Signer signer(softwareKey());
    Bytes signature(signer.MaxSignatureLength());
    signer.SignMessage(rng, message.data(), message.size(), signature.data());
    return signature;
}

template <class Hash> Bytes hashOf(const Bytes& message) {
    Bytes hash(Hash::DIGESTSIZE);
    Hash().CalculateDigest(hash.data(), message.data(), message.size());
    return hash;
}

template <class Hash> Bytes oaepEnciphered(const Bytes& message) {
    CryptoPP::AutoSeededRandomPool rng;
    const typename CryptoPP::RSAES<CryptoPP::OAEP<Hash>>::Encryptor encryptor{
        CryptoPP::RSA::PublicKey(softwareKey())};
    Bytes cipher(encryptor.CiphertextLength(message.size()));
    encryptor.Encrypt(rng, message.data(), message.size(), cipher.data());
    return cipher;
}

template <class Hash> Bytes oaepDeciphered(const Bytes& cipher) {
    CryptoPP::AutoSeededRandomPool rng;
    const typename CryptoPP::RSAES<CryptoPP::OAEP<Hash>>::Decryptor decryptor(softwareKey());
    Bytes plain(decryptor.MaxPlaintextLength(cipher.size()));
    plain.resize(decryptor.Decrypt(rng, cipher.data(), cipher.size(), plain.data()).messageLength);
    return plain;
}

struct PssHash {
    CK_MECHANISM_TYPE hashing, hash;
    CK_RSA_PKCS_MGF_TYPE mgf;
    bool (*verifies)(const Bytes&, const Bytes&);
    Bytes (*signs)(const Bytes&);
    Bytes (*hashOf)(const Bytes&);
};

template <class Hash>
PssHash pssHash(CK_MECHANISM_TYPE hashing, CK_MECHANISM_TYPE hash, CK_RSA_PKCS_MGF_TYPE mgf) {
    return {hashing, hash, mgf, &pssVerifies<Hash>, &pssSigned<Hash>, &hashOf<Hash>};
}

class PaddingTest : public ProfiledModuleTest {
protected:
    bool native() const { return profile() == vcard::CardProfile::Native; }

    CK_RV signWith(CK_SESSION_HANDLE session, CK_MECHANISM mechanism, CK_OBJECT_HANDLE key,
                   Bytes data, Bytes& signature) {
        signature.assign(256, 0);
        CK_ULONG length = signature.size();
        if (const CK_RV rv = f->C_SignInit(session, &mechanism, key); rv != CKR_OK) {
            return rv;
        }
        const CK_RV rv = f->C_Sign(session, data.data(), data.size(), signature.data(), &length);
        signature.resize(length);
        return rv;
    }
    CK_RV verifyWith(CK_SESSION_HANDLE session, CK_MECHANISM mechanism, CK_OBJECT_HANDLE key,
                     Bytes data, Bytes signature) {
        EXPECT_EQ(f->C_VerifyInit(session, &mechanism, key), CKR_OK);
        return f->C_Verify(session, data.data(), data.size(), signature.data(), signature.size());
    }
    CK_RV cipherWith(CK_SESSION_HANDLE session, bool encrypt, CK_MECHANISM mechanism,
                     CK_OBJECT_HANDLE key, Bytes in, Bytes& out) {
        out.assign(256, 0);
        CK_ULONG length = out.size();
        const CK_RV init = encrypt ? f->C_EncryptInit(session, &mechanism, key)
                                   : f->C_DecryptInit(session, &mechanism, key);
        if (init != CKR_OK) {
            return init;
        }
        const CK_RV rv = encrypt ? f->C_Encrypt(session, in.data(), in.size(), out.data(), &length)
                                 : f->C_Decrypt(session, in.data(), in.size(), out.data(), &length);
        out.resize(length);
        return rv;
    }
    std::vector<CK_MECHANISM_TYPE> allowedMechanisms(CK_SESSION_HANDLE session,
                                                     CK_OBJECT_HANDLE key) {
        const Bytes value = values(session, key, {CKA_ALLOWED_MECHANISMS})[0];
        std::vector<CK_MECHANISM_TYPE> types(value.size() / sizeof(CK_MECHANISM_TYPE));
        std::memcpy(types.data(), value.data(), types.size() * sizeof(CK_MECHANISM_TYPE));
        return types;
    }
};

// Each hash, whole message or hash given: the card's signature is one an
// independent verifier takes, with a fresh salt each time; the module takes
// Crypto++'s signature and not a flipped one, whether the card signs or not.
TEST_P(PaddingTest, RsaPssSignsOnACardThatListsItAndVerifiesInSoftware) {
    const CK_SESSION_HANDLE session = open(CKF_SERIAL_SESSION);
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    const CK_OBJECT_HANDLE key = privateKey(session), publicHalf = publicKey(session);
    const Bytes message(300, 0x5C);
    for (const PssHash& each :
         {pssHash<CryptoPP::SHA256>(CKM_SHA256_RSA_PKCS_PSS, CKM_SHA256, CKG_MGF1_SHA256),
          pssHash<CryptoPP::SHA384>(CKM_SHA384_RSA_PKCS_PSS, CKM_SHA384, CKG_MGF1_SHA384),
          pssHash<CryptoPP::SHA512>(CKM_SHA512_RSA_PKCS_PSS, CKM_SHA512, CKG_MGF1_SHA512)}) {
        SCOPED_TRACE(each.hashing);
        const Bytes hash = each.hashOf(message);
        CK_RSA_PKCS_PSS_PARAMS params{each.hash, each.mgf, hash.size()};
        const CK_MECHANISM hashing{each.hashing, &params, sizeof params};
        const CK_MECHANISM given{CKM_RSA_PKCS_PSS, &params, sizeof params};
        Bytes first, second, ofHash;
        if (native()) {
            ASSERT_EQ(signWith(session, hashing, key, message, first), CKR_OK);
            ASSERT_EQ(signWith(session, hashing, key, message, second), CKR_OK);
            ASSERT_EQ(signWith(session, given, key, hash, ofHash), CKR_OK);
            EXPECT_TRUE(each.verifies(message, first) && each.verifies(message, ofHash));
            EXPECT_NE(first, second) << "a fresh salt every time";
            Bytes shortHash(hash.begin() + 1, hash.end()), unused;
            EXPECT_EQ(signWith(session, given, key, shortHash, unused), CKR_DATA_LEN_RANGE);
        } else {
            EXPECT_EQ(signWith(session, hashing, key, message, first), CKR_MECHANISM_INVALID);
        }
        Bytes signature = each.signs(message);
        EXPECT_EQ(verifyWith(session, hashing, publicHalf, message, signature), CKR_OK);
        EXPECT_EQ(verifyWith(session, given, publicHalf, hash, signature), CKR_OK);
        signature[7] ^= 0x40;
        EXPECT_EQ(verifyWith(session, hashing, publicHalf, message, signature),
                  CKR_SIGNATURE_INVALID);
    }
}

// Both hashes: the module's cryptogram of the longest message deciphers with
// Crypto++ and on the card, Crypto++'s on the card; a corrupted one and a
// message one byte too long are refused.
TEST_P(PaddingTest, RsaOaepDeciphersOnACardThatListsItAndEnciphersInSoftware) {
    const CK_SESSION_HANDLE session = open(CKF_SERIAL_SESSION);
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    const CK_OBJECT_HANDLE key = privateKey(session), publicHalf = publicKey(session);
    struct OaepHash {
        CK_MECHANISM_TYPE hash;
        CK_RSA_PKCS_MGF_TYPE mgf;
        std::size_t length;
        Bytes (*enciphered)(const Bytes&);
        Bytes (*deciphered)(const Bytes&);
    };
    for (const OaepHash& each :
         {OaepHash{CKM_SHA_1, CKG_MGF1_SHA1, 20, &oaepEnciphered<CryptoPP::SHA1>,
                   &oaepDeciphered<CryptoPP::SHA1>},
          OaepHash{CKM_SHA256, CKG_MGF1_SHA256, 32, &oaepEnciphered<CryptoPP::SHA256>,
                   &oaepDeciphered<CryptoPP::SHA256>}}) {
        SCOPED_TRACE(each.hash);
        CK_RSA_PKCS_OAEP_PARAMS params{each.hash, each.mgf, CKZ_DATA_SPECIFIED, nullptr, 0};
        const CK_MECHANISM oaep{CKM_RSA_PKCS_OAEP, &params, sizeof params};
        const Bytes longest(256 - 2 * each.length - 2, 0x6B), tooLong(longest.size() + 1, 0x6B);
        Bytes cipher, plain;
        EXPECT_EQ(cipherWith(session, true, oaep, publicHalf, tooLong, cipher), CKR_DATA_LEN_RANGE);
        ASSERT_EQ(cipherWith(session, true, oaep, publicHalf, longest, cipher), CKR_OK);
        EXPECT_EQ(each.deciphered(cipher), longest);
        if (!native()) {
            EXPECT_EQ(cipherWith(session, false, oaep, key, cipher, plain), CKR_MECHANISM_INVALID);
            continue;
        }
        ASSERT_EQ(cipherWith(session, false, oaep, key, cipher, plain), CKR_OK);
        EXPECT_EQ(plain, longest);
        const Bytes secret{'k', 'e', 'y'};
        ASSERT_EQ(cipherWith(session, false, oaep, key, each.enciphered(secret), plain), CKR_OK);
        EXPECT_EQ(plain, secret);
        cipher[200] ^= 0x01;
        EXPECT_EQ(cipherWith(session, false, oaep, key, cipher, plain), CKR_ENCRYPTED_DATA_INVALID);
    }
}

// Parameters the card cannot take are refused at Init, before any card
// command, whether the card or the module would do the work.
TEST_P(PaddingTest, ParametersTheCardCannotTakeAreRefusedAtInit) {
    const CK_SESSION_HANDLE session = open(CKF_SERIAL_SESSION);
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    const CK_OBJECT_HANDLE key = privateKey(session), publicHalf = publicKey(session);
    CK_RSA_PKCS_PSS_PARAMS sha1{CKM_SHA_1, CKG_MGF1_SHA1, 20},
        otherMgf{CKM_SHA256, CKG_MGF1_SHA1, 32}, noSalt{CKM_SHA256, CKG_MGF1_SHA256, 0},
        sha384{CKM_SHA384, CKG_MGF1_SHA384, 48};
    unsigned char label[] = "label";
    CK_RSA_PKCS_OAEP_PARAMS labelled{CKM_SHA256, CKG_MGF1_SHA256, CKZ_DATA_SPECIFIED, label, 5},
        oaep384{CKM_SHA384, CKG_MGF1_SHA384, CKZ_DATA_SPECIFIED, nullptr, 0},
        oaepMgf{CKM_SHA_1, CKG_MGF1_SHA256, CKZ_DATA_SPECIFIED, nullptr, 0};
    const std::pair<CK_MECHANISM, const char*> refused[] = {
        {{CKM_RSA_PKCS_PSS, nullptr, 0}, "no parameters"},
        {{CKM_RSA_PKCS_PSS, &sha1, sizeof sha1}, "SHA-1"},
        {{CKM_RSA_PKCS_PSS, &otherMgf, sizeof otherMgf}, "MGF1 of another hash"},
        {{CKM_RSA_PKCS_PSS, &noSalt, sizeof noSalt}, "no salt"},
        {{CKM_RSA_PKCS_PSS, &noSalt, sizeof noSalt - 1}, "a short parameter block"},
        {{CKM_SHA256_RSA_PKCS_PSS, &sha384, sizeof sha384}, "another hash than the mechanism's"},
        {{CKM_RSA_PKCS_OAEP, &labelled, sizeof labelled}, "a label"},
        {{CKM_RSA_PKCS_OAEP, &oaep384, sizeof oaep384}, "SHA-384"},
        {{CKM_RSA_PKCS_OAEP, &oaepMgf, sizeof oaepMgf}, "MGF1 of another hash"},
        {{CKM_RSA_PKCS, &sha384, sizeof sha384}, "parameters for PKCS#1 v1.5"},
    };
    for (auto [mechanism, what] : refused) {
        SCOPED_TRACE(what);
        const bool cipher = mechanism.mechanism == CKM_RSA_PKCS_OAEP;
        EXPECT_EQ(cipher ? f->C_EncryptInit(session, &mechanism, publicHalf)
                         : f->C_VerifyInit(session, &mechanism, publicHalf),
                  CKR_MECHANISM_PARAM_INVALID);
        if (native()) {
            EXPECT_EQ(cipher ? f->C_DecryptInit(session, &mechanism, key)
                             : f->C_SignInit(session, &mechanism, key),
                      CKR_MECHANISM_PARAM_INVALID);
        }
    }
    CK_MECHANISM signOnly{CKM_SHA384_RSA_PKCS_PSS, &sha384, sizeof sha384};
    EXPECT_EQ(f->C_EncryptInit(session, &signOnly, publicHalf), CKR_MECHANISM_INVALID);
}

// The mechanism information and each key's CKA_ALLOWED_MECHANISMS say what
// the card performs: without RSA-PSS and RSAES-OAEP on the card, only the
// module's software half of them is offered.
TEST_P(PaddingTest, MechanismsAndKeysTellWhatTheCardPerforms) {
    const CK_SESSION_HANDLE session = open(CKF_SERIAL_SESSION);
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    CK_MECHANISM_INFO pss, oaep;
    ASSERT_EQ(f->C_GetMechanismInfo(0, CKM_SHA256_RSA_PKCS_PSS, &pss), CKR_OK);
    ASSERT_EQ(f->C_GetMechanismInfo(0, CKM_RSA_PKCS_OAEP, &oaep), CKR_OK);
    const CK_FLAGS card = native() ? CKF_HW | CKF_SIGN | CKF_DECRYPT : 0;
    EXPECT_EQ(pss.flags, (card & ~CKF_DECRYPT) | CKF_VERIFY);
    EXPECT_EQ(oaep.flags, (card & ~CKF_SIGN) | CKF_ENCRYPT);

    const auto privateTypes = allowedMechanisms(session, privateKey(session));
    const auto publicTypes = allowedMechanisms(session, publicKey(session));
    const auto has = [](const std::vector<CK_MECHANISM_TYPE>& types, CK_MECHANISM_TYPE type) {
        return std::count(types.begin(), types.end(), type) == 1;
    };
    EXPECT_TRUE(has(privateTypes, CKM_RSA_PKCS) && has(publicTypes, CKM_SHA512_RSA_PKCS));
    EXPECT_EQ(has(privateTypes, CKM_RSA_PKCS_PSS), native());
    EXPECT_EQ(has(privateTypes, CKM_RSA_PKCS_OAEP), native());
    EXPECT_TRUE(has(publicTypes, CKM_RSA_PKCS_PSS) && has(publicTypes, CKM_RSA_PKCS_OAEP));
    EXPECT_FALSE(has(privateTypes, CKM_RSA_PKCS_KEY_PAIR_GEN));
}

INSTANTIATE_TEST_SUITE_P(Profiles, PaddingTest, bothProfiles, profileParamName);

} // namespace

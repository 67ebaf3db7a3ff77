// The module as a PKCS#11 application loads it: its functions, interfaces, mechanisms, sessions,
// PINs, searches and cryptographic operations.
#include "ModuleFixture.hpp"

#include "OddCard.hpp"
#include "pkcs11/Interfaces.hpp"
#include "vcard/CardImage.hpp"
#include <atomic>
#include <cstring>
#include <thread>

namespace {

using namespace p15test;

TEST_F(ModuleTest, EveryFunctionAndMechanismIsThereAndTheUnsupportedOnesSaySo) {
    const auto* first = reinterpret_cast<const void* const*>(&f->C_Initialize);
    const auto* last = reinterpret_cast<const void* const*>(&f->C_WaitForSlotEvent);
    for (const auto* entry = first; entry <= last; ++entry) {
        EXPECT_NE(*entry, nullptr) << "function " << entry - first;
    }
    EXPECT_EQ(std::make_tuple(f->version.major, f->version.minor, f->C_DigestInit(1, nullptr),
                              f->C_InitToken(0, nullptr, 0, nullptr), f->C_GetFunctionStatus(1)),
              std::make_tuple(2, 40, CKR_FUNCTION_NOT_SUPPORTED, CKR_FUNCTION_NOT_SUPPORTED,
                              CKR_FUNCTION_NOT_PARALLEL));

    // A 3.0 application finds the list as the interface "PKCS 11", by name or as the default.
    const auto list =
        reinterpret_cast<CK_C_GetInterfaceList>(::dlsym(library, "C_GetInterfaceList"));
    const auto get = reinterpret_cast<CK_C_GetInterface>(::dlsym(library, "C_GetInterface"));
    ASSERT_TRUE(list && get);
    CK_INTERFACE interfaces[1];
    CK_ULONG count = 0;
    ASSERT_EQ((std::pair{list(interfaces, &count), count}), std::pair(CKR_BUFFER_TOO_SMALL, 1ul));
    EXPECT_EQ((std::tuple{list(interfaces, &count),
                          std::string(reinterpret_cast<char*>(interfaces[0].pInterfaceName)),
                          interfaces[0].pFunctionList}),
              std::tuple(CKR_OK, std::string("PKCS 11"), f));
    unsigned char name[] = "PKCS 11", other[] = "Vendor";
    CK_VERSION v240{2, 40}, v300{3, 0};
    CK_INTERFACE_PTR found = nullptr;
    ASSERT_EQ(get(nullptr, nullptr, &found, 0), CKR_OK);
    EXPECT_EQ(found->pFunctionList, f);
    // Refused: version 3.0, another name, the fork-safe flag, no count.
    EXPECT_EQ((std::vector<CK_RV>{get(name, &v240, &found, 0), get(name, &v300, &found, 0),
                                  get(other, nullptr, &found, 0), get(name, nullptr, &found, 1),
                                  list(interfaces, nullptr)}),
              (std::vector<CK_RV>{CKR_OK, CKR_ARGUMENTS_BAD, CKR_ARGUMENTS_BAD, CKR_ARGUMENTS_BAD,
                                  CKR_ARGUMENTS_BAD}));

    // Every mechanism is the card's (CKF_HW) for the key sizes it takes.
    CK_MECHANISM_TYPE types[12];
    count = 11;
    EXPECT_EQ(f->C_GetMechanismList(0, types, &count), CKR_BUFFER_TOO_SMALL);
    ASSERT_EQ(f->C_GetMechanismList(0, types, &count), CKR_OK);
    CK_MECHANISM_INFO info;
    for (const CK_MECHANISM_TYPE type : types) {
        ASSERT_EQ(f->C_GetMechanismInfo(0, type, &info), CKR_OK);
        EXPECT_EQ(std::make_tuple(info.flags & CKF_HW, info.ulMinKeySize, info.ulMaxKeySize),
                  std::make_tuple(CKF_HW, 1024ul, 2048ul));
    }
    EXPECT_EQ(f->C_GetMechanismInfo(0, CKM_SHA256, &info), CKR_MECHANISM_INVALID);
}

TEST_F(ModuleTest, InitialisationFollowsTheLockingRules) {
    EXPECT_EQ(f->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
    ASSERT_EQ(f->C_Finalize(nullptr), CKR_OK);
    CK_SLOT_ID slot;
    EXPECT_EQ(f->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);

    auto createMutex = [](CK_VOID_PTR_PTR) -> CK_RV { return CKR_OK; };
    auto mutexOp = [](CK_VOID_PTR) -> CK_RV { return CKR_OK; };
    CK_C_INITIALIZE_ARGS args{createMutex, mutexOp, mutexOp, mutexOp, 0, nullptr};
    EXPECT_EQ(f->C_Initialize(&args), CKR_CANT_LOCK) << "only the system's locks";
    args.flags = CKF_OS_LOCKING_OK;
    EXPECT_EQ(f->C_Initialize(&args), CKR_OK);
}

TEST_P(ProfiledModuleTest, PrivateObjectsShowOnlyToTheLoggedInUser) {
    const CK_SESSION_HANDLE session = open(CKF_SERIAL_SESSION);
    CK_OBJECT_CLASS privateKeyClass = CKO_PRIVATE_KEY;
    unsigned char keyId[] = {0x45, 0x01}, otherId[] = {0x45, 0x02};
    const std::vector<CK_ATTRIBUTE> privateKeys{{CKA_CLASS, &privateKeyClass, sizeof(CK_ULONG)}},
        publicKeyById{{CKA_CLASS, &publicKeyClass, sizeof(CK_ULONG)}, {CKA_ID, keyId, 2}};
    const auto publicHandles = find(session, publicKeyById);
    // Before login: no private key, the public key, it and the certificate.
    EXPECT_EQ(std::make_tuple(find(session, privateKeys).size(), publicHandles.size(),
                              find(session, {}).size()),
              std::make_tuple(0u, 1u, 2u));

    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    CK_SESSION_INFO info;
    const auto found = find(session, privateKeys);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ((std::tuple{f->C_GetSessionInfo(session, &info), info.state, find(session, {}).size(),
                          find(session, {{CKA_ID, otherId, sizeof otherId}}).size()}),
              std::make_tuple(CKR_OK, CKS_RO_USER_FUNCTIONS, 3u, 0u));

    ASSERT_EQ(f->C_Logout(session), CKR_OK);
    CK_ULONG bits;
    CK_ATTRIBUTE query{CKA_MODULUS_BITS, &bits, sizeof bits};
    EXPECT_EQ(f->C_GetAttributeValue(session, found[0], &query, 1), CKR_OBJECT_HANDLE_INVALID);
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    EXPECT_EQ(f->C_GetAttributeValue(session, found[0], &query, 1), CKR_OBJECT_HANDLE_INVALID)
        << "a private object's handle ends with the login it was found in";
    EXPECT_EQ(find(session, publicKeyById), publicHandles) << "public objects keep theirs";
}

// One call answers every entry (a length, a value, a sensitive, an unknown and a too small one)
// and names the failures. A self-signed certificate has the same subject and issuer; its serial is
// the INTEGER after the version (A0 03 02 01 02).
TEST_F(ModuleTest, AttributeValuesFollowTheSizeAndSensitivityRules) {
    const CK_SESSION_HANDLE session = userSession(CKF_SERIAL_SESSION);
    const CK_OBJECT_HANDLE key = privateKey(session);

    unsigned char modulus[256], tooSmall[255], exponent[8];
    CK_BBOOL extractable = CK_TRUE;
    std::vector<CK_ATTRIBUTE> query{{CKA_LABEL, nullptr, 0},
                                    {CKA_MODULUS, modulus, sizeof modulus},
                                    {CKA_PRIVATE_EXPONENT, exponent, sizeof exponent},
                                    {CKA_EXTRACTABLE, &extractable, sizeof extractable},
                                    {CKA_VALUE, nullptr, 0},
                                    {CKA_PUBLIC_EXPONENT, exponent, sizeof exponent}};
    const CK_RV rv = f->C_GetAttributeValue(session, key, query.data(), query.size());
    EXPECT_TRUE(rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID) << rv;
    EXPECT_EQ((std::vector<CK_ULONG>{query[0].ulValueLen, query[1].ulValueLen, query[2].ulValueLen,
                                     query[4].ulValueLen, query[5].ulValueLen}),
              (std::vector<CK_ULONG>{std::strlen("Signing key"), 256, CK_UNAVAILABLE_INFORMATION,
                                     CK_UNAVAILABLE_INFORMATION, 3}));
    EXPECT_EQ(std::tuple(modulus[0] >= 0x80, extractable, Bytes(exponent, exponent + 3)),
              std::tuple(true, CK_FALSE, Bytes{0x01, 0x00, 0x01})); // 2048 bits fill 256 bytes

    CK_ATTRIBUTE shortModulus{CKA_MODULUS, tooSmall, sizeof tooSmall};
    EXPECT_EQ(f->C_GetAttributeValue(session, key, &shortModulus, 1), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(shortModulus.ulValueLen, CK_UNAVAILABLE_INFORMATION);

    const auto answer = values(session, only(session, CKO_CERTIFICATE),
                               {CKA_VALUE, CKA_SUBJECT, CKA_ISSUER, CKA_SERIAL_NUMBER, CKA_ID});
    const Bytes der = certificateDer(), name = answer[1];
    const auto inDer = [&der](Bytes part) {
        return std::search(der.begin(), der.end(), part.begin(), part.end()) != der.end();
    };
    Bytes serial{0xA0, 0x03, 0x02, 0x01, 0x02};
    serial.insert(serial.end(), answer[3].begin(), answer[3].end());
    EXPECT_EQ(answer, (std::vector<Bytes>{der, name, name, answer[3], {0x45, 0x01}}));
    EXPECT_TRUE(name.size() > 2 && inDer(name) && answer[3].at(0) == 0x02 && inDer(serial));
}

// The SO is the user PIN's unblocking PIN: the card's SO PIN given at an SO login costs a try of
// the PUK alone. Three wrong PINs take the user PIN from all tries through the last one to blocked;
// the PUK gives it a new value and its tries back. A card of the iso profile tells no tries (no
// flags) and answers the blocking try as blocked.
TEST_P(ProfiledModuleTest, WrongPinsShowInTheFlagsUntilThePukSetsANewOne) {
    const bool iso = GetParam() == vcard::CardProfile::Iso;
    const auto told = [iso](CK_FLAGS flags) { return iso ? 0 : flags; };
    const CK_SESSION_HANDLE session = open();
    const CK_FLAGS counts = CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED;
    const CK_FLAGS so = CKF_SO_PIN_COUNT_LOW | CKF_SO_PIN_FINAL_TRY | CKF_SO_PIN_LOCKED;
    EXPECT_EQ(tokenFlags() & (counts | so), 0u);
    EXPECT_EQ(login(session, CKU_SO, "87654321"), CKR_PIN_INCORRECT);
    EXPECT_EQ(tokenFlags() & (counts | so), told(CKF_SO_PIN_COUNT_LOW));
    EXPECT_EQ(login(session, CKU_USER, "654321"), CKR_PIN_INCORRECT);
    EXPECT_EQ(tokenFlags() & counts, told(CKF_USER_PIN_COUNT_LOW));
    EXPECT_EQ(login(session, CKU_USER, "654321"), CKR_PIN_INCORRECT);
    EXPECT_EQ(tokenFlags() & counts, told(CKF_USER_PIN_FINAL_TRY));
    EXPECT_EQ(login(session, CKU_USER, "654321"), iso ? CKR_PIN_LOCKED : CKR_PIN_INCORRECT);
    EXPECT_EQ(tokenFlags() & counts, told(CKF_USER_PIN_LOCKED));
    EXPECT_EQ(login(session, CKU_USER, userPin), CKR_PIN_LOCKED);
    EXPECT_EQ(login(session, CKU_USER, "123"), CKR_PIN_LEN_RANGE);
    EXPECT_EQ(login(session, CKU_USER, "12ab"), CKR_PIN_INVALID) << "refused before the card";

    std::string newPin = "24680";
    EXPECT_EQ(f->C_InitPIN(session, utf8(newPin), newPin.size()), CKR_USER_NOT_LOGGED_IN);
    ASSERT_EQ(login(session, CKU_SO, puk), CKR_OK);
    EXPECT_EQ(login(session, CKU_USER, userPin), CKR_USER_ANOTHER_ALREADY_LOGGED_IN);
    ASSERT_EQ(f->C_InitPIN(session, utf8(newPin), newPin.size()), CKR_OK);
    ASSERT_EQ(f->C_Logout(session), CKR_OK);
    EXPECT_EQ(tokenFlags() & (counts | so), 0u) << "the right PUK gave both their tries back";
    EXPECT_EQ(login(session, CKU_USER, userPin), CKR_PIN_INCORRECT);
    EXPECT_EQ(login(session, CKU_USER, newPin), CKR_OK);
}

TEST_F(ModuleTest, SetPinNeedsAReadWriteSessionAndTheOldValue) {
    const CK_SESSION_HANDLE readOnly = open(CKF_SERIAL_SESSION);
    std::string oldPin = userPin, newPin = "86420", wrong = "999999";
    auto setPin = [&](CK_SESSION_HANDLE session, std::string& from, std::string& to) {
        return f->C_SetPIN(session, utf8(from), from.size(), utf8(to), to.size());
    };
    EXPECT_EQ(setPin(readOnly, oldPin, newPin), CKR_SESSION_READ_ONLY);
    EXPECT_EQ(login(readOnly, CKU_SO, puk), CKR_SESSION_READ_ONLY_EXISTS);
    const CK_SESSION_HANDLE readWrite = open();
    EXPECT_EQ(setPin(readWrite, wrong, newPin), CKR_PIN_INCORRECT);
    EXPECT_EQ(tokenFlags() & CKF_USER_PIN_COUNT_LOW, CKF_USER_PIN_COUNT_LOW);
    EXPECT_EQ(setPin(readWrite, oldPin, newPin), CKR_OK);
    EXPECT_EQ(tokenFlags() & CKF_USER_PIN_COUNT_LOW, 0u) << "the right PIN gave the try back";

    CK_SESSION_INFO info;
    EXPECT_EQ((std::pair{f->C_GetSessionInfo(readWrite, &info), info.state}),
              std::make_pair(CKR_OK, CKS_RW_PUBLIC_SESSION))
        << "a change is no login";
    EXPECT_EQ(login(readWrite, CKU_USER, newPin), CKR_OK);
}

// A card that goes away takes its token and sessions with it, and C_WaitForSlotEvent tells once,
// and again when it is back.
TEST_F(ModuleTest, ARemovedCardEndsItsSessions) {
    const CK_SESSION_HANDLE session = open();
    const auto event = [this] {
        CK_SLOT_ID slot = 99;
        const CK_RV rv = f->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr);
        return std::make_pair(rv, rv == CKR_OK ? slot : 99);
    };
    const auto none = std::make_pair(CKR_NO_EVENT, CK_SLOT_ID(99));
    EXPECT_EQ(event(), none);
    fs::rename(image_, image_.string() + ".away");
    EXPECT_EQ(event(), std::make_pair(CKR_OK, CK_SLOT_ID(0)));
    EXPECT_EQ(event(), none) << "once";
    CK_ULONG count = 5;
    EXPECT_EQ((std::tuple{f->C_GetSlotList(CK_TRUE, nullptr, &count), count,
                          login(session, CKU_USER, userPin), f->C_CloseSession(session)}),
              std::make_tuple(CKR_OK, 0ul, CKR_DEVICE_REMOVED, CKR_SESSION_HANDLE_INVALID));
    fs::rename(image_.string() + ".away", image_);
    EXPECT_EQ(event(), std::make_pair(CKR_OK, CK_SLOT_ID(0))) << "the card is back";
    EXPECT_EQ(login(open(), CKU_USER, userPin), CKR_OK);
}

// Signed in three parts by the key's private half in software, verified by the module with the key
// from the card: a flipped bit is invalid, one byte short or long is out of range (a value not
// below the modulus is the verifier's: MalformedSignature.DoesNotVerify). CKM_RSA_PKCS enciphers
// k-11 bytes, not k-10; the card deciphers what came out.
TEST_P(ProfiledModuleTest, WhatTheModuleVerifiesAndEnciphersAgreesWithTheKeysPrivateHalf) {
    const CK_SESSION_HANDLE session = open(CKF_SERIAL_SESSION);
    const CK_OBJECT_HANDLE key = publicKey(session);
    Bytes message(1000, 0x5A), signature(256);
    CryptoPP::AutoSeededRandomPool rng;
    CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Signer(softwareKey())
        .SignMessage(rng, message.data(), message.size(), signature.data());
    Bytes flipped = signature, longer = signature;
    flipped[100] ^= 0x01;
    longer.insert(longer.begin(), 0x00);

    CK_MECHANISM sha256{CKM_SHA256_RSA_PKCS, nullptr, 0};
    const std::pair<Bytes, CK_RV> presented[] = {
        {signature, CKR_OK},
        {flipped, CKR_SIGNATURE_INVALID},
        {Bytes(signature.begin() + 1, signature.end()), CKR_SIGNATURE_LEN_RANGE},
        {longer, CKR_SIGNATURE_LEN_RANGE},
    };
    for (const auto& [value, verdict] : presented) {
        SCOPED_TRACE(testing::Message() << value.size() << " bytes, expecting " << verdict);
        ASSERT_EQ(f->C_VerifyInit(session, &sha256, key), CKR_OK);
        for (std::size_t at = 0; at < message.size(); at += 400) {
            const CK_ULONG part = std::min<std::size_t>(400, message.size() - at);
            ASSERT_EQ(f->C_VerifyUpdate(session, message.data() + at, part), CKR_OK);
        }
        EXPECT_EQ(f->C_Verify(session, message.data(), 1, signature.data(), signature.size()),
                  CKR_OPERATION_ACTIVE)
            << "parts given: only C_VerifyFinal ends it";
        EXPECT_EQ(f->C_VerifyFinal(session, Bytes(value).data(), value.size()), verdict);
        EXPECT_EQ(f->C_VerifyFinal(session, signature.data(), signature.size()),
                  CKR_OPERATION_NOT_INITIALIZED)
            << "a verdict ends the operation";
    }

    CK_MECHANISM rsa{CKM_RSA_PKCS, nullptr, 0};
    const Bytes plain(245, 0x22), cipher = answer(session, CKF_ENCRYPT, CKM_RSA_PKCS, key, plain);
    Bytes recovered;
    EXPECT_EQ(std::pair(cipher.size(), run(session, CKF_ENCRYPT, rsa, Bytes(246), recovered)),
              std::pair(std::size_t(256), CKR_DATA_LEN_RANGE));
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    EXPECT_EQ(run(session, CKF_DECRYPT, rsa, Bytes(cipher.begin() + 1, cipher.end()), recovered),
              CKR_ENCRYPTED_DATA_LEN_RANGE);
    EXPECT_EQ(answer(session, CKF_DECRYPT, CKM_RSA_PKCS, privateKey(session), cipher), plain);
}

// The DigestInfo of the message's hash, as a caller of CKM_RSA_PKCS builds it.
template <class Hash> Bytes digestInfo(const Bytes& message) {
    using Prefix = CryptoPP::PKCS_DigestDecoration<Hash>;
    Bytes info(Prefix::decoration, Prefix::decoration + Prefix::length);
    info.resize(info.size() + Hash::DIGESTSIZE);
    Hash().CalculateDigest(info.data() + Prefix::length, message.data(), message.size());
    return info;
}

// Each hash mechanism gives one signature whole, in parts and after a length query (PKCS#1 v1.5 is
// deterministic), the block of the message's DigestInfo under the public key; CKM_RSA_PKCS over the
// same DigestInfo gives it too.
TEST_P(ProfiledModuleTest, SignaturesAreTheSameWholeOrInPartsForEveryMechanism) {
    const CK_SESSION_HANDLE session = open(CKF_SERIAL_SESSION);
    CK_MECHANISM sha256{CKM_SHA256_RSA_PKCS, nullptr, 0}, rsa{CKM_RSA_PKCS, nullptr, 0};
    EXPECT_EQ(f->C_SignInit(session, &sha256, publicKey(session)), CKR_USER_NOT_LOGGED_IN);
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    const CK_OBJECT_HANDLE key = privateKey(session);
    EXPECT_EQ(f->C_SignInit(session, &sha256, publicKey(session)), CKR_KEY_TYPE_INCONSISTENT);

    Bytes message(64 * 3, 0x33);
    const std::pair<CK_MECHANISM_TYPE, Bytes (*)(const Bytes&)> mechanisms[] = {
        {CKM_SHA1_RSA_PKCS, digestInfo<CryptoPP::SHA1>},
        {CKM_SHA224_RSA_PKCS, digestInfo<CryptoPP::SHA224>},
        {CKM_SHA256_RSA_PKCS, digestInfo<CryptoPP::SHA256>},
        {CKM_SHA384_RSA_PKCS, digestInfo<CryptoPP::SHA384>},
        {CKM_SHA512_RSA_PKCS, digestInfo<CryptoPP::SHA512>}};
    for (const auto& [type, info] : mechanisms) {
        SCOPED_TRACE(type);
        const Bytes whole = answer(session, CKF_SIGN, type, key, message);
        EXPECT_EQ(recovered(whole), pkcs1Block(info(message)));
        CK_MECHANISM mechanism{type, nullptr, 0};
        ASSERT_EQ(f->C_SignInit(session, &mechanism, key), CKR_OK);
        for (std::size_t at = 0; at < message.size(); at += 64) {
            ASSERT_EQ(f->C_SignUpdate(session, &message[at], 64), CKR_OK);
        }
        Bytes inParts(256);
        CK_ULONG length = inParts.size();
        EXPECT_EQ(f->C_Sign(session, &message[0], 1, inParts.data(), &length),
                  CKR_OPERATION_ACTIVE);
        ASSERT_EQ(f->C_SignFinal(session, inParts.data(), &length), CKR_OK);
        EXPECT_EQ(inParts, whole);
        EXPECT_EQ(answer(session, CKF_SIGN, CKM_RSA_PKCS, key, info(message)), whole);
    }

    // CKM_RSA_PKCS signs k-11 bytes, not k-10, whole or in parts.
    Bytes longest(245, 0x44), tooLong(246, 0x44), signature;
    EXPECT_EQ(recovered(answer(session, CKF_SIGN, CKM_RSA_PKCS, key, longest)),
              pkcs1Block(longest));
    EXPECT_EQ(run(session, CKF_SIGN, rsa, tooLong, signature, key), CKR_DATA_LEN_RANGE);
    ASSERT_EQ(f->C_SignInit(session, &rsa, key), CKR_OK);
    ASSERT_EQ(f->C_SignUpdate(session, longest.data(), longest.size()), CKR_OK);
    EXPECT_EQ(f->C_SignUpdate(session, tooLong.data(), 1), CKR_DATA_LEN_RANGE);
}

using ThreadedModuleTest = ModuleTest;

// Two threads, each on a token of its own, go through every family of entry points at once, each
// result checked, while a third opens and closes sessions and lists slots without pause. Under
// ThreadSanitizer (make pkcs11-tsan) an entry point that does not take the module's lock races with
// the writes to the module's sessions and slots.
TEST_F(ThreadedModuleTest, TwoThreadsUseEveryEntryPointAtOnce) {
    const fs::path second = directory_ / "second.json";
    fs::copy_file(image_, second, fs::copy_options::overwrite_existing);
    ::setenv("P15KIT_PKCS11_CARD", (image_.string() + ":" + second.string()).c_str(), 1);
    restart();
    // One round of every family of entry points on the token in `slot`.
    const auto useEveryFamily = [this](CK_SLOT_ID slot, Bytes message) {
        CK_ULONG count = 0;
        CK_SLOT_INFO slotInfo;
        CK_TOKEN_INFO tokenInfo;
        CK_MECHANISM_INFO mechanismInfo;
        CK_SESSION_INFO info;
        EXPECT_EQ((std::vector<CK_RV>{f->C_GetSlotList(CK_TRUE, nullptr, &count),
                                      f->C_GetSlotInfo(slot, &slotInfo),
                                      f->C_GetTokenInfo(slot, &tokenInfo),
                                      f->C_GetMechanismInfo(slot, CKM_RSA_PKCS, &mechanismInfo)}),
                  std::vector<CK_RV>(4, CKR_OK));
        EXPECT_EQ(count, 2u);
        KeyUser user(f, slot, "Signing key"); // signs and verifies, enciphers and deciphers
        const CK_SESSION_HANDLE session = user.session;
        EXPECT_EQ((std::pair{f->C_GetSessionInfo(session, &info), info.slotID}),
                  std::pair(CKR_OK, slot));
        EXPECT_EQ(values(session, user.publicHalf, {CKA_MODULUS})[0].size(), 256u);
        EXPECT_EQ(std::pair(user.use(true, "signed"), user.use(false, "deciphered")),
                  std::pair(CKR_OK, CKR_OK));
        EXPECT_EQ(answer(session, CKF_SIGN, CKM_SHA256_RSA_PKCS, user.privateHalf, message).size(),
                  256u);
        CK_MECHANISM sha256{CKM_SHA256_RSA_PKCS, nullptr, 0};
        CK_OBJECT_HANDLE created = 0;
        EXPECT_EQ(
            (std::vector<CK_RV>{
                create(session,
                       {{CKA_CLASS, &dataClass, sizeof dataClass}, {CKA_VALUE, message.data(), 1}},
                       &created),
                f->C_DigestInit(session, &sha256), f->C_GenerateRandom(session, message.data(), 16),
                set(session, created, CKA_LABEL, {'n', 'o'}), f->C_DestroyObject(session, created),
                f->C_Logout(session), f->C_CloseSession(session)}),
            (std::vector<CK_RV>{CKR_OK, CKR_FUNCTION_NOT_SUPPORTED, CKR_OK, CKR_OK, CKR_OK, CKR_OK,
                                CKR_OK}));
    };
    const auto rounds = [&](CK_SLOT_ID slot) {
        for (int round = 0; round < 6; ++round) {
            useEveryFamily(slot, Bytes(100 + round, static_cast<unsigned char>(slot)));
        }
    };
    std::atomic<bool> done{false};
    std::thread churn([&] {
        for (CK_SESSION_HANDLE session = 0; !done; f->C_CloseSession(session)) {
            CK_ULONG count = 0;
            EXPECT_EQ(f->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
            ASSERT_EQ(f->C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
        }
    });
    std::thread one(rounds, 0), two(rounds, 1);
    one.join();
    two.join();
    done = true;
    churn.join();
    fs::remove(second);
}

// A private data object and a certificate stored through the module are on the card for the next
// process, with the label and id given them after, and gone after C_DestroyObject. The public key
// shown from the certificate is read-only and follows its certificate's id, and goes with it.
TEST_F(ModuleTest, DataObjectsAndCertificatesAreStoredAndDestroyed) {
    const CK_SESSION_HANDLE session = userSession();
    CK_OBJECT_CLASS secretClass = CKO_SECRET_KEY;
    CK_CERTIFICATE_TYPE x509 = CKC_X_509;
    CK_BBOOL yes = CK_TRUE;
    char label[] = "note", value[] = "hello";
    Bytes der = certificateDer(), id{0x45, 0x09}, no{CK_FALSE};
    std::vector<CK_ATTRIBUTE> data{{CKA_CLASS, &dataClass, sizeof dataClass},
                                   {CKA_LABEL, label, sizeof label - 1},
                                   {CKA_PRIVATE, &yes, sizeof yes},
                                   {CKA_VALUE, value, sizeof value - 1}};
    std::vector<CK_ATTRIBUTE> certificate{{CKA_CLASS, &certificateClass, sizeof certificateClass},
                                          {CKA_CERTIFICATE_TYPE, &x509, sizeof x509},
                                          {CKA_ID, id.data(), id.size()},
                                          {CKA_VALUE, der.data(), der.size()}};
    CK_OBJECT_HANDLE note = 0, copy = 0;
    EXPECT_EQ(create(session, {data.begin(), data.begin() + 3}), CKR_TEMPLATE_INCOMPLETE);
    EXPECT_EQ(create(session, {{CKA_CLASS, &secretClass, sizeof secretClass}}),
              CKR_TEMPLATE_INCONSISTENT);
    EXPECT_EQ(create(open(CKF_SERIAL_SESSION), data), CKR_SESSION_READ_ONLY);
    ASSERT_EQ(create(session, data, &note), CKR_OK);
    ASSERT_EQ(create(session, certificate, &copy), CKR_OK);
    EXPECT_EQ(set(session, note, CKA_ID, id), CKR_ATTRIBUTE_TYPE_INVALID);
    ASSERT_EQ(set(session, note, CKA_LABEL, {'m', 'e', 'm', 'o'}), CKR_OK);
    std::memcpy(label, "memo", 4);
    const CK_OBJECT_HANDLE derived = only(session, CKO_PUBLIC_KEY, id);
    const std::vector<CK_ATTRIBUTE_TYPE> shown{CKA_WRAP, CKA_DERIVE, CKA_VERIFY_RECOVER,
                                               CKA_MODULUS, CKA_PUBLIC_EXPONENT};
    auto cardKey = values(session, only(session, CKO_PUBLIC_KEY, {0x45, 0x01}),
                          {CKA_MODULUS, CKA_PUBLIC_EXPONENT});
    cardKey.insert(cardKey.begin(), {no, no, no});
    EXPECT_EQ(values(session, derived, shown), cardKey);
    EXPECT_EQ(set(session, derived, CKA_LABEL, {'x'}), CKR_ACTION_PROHIBITED);
    EXPECT_EQ(set(session, copy, CKA_ID, {0x45, 0x01}), CKR_ATTRIBUTE_VALUE_INVALID);
    id[1] = 0x0A;
    ASSERT_EQ(set(session, copy, CKA_ID, id), CKR_OK);
    EXPECT_EQ(values(session, derived, {CKA_ID})[0], id);

    restart();
    const CK_SESSION_HANDLE later = open();
    std::vector<CK_ATTRIBUTE> byLabel{{CKA_CLASS, &dataClass, sizeof dataClass},
                                      {CKA_LABEL, label, sizeof label - 1}};
    EXPECT_TRUE(find(later, byLabel).empty()) << "private until login";
    const std::vector<CK_ATTRIBUTE> copyById(certificate.begin(), certificate.begin() + 3);
    const auto copies = find(later, copyById);
    ASSERT_EQ(copies.size(), 1u) << "a certificate is public";
    EXPECT_EQ(values(later, copies[0], {CKA_VALUE})[0], der);
    ASSERT_EQ(login(later, CKU_USER, userPin), CKR_OK);
    const CK_OBJECT_HANDLE memo = only(later, CKO_DATA, {'m', 'e', 'm', 'o'}, CKA_LABEL);
    EXPECT_EQ(values(later, memo, {CKA_VALUE})[0], (Bytes{'h', 'e', 'l', 'l', 'o'}));
    EXPECT_EQ((std::vector<CK_RV>{f->C_DestroyObject(later, memo), f->C_DestroyObject(later, memo),
                                  f->C_DestroyObject(later, copies[0])}),
              (std::vector<CK_RV>{CKR_OK, CKR_OBJECT_HANDLE_INVALID, CKR_OK}));
    EXPECT_TRUE(find(later, byLabel).empty());
    EXPECT_TRUE(find(later, {copyById[2]}).empty()) << "the certificate and its public key";
    EXPECT_EQ(find(later, {copyById[0]}).size(), 1u) << "the card's own certificate stays";

    restart();
    EXPECT_TRUE(find(open(CKF_SERIAL_SESSION), copyById).empty()) << "gone from the card";
}

// Entries as real cards write them (a vendor component in the key's entry, an entry that does not
// decode, an EC key, a broken EF(CDF)) do not take the token down: the sound key is found and
// signs. With EF(ODF) broken after its first entry the plugin lists no kind: the search answers
// nothing.
TEST_F(ModuleTest, OddEntriesLeaveTheSoundKeyUsable) {
    p15test::addOddEntries(image_.string(), true);
    const CK_SESSION_HANDLE session = userSession();
    EXPECT_TRUE(find(session, {{CKA_CLASS, &certificateClass, sizeof certificateClass}}).empty());
    const Bytes message{'o', 'd', 'd'};
    EXPECT_EQ(
        recovered(answer(session, CKF_SIGN, CKM_SHA256_RSA_PKCS, privateKey(session), message)),
        pkcs1Block(digestInfo<CryptoPP::SHA256>(message)));

    vcard::CardState state = vcard::CardImage::load(image_.string());
    state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x50, 0x31}, true).content.at(9) = 0xFF;
    vcard::CardImage::store(image_.string(), vcard::CardImage::serialise(state));
    restart();
    EXPECT_TRUE(find(open(), {}).empty());
}

INSTANTIATE_TEST_SUITE_P(Profiles, ProfiledModuleTest, bothProfiles, profileParamName);

} // namespace

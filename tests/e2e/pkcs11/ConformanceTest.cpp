// Return values, mechanism flags, interfaces and the SO as PKCS#11 states
// them, through the real stack (ModuleFixture.hpp).
#include "ModuleFixture.hpp"

#include "pkcs11/Interfaces.hpp"
#include <map>
#include <nlohmann/json.hpp>

namespace {

using namespace p15test;

// A cryptogram of the card's key whose block has signature padding (type 1)
// instead of encryption padding.
TEST_F(ModuleTest, ACryptogramWithWrongPaddingIsInvalidEncryptedData) {
    const CK_SESSION_HANDLE session = open(CKF_SERIAL_SESSION);
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    Bytes block(256, 0xFF), cryptogram(256), plain(256);
    block[0] = 0x00, block[1] = 0x01, block[200] = 0x00;
    const CryptoPP::RSA::PublicKey key(softwareKey());
    key.ApplyFunction(CryptoPP::Integer(block.data(), block.size()))
        .Encode(cryptogram.data(), cryptogram.size());
    CK_MECHANISM rsa{CKM_RSA_PKCS, nullptr, 0};
    ASSERT_EQ(f->C_DecryptInit(session, &rsa, privateKey(session)), CKR_OK);
    CK_ULONG length = plain.size();
    EXPECT_EQ(f->C_Decrypt(session, cryptogram.data(), cryptogram.size(), plain.data(), &length),
              CKR_ENCRYPTED_DATA_INVALID);
}

// Data objects until EF(DODF) is full: the one that does not fit is
// CKR_DEVICE_MEMORY and leaves the others as they were.
TEST_F(ModuleTest, AFullDirectoryFileIsDeviceMemory) {
    const CK_SESSION_HANDLE session = open();
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    CK_OBJECT_CLASS dataClass = CKO_DATA;
    std::string text(200, 'x');
    std::vector<CK_ATTRIBUTE> data{{CKA_CLASS, &dataClass, sizeof dataClass},
                                   {CKA_LABEL, text.data(), text.size()},
                                   {CKA_APPLICATION, text.data(), text.size()},
                                   {CKA_VALUE, text.data(), 1}};
    CK_OBJECT_HANDLE object;
    std::size_t stored = 0;
    while (stored < 40 && f->C_CreateObject(session, data.data(), data.size(), &object) == CKR_OK) {
        ++stored;
    }
    EXPECT_EQ(f->C_CreateObject(session, data.data(), data.size(), &object), CKR_DEVICE_MEMORY);
    EXPECT_EQ(find(open(), {{CKA_CLASS, &dataClass, sizeof dataClass}}).size(), stored);
}

TEST_F(ModuleTest, MechanismsTheCardPerformsAreHardware) {
    CK_MECHANISM_TYPE types[7];
    CK_ULONG count = 6;
    EXPECT_EQ(f->C_GetMechanismList(0, types, &count), CKR_BUFFER_TOO_SMALL);
    ASSERT_EQ(f->C_GetMechanismList(0, types, &count), CKR_OK);
    CK_MECHANISM_INFO info;
    for (const CK_MECHANISM_TYPE type : types) {
        ASSERT_EQ(f->C_GetMechanismInfo(0, type, &info), CKR_OK);
        EXPECT_TRUE(info.flags & CKF_HW) << type;
        EXPECT_EQ(std::make_pair(info.ulMinKeySize, info.ulMaxKeySize),
                  std::make_pair(1024ul, 2048ul));
    }
    EXPECT_EQ(f->C_GetMechanismInfo(0, CKM_SHA256, &info), CKR_MECHANISM_INVALID);
}

// A 3.0 application finds the v2.40 function list as the interface
// "PKCS 11", by name or as the default.
TEST_F(ModuleTest, TheStandardInterfaceIsTheFunctionList) {
    const auto list =
        reinterpret_cast<CK_C_GetInterfaceList>(::dlsym(library_, "C_GetInterfaceList"));
    const auto get = reinterpret_cast<CK_C_GetInterface>(::dlsym(library_, "C_GetInterface"));
    ASSERT_TRUE(list && get);
    CK_INTERFACE interfaces[1];
    CK_ULONG count = 0;
    EXPECT_EQ(list(interfaces, &count), CKR_BUFFER_TOO_SMALL);
    ASSERT_EQ(count, 1u);
    ASSERT_EQ(list(interfaces, &count), CKR_OK);
    EXPECT_STREQ(reinterpret_cast<char*>(interfaces[0].pInterfaceName), "PKCS 11");
    EXPECT_EQ(interfaces[0].pFunctionList, f);
    unsigned char name[] = "PKCS 11", other[] = "Vendor";
    CK_VERSION v240{2, 40}, v300{3, 0};
    CK_INTERFACE_PTR found = nullptr;
    ASSERT_EQ(get(nullptr, nullptr, &found, 0), CKR_OK);
    EXPECT_EQ(found->pFunctionList, f);
    EXPECT_EQ(get(name, &v240, &found, 0), CKR_OK);
    EXPECT_EQ(get(name, &v300, &found, 0), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(get(other, nullptr, &found, 0), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(get(name, nullptr, &found, 1 /* fork-safe */), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(list(interfaces, nullptr), CKR_ARGUMENTS_BAD);
}

// The SO is the user PIN's unblocking PIN: the card's SO PIN given at an SO
// login costs a try of the PUK, not of the SO PIN or the user PIN.
TEST_F(ModuleTest, TheSoIsThePinThatUnblocksTheUserPin) {
    const CK_SESSION_HANDLE session = open();
    const CK_FLAGS so = CKF_SO_PIN_COUNT_LOW | CKF_SO_PIN_FINAL_TRY | CKF_SO_PIN_LOCKED;
    EXPECT_EQ(tokenFlags() & so, 0u);
    EXPECT_EQ(login(session, CKU_SO, "87654321"), CKR_PIN_INCORRECT);
    EXPECT_EQ(tokenFlags() & (so | CKF_USER_PIN_COUNT_LOW), CKF_SO_PIN_COUNT_LOW);
    std::map<int, int> triesLeft; // of each PIN of the card image, by reference
    const auto card = nlohmann::json::parse(std::ifstream(image_));
    for (const auto& pin : card.at("pins")) {
        triesLeft[pin.at("reference")] = pin.at("triesLeft");
    }
    EXPECT_EQ(triesLeft, (std::map<int, int>{{1, 3}, {2, 4}, {3, 3}}));
    ASSERT_EQ(login(session, CKU_SO, puk), CKR_OK);
    EXPECT_EQ(tokenFlags() & so, 0u) << "the right PUK gave its try back";
}

} // namespace

// Data objects with an object identifier, written by the module and by
// p15tool and read by the other, and a token whose EF(ODF) does not decode.
#include "ModuleFixture.hpp"
#include "vcard/CardImage.hpp"

namespace {

using namespace p15test;

// The identifier is the opaque object's applicationOID; the module finds
// p15tool's by its DER, and p15tool shows the module's dotted, one of 201
// octets too (a DER length in the long form).
TEST_F(ModuleTest, DataObjectIdentifiersAreSharedWithP15tool) {
    const std::string tool = std::string(P15TOOL_PATH) + " --card " + image_.string() + " ";
    std::ofstream(directory_ / "value") << "v";
    ::setenv("P15_TEST_PIN", userPin.c_str(), 1);
    run(tool + "data write " + (directory_ / "value").string() +
        " --label tool --oid 1.3.6.1.4.1.311 --pin-env P15_TEST_PIN");
    const CK_SESSION_HANDLE session = open();
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    Bytes oid{0x06, 0x07, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37};
    EXPECT_EQ(find(session, {{CKA_OBJECT_ID, oid.data(), oid.size()}}).size(), 1u);

    CK_OBJECT_CLASS dataClass = CKO_DATA;
    Bytes longOid{0x06, 0x81, 0xC9, 0x2A};
    longOid.resize(longOid.size() + 200, 0x01);
    CK_ATTRIBUTE data[] = {{CKA_CLASS, &dataClass, sizeof dataClass},
                           {CKA_VALUE, oid.data(), 1},
                           {CKA_OBJECT_ID, longOid.data(), longOid.size()}};
    CK_OBJECT_HANDLE created = 0;
    ASSERT_EQ(f->C_CreateObject(session, data, 3, &created), CKR_OK);
    ASSERT_EQ(f->C_CreateObject(session, data, 2, &created), CKR_OK); // without one
    // Another tag, no arc, lengths short, long, indefinite and not minimal,
    // an arc cut short, one with a leading 80, one of 64 bits.
    for (Bytes bad :
         {Bytes{0x04, 0x01, 0x2A}, Bytes{0x06, 0x00}, Bytes{0x06, 0x02, 0x2A},
          Bytes{0x06, 0x01, 0x2A, 0x03}, Bytes{0x06, 0x80, 0x2A}, Bytes{0x06, 0x81, 0x01, 0x2A},
          Bytes{0x06, 0x01, 0x82}, Bytes{0x06, 0x03, 0x2A, 0x80, 0x01},
          Bytes{0x06, 0x0B, 0x2A, 0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x00}}) {
        data[2] = {CKA_OBJECT_ID, bad.data(), bad.size()};
        EXPECT_EQ(f->C_CreateObject(session, data, 3, &created), CKR_ATTRIBUTE_VALUE_INVALID);
    }

    ASSERT_EQ(f->C_Finalize(nullptr), CKR_OK);
    std::string dotted = "1.2";
    for (int arc = 0; arc < 200; ++arc) {
        dotted += ".1";
    }
    EXPECT_NE(run(tool + "list").find("applicationOID  " + dotted + "\n"), std::string::npos);
    ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(find(open(), {{CKA_OBJECT_ID, longOid.data(), longOid.size()}}).size(), 1u);
    EXPECT_EQ(find(open(), {{CKA_OBJECT_ID, nullptr, 0}}).size(), 1u) << "an empty one";
}

// A broken directory file loses only its own entries (the plugin sees to
// that: OddEntriesLeaveTheSoundKeyUsable); with EF(ODF) broken after its
// first entry the plugin lists no kind, and the token answers a search with
// nothing instead of failing it.
TEST_F(ModuleTest, KindsThatDoNotDecodeAreLeftOutOfTheSearch) {
    vcard::CardState state = vcard::CardImage::load(image_.string());
    state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x50, 0x31}, true).content.at(9) = 0xFF;
    vcard::CardImage::store(image_.string(), vcard::CardImage::serialise(state));
    EXPECT_TRUE(find(open(), {}).empty());
}

} // namespace

// Objects as clients change and read them: labels and ids written into the
// card's entries, generated key pairs, certificates and their public keys.
#include "ModuleFixture.hpp"

#include "OddCard.hpp"
#include "vcard/CardImage.hpp"

namespace {

using namespace p15test;

const Bytes no{CK_FALSE}, yes{CK_TRUE}, empty;
Bytes text(const std::string& value) {
    return Bytes(value.begin(), value.end());
}
Bytes number(CK_ULONG value) {
    return Bytes(reinterpret_cast<unsigned char*>(&value),
                 reinterpret_cast<unsigned char*>(&value + 1));
}

class ObjectsTest : public ModuleTest {
protected:
    CK_RV set(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
              Bytes value) {
        CK_ATTRIBUTE entry{type, value.data(), value.size()};
        return f->C_SetAttributeValue(session, object, &entry, 1);
    }
    CK_OBJECT_HANDLE withId(CK_SESSION_HANDLE session, CK_OBJECT_CLASS objectClass, Bytes id) {
        const auto found = find(session, {{CKA_CLASS, &objectClass, sizeof objectClass},
                                          {CKA_ID, id.data(), id.size()}});
        EXPECT_EQ(found.size(), 1u);
        return found.empty() ? 0 : found[0];
    }
};

// A pair generated with an id is listed once and stays local on the card;
// the ids of the card's pair are refused.
TEST_F(ObjectsTest, GeneratedPairsAreListedOnceStayLocalAndKeepTheirIdsApart) {
    const CK_SESSION_HANDLE session = open();
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    CK_MECHANISM generate{CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
    CK_ULONG bits = 1024;
    Bytes id{0x45, 0x01};
    CK_ATTRIBUTE publicTemplate[] = {{CKA_MODULUS_BITS, &bits, sizeof bits},
                                     {CKA_ID, id.data(), 2}};
    CK_OBJECT_HANDLE pair[2] = {};
    const auto generatePair = [&] {
        return f->C_GenerateKeyPair(session, &generate, publicTemplate, 2, nullptr, 0, &pair[0],
                                    &pair[1]);
    };
    EXPECT_EQ(generatePair(), CKR_ATTRIBUTE_VALUE_INVALID);
    id[1] = 0x05;
    ASSERT_EQ(generatePair(), CKR_OK);
    EXPECT_EQ(find(session, {{CKA_ID, id.data(), 2}}).size(), 2u);
    EXPECT_EQ(set(session, pair[1], CKA_ID, {0x45, 0x01}), CKR_ATTRIBUTE_VALUE_INVALID);

    ASSERT_EQ(f->C_Finalize(nullptr), CKR_OK);
    ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
    const CK_SESSION_HANDLE later = open(CKF_SERIAL_SESSION);
    ASSERT_EQ(login(later, CKU_USER, userPin), CKR_OK);
    const auto renamed = find(later, {{CKA_ID, id.data(), 2}});
    ASSERT_EQ(renamed.size(), 2u);
    const std::vector<CK_ATTRIBUTE_TYPE> origin{CKA_LOCAL, CKA_KEY_GEN_MECHANISM,
                                                CKA_ALWAYS_SENSITIVE, CKA_NEVER_EXTRACTABLE};
    const Bytes generated = number(CKM_RSA_PKCS_KEY_PAIR_GEN);
    EXPECT_EQ(values(later, renamed[0], origin),
              (std::vector<Bytes>{yes, generated, missing, missing}));
    EXPECT_EQ(values(later, renamed[1], origin), (std::vector<Bytes>{yes, generated, yes, yes}));
}

// Labels and ids go into the card's entries, where a component the codec
// does not know stays; the rest is read-only, as are entries not marked
// modifiable and the public key shown from a certificate, which follows
// its certificate and goes with it.
TEST_F(ObjectsTest, LabelsAndIdsAreRewrittenInTheEntryAndTheRestIsReadOnly) {
    addOddEntries(image_.string(), false);
    const CK_SESSION_HANDLE session = open();
    EXPECT_EQ(set(open(CKF_SERIAL_SESSION), publicKey(session), CKA_LABEL, text("x")),
              CKR_SESSION_READ_ONLY);
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    const CK_OBJECT_HANDLE key = privateKey(session);
    EXPECT_EQ(set(session, key, CKA_SIGN, no), CKR_ATTRIBUTE_READ_ONLY);
    EXPECT_EQ(set(session, key, CKA_VENDOR_DEFINED + 7, no), CKR_ATTRIBUTE_TYPE_INVALID);
    ASSERT_EQ(set(session, key, CKA_LABEL, text("Renamed")), CKR_OK);
    const vcard::Bytes prkdf = vcard::CardImage::load(image_.string())
                                   .files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, 0x00}, true)
                                   .content;
    for (const Bytes& kept : {Bytes{0xDF, 0x20, 0x00}, text("Renamed")}) {
        EXPECT_NE(std::search(prkdf.begin(), prkdf.end(), kept.begin(), kept.end()), prkdf.end());
    }
    EXPECT_EQ(set(session, withId(session, CKO_CERTIFICATE, {0x45, 0x01}), CKA_LABEL, text("x")),
              CKR_ACTION_PROHIBITED);

    CK_OBJECT_CLASS objectClass = CKO_CERTIFICATE;
    Bytes der = certificateDer(), id{0x45, 0x09};
    CK_ATTRIBUTE stored[] = {{CKA_CLASS, &objectClass, sizeof objectClass},
                             {CKA_VALUE, der.data(), der.size()},
                             {CKA_ID, id.data(), 2}};
    CK_OBJECT_HANDLE certificate = 0, data = 0;
    ASSERT_EQ(f->C_CreateObject(session, stored, 3, &certificate), CKR_OK);
    const CK_OBJECT_HANDLE derived = withId(session, CKO_PUBLIC_KEY, id);
    EXPECT_EQ(values(session, derived, {CKA_WRAP, CKA_DERIVE, CKA_VERIFY_RECOVER}),
              (std::vector<Bytes>{no, no, no}));
    EXPECT_EQ(set(session, derived, CKA_LABEL, text("x")), CKR_ACTION_PROHIBITED);
    EXPECT_EQ(set(session, certificate, CKA_ID, {0x45, 0x01}), CKR_ATTRIBUTE_VALUE_INVALID);
    ASSERT_EQ(set(session, certificate, CKA_ID, {0x45, 0x0A}), CKR_OK);
    EXPECT_EQ(values(session, derived, {CKA_ID})[0], (Bytes{0x45, 0x0A}));
    objectClass = CKO_DATA;
    ASSERT_EQ(f->C_CreateObject(session, stored, 2, &data), CKR_OK);
    EXPECT_EQ(set(session, data, CKA_ID, id), CKR_ATTRIBUTE_TYPE_INVALID);
    EXPECT_EQ(set(session, data, CKA_LABEL, text("note")), CKR_OK);
    ASSERT_EQ(f->C_DestroyObject(session, certificate), CKR_OK);
    CK_ATTRIBUTE query{CKA_ID, nullptr, 0};
    EXPECT_EQ(f->C_GetAttributeValue(session, derived, &query, 1), CKR_OBJECT_HANDLE_INVALID);
}

// Only one DER certificate is stored as one; sizes, dates and a key's
// subject taken from its certificate.
TEST_F(ObjectsTest, CertificatesMustBeDerAndObjectsTellSizesDatesAndSubjects) {
    const CK_SESSION_HANDLE session = open();
    ASSERT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    const Bytes der = certificateDer();
    ASSERT_EQ(der[1], 0x82);
    Bytes longLength{0x30, 0x83, 0x00}, trailing = der, truncated = der;
    longLength.insert(longLength.end(), der.begin() + 2, der.end());
    trailing.push_back(0x00);
    truncated.pop_back();
    CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
    for (Bytes value : {longLength, trailing, truncated, Bytes{0x30, 0x03, 0x02, 0x01, 0x05}}) {
        CK_ATTRIBUTE stored[] = {{CKA_CLASS, &certificateClass, sizeof certificateClass},
                                 {CKA_VALUE, value.data(), value.size()}};
        CK_OBJECT_HANDLE handle = 0;
        EXPECT_EQ(f->C_CreateObject(session, stored, 2, &handle), CKR_ATTRIBUTE_VALUE_INVALID)
            << value.size();
    }
    const CK_OBJECT_HANDLE certificate = withId(session, CKO_CERTIFICATE, {0x45, 0x01});
    CK_ULONG size = 0;
    EXPECT_EQ(f->C_GetObjectSize(session, privateKey(session), &size), CKR_INFORMATION_SENSITIVE);
    ASSERT_EQ(f->C_GetObjectSize(session, certificate, &size), CKR_OK);
    EXPECT_EQ(size, der.size());
    ASSERT_EQ(f->C_GetObjectSize(session, publicKey(session), &size), CKR_OK);
    EXPECT_EQ(size, 256u + 3u) << "modulus and exponent";
    EXPECT_EQ(values(session, publicKey(session), {CKA_START_DATE, CKA_WRAP, CKA_VERIFY_RECOVER}),
              (std::vector<Bytes>{empty, no, no}));
    const Bytes subject = values(session, certificate, {CKA_SUBJECT, CKA_END_DATE})[0];
    EXPECT_EQ(values(session, privateKey(session), {CKA_SUBJECT, CKA_END_DATE}),
              (std::vector<Bytes>{subject, empty}));
}

} // namespace

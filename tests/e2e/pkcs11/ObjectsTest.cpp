// Objects as clients create, change and read them, beside p15tool and other processes.
#include "ModuleFixture.hpp"

#include "OddCard.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/CardImage.hpp"

namespace {

using namespace p15test;

const Bytes no{CK_FALSE}, yes{CK_TRUE}, empty;
Bytes text(const std::string& value) {
    return Bytes(value.begin(), value.end());
}

using ObjectsTest = ModuleTest;
using SharedImage = ModuleTest;

// The card's certificate entry (EF(CDF)'s only one) without its flags: not modifiable.
void makeCertificateUnmodifiable(const std::string& image) {
    namespace oss = app::pkcs15::oss;
    vcard::CardState state = vcard::CardImage::load(image);
    vcard::Bytes& cdf =
        state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, 0x04}, true).content;
    oss::CertificateType entry;
    oss::decode(cdf.data(), cdf.size(), entry);
    entry.x509CertificateValue.commonObjectAttributes.flags.reset();
    const vcard::Bytes unflagged = oss::encode(entry); // shorter: the rest of the file zeros
    std::fill(std::copy(unflagged.begin(), unflagged.end(), cdf.begin()), cdf.end(), 0);
    vcard::CardImage::store(image, vcard::CardImage::serialise(state));
}

// A generated pair stays, local, for the next process; it takes the first free id or the one given,
// listed once, but not an id of the card's pair (that the card signs with it at once is
// pkcs11.login's: NSS's certificate request).
TEST_F(ObjectsTest, GeneratedPairsAreListedOnceStayLocalAndKeepTheirIdsApart) {
    const CK_SESSION_HANDLE session = userSession();
    CK_MECHANISM generate{CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
    CK_ULONG bits = 1000;
    char label[] = "Fresh key";
    Bytes id{0x45, 0x01};
    CK_ATTRIBUTE publicTemplate[] = {{CKA_MODULUS_BITS, &bits, sizeof bits},
                                     {CKA_LABEL, label, sizeof label - 1},
                                     {CKA_ID, id.data(), 2}};
    CK_OBJECT_HANDLE pair[2] = {};
    const auto generatePair = [&](CK_SESSION_HANDLE in, CK_ULONG entries) {
        return f->C_GenerateKeyPair(in, &generate, publicTemplate, entries, nullptr, 0, &pair[0],
                                    &pair[1]);
    };
    EXPECT_EQ(generatePair(session, 2), CKR_KEY_SIZE_RANGE);
    bits = 1024;
    EXPECT_EQ(generatePair(open(CKF_SERIAL_SESSION), 2), CKR_SESSION_READ_ONLY);
    EXPECT_EQ(generatePair(session, 3), CKR_ATTRIBUTE_VALUE_INVALID);
    ASSERT_EQ(generatePair(session, 2), CKR_OK);
    EXPECT_EQ(values(session, pair[1], {CKA_ID})[0], (Bytes{0x45, 0x02}))
        << "the first id after the card's key";
    id[1] = 0x05;
    ASSERT_EQ(generatePair(session, 3), CKR_OK);
    EXPECT_EQ(find(session, {{CKA_ID, id.data(), 2}}).size(), 2u);
    EXPECT_EQ(set(session, pair[1], CKA_ID, {0x45, 0x01}), CKR_ATTRIBUTE_VALUE_INVALID);

    restart();
    const CK_SESSION_HANDLE later = userSession(CKF_SERIAL_SESSION);
    const std::vector<CK_ATTRIBUTE> fresh{{CKA_CLASS, &publicKeyClass, sizeof(CK_ULONG)},
                                          {CKA_LABEL, label, sizeof label - 1}};
    EXPECT_EQ(find(later, fresh).size(), 2u);
    const auto renamed = find(later, {{CKA_ID, id.data(), 2}});
    ASSERT_EQ(renamed.size(), 2u);
    const std::vector<CK_ATTRIBUTE_TYPE> origin{CKA_LOCAL, CKA_KEY_GEN_MECHANISM,
                                                CKA_ALWAYS_SENSITIVE, CKA_NEVER_EXTRACTABLE};
    const CK_MECHANISM_TYPE type = CKM_RSA_PKCS_KEY_PAIR_GEN;
    const Bytes generated(reinterpret_cast<const unsigned char*>(&type),
                          reinterpret_cast<const unsigned char*>(&type + 1));
    EXPECT_EQ(values(later, renamed[0], origin),
              (std::vector<Bytes>{yes, generated, missing, missing}));
    EXPECT_EQ(values(later, renamed[1], origin), (std::vector<Bytes>{yes, generated, yes, yes}));
}

// Labels go into the card's entries, where a component the codec does not know stays; the rest is
// read-only, as are entries not marked modifiable.
TEST_F(ObjectsTest, LabelsAndIdsAreRewrittenInTheEntryAndTheRestIsReadOnly) {
    addOddEntries(image_.string(), false);
    makeCertificateUnmodifiable(image_.string());
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
    EXPECT_EQ(set(session, only(session, CKO_CERTIFICATE, {0x45, 0x01}), CKA_LABEL, text("x")),
              CKR_ACTION_PROHIBITED);
}

// A key's subject comes from its certificate.
TEST_F(ObjectsTest, CertificatesMustBeDerAndObjectsTellSizesDatesAndSubjects) {
    const CK_SESSION_HANDLE session = userSession();
    const Bytes der = certificateDer();
    ASSERT_EQ(der[1], 0x82);
    Bytes longLength{0x30, 0x83, 0x00}, trailing = der, truncated = der;
    longLength.insert(longLength.end(), der.begin() + 2, der.end());
    trailing.push_back(0x00);
    truncated.pop_back();
    for (Bytes value : {longLength, trailing, truncated, Bytes{0x30, 0x03, 0x02, 0x01, 0x05}}) {
        EXPECT_EQ(create(session, {{CKA_CLASS, &certificateClass, sizeof certificateClass},
                                   {CKA_VALUE, value.data(), value.size()}}),
                  CKR_ATTRIBUTE_VALUE_INVALID)
            << value.size();
    }
    const CK_OBJECT_HANDLE certificate = only(session, CKO_CERTIFICATE, {0x45, 0x01});
    CK_ULONG sizes[3] = {};
    EXPECT_EQ(std::make_tuple(f->C_GetObjectSize(session, privateKey(session), &sizes[0]),
                              f->C_GetObjectSize(session, certificate, &sizes[1]),
                              f->C_GetObjectSize(session, publicKey(session), &sizes[2])),
              std::make_tuple(CKR_INFORMATION_SENSITIVE, CKR_OK, CKR_OK));
    EXPECT_EQ(std::make_pair(sizes[1], sizes[2]), std::make_pair(der.size(), 256ul + 3ul))
        << "the certificate's DER; the public key's modulus and exponent";
    EXPECT_EQ(values(session, publicKey(session), {CKA_START_DATE, CKA_WRAP, CKA_VERIFY_RECOVER}),
              (std::vector<Bytes>{empty, no, no}));
    const Bytes subject = values(session, certificate, {CKA_SUBJECT, CKA_END_DATE})[0];
    EXPECT_EQ(values(session, privateKey(session), {CKA_SUBJECT, CKA_END_DATE}),
              (std::vector<Bytes>{subject, empty}));
}

// The identifier is the opaque object's applicationOID: the module finds p15tool's by its DER, and
// its own of 201 octets (a DER length in the long form) in the next process.
TEST_F(ModuleTest, DataObjectIdentifiersAreSharedWithP15tool) {
    const std::string tool = std::string(P15TOOL_PATH) + " --card " + image_.string() + " ";
    std::ofstream(directory_ / "value") << "v";
    shell(tool + "data write " + (directory_ / "value").string() +
          " --label tool --oid 1.3.6.1.4.1.311 --pin-env P15_TEST_PIN");
    const CK_SESSION_HANDLE session = userSession();
    Bytes oid{0x06, 0x07, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37};
    EXPECT_EQ(find(session, {{CKA_OBJECT_ID, oid.data(), oid.size()}}).size(), 1u);

    Bytes longOid{0x06, 0x81, 0xC9, 0x2A};
    longOid.resize(longOid.size() + 200, 0x01);
    CK_ATTRIBUTE data[] = {{CKA_CLASS, &dataClass, sizeof dataClass},
                           {CKA_VALUE, oid.data(), 1},
                           {CKA_OBJECT_ID, longOid.data(), longOid.size()}};
    ASSERT_EQ(create(session, {data, data + 3}), CKR_OK);
    ASSERT_EQ(create(session, {data, data + 2}), CKR_OK); // without one
    // Another tag, no arc, lengths short, long, indefinite and not minimal, an arc cut short, one
    // with a leading 80, one of 64 bits.
    for (Bytes bad :
         {Bytes{0x04, 0x01, 0x2A}, Bytes{0x06, 0x00}, Bytes{0x06, 0x02, 0x2A},
          Bytes{0x06, 0x01, 0x2A, 0x03}, Bytes{0x06, 0x80, 0x2A}, Bytes{0x06, 0x81, 0x01, 0x2A},
          Bytes{0x06, 0x01, 0x82}, Bytes{0x06, 0x03, 0x2A, 0x80, 0x01},
          Bytes{0x06, 0x0B, 0x2A, 0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x00}}) {
        data[2] = {CKA_OBJECT_ID, bad.data(), bad.size()};
        EXPECT_EQ(create(session, {data, data + 3}), CKR_ATTRIBUTE_VALUE_INVALID);
    }
    restart();
    EXPECT_EQ(find(open(), {{CKA_OBJECT_ID, longOid.data(), longOid.size()}}).size(), 1u);
    EXPECT_EQ(find(open(), {{CKA_OBJECT_ID, nullptr, 0}}).size(), 1u) << "an empty one";
}

// The module opens the card; p15tool makes two keys and a forked module stores a certificate; the
// module logs in (storing the try counter) and stores its own: nothing is lost. Then two processes
// sign and decipher at once, each with one new key (pcscd:
// PcscSlotTest.ProcessesShareTheReadersCard).
TEST_F(SharedImage, ProcessesLoseNoWriteAndUseTheirOwnKeysAtOnce) {
    const std::string tool = std::string(P15TOOL_PATH) + " --card " + image_.string() + " ";
    Bytes der = certificateDer();
    const auto stored = [&](CK_SESSION_HANDLE session, std::string label) {
        return create(session, {{CKA_CLASS, &certificateClass, sizeof certificateClass},
                                {CKA_LABEL, label.data(), label.size()},
                                {CKA_VALUE, der.data(), der.size()}});
    };

    CK_SESSION_HANDLE session = open();
    find(session, {}); // the card is open and its objects read
    for (const char* label : {"A", "B"}) {
        shell(tool + "keygen --bits 1024 --pin-env P15_TEST_PIN --label " + label);
    }
    succeeded(forked(f, [&] { EXPECT_EQ(stored(userSession(), "second module's"), CKR_OK); }));
    EXPECT_EQ(login(session, CKU_USER, userPin), CKR_OK);
    EXPECT_EQ(stored(session, "first module's"), CKR_OK); // after the child's, read again
    EXPECT_EQ(f->C_Finalize(nullptr), CKR_OK);
    const std::string objects = shell(tool + "list");
    for (const char* label : {"A", "B", "second module's", "first module's"}) {
        EXPECT_NE(objects.find(label), std::string::npos) << label << "\n" << objects;
    }
    keyPairsUsedAtOnce(f, 0, {"A", "B"}, 1000);
}

} // namespace

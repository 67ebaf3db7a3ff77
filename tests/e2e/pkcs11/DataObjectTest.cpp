// Data objects with an object identifier, written by the module and by
// p15tool and read by the other, and a token one of whose directory files
// does not decode.
#include "pkcs11/Cryptoki.hpp"

#include "vcard/CardImage.hpp"

#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

CK_OBJECT_CLASS dataClass = CKO_DATA;

// The output of a command line that must succeed.
std::string output(const std::string& command) {
    std::string text;
    FILE* pipe = ::popen(command.c_str(), "r");
    char chunk[4096];
    for (std::size_t got; pipe && (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;) {
        text.append(chunk, got);
    }
    EXPECT_TRUE(pipe && ::pclose(pipe) == 0) << command << "\n" << text;
    return text;
}

// A fresh test card for each test, the module loaded once, p15tool at hand.
class CardData : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        directory_ = fs::temp_directory_path() / ("p15kit-data-" + std::to_string(::getpid()));
        fs::create_directories(directory_);
        output(std::string(TESTCARD_PATH) + " " + (directory_ / "template.json").string() + " " +
               directory_.string());
        library_ = ::dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    }
    static void TearDownTestSuite() { fs::remove_all(directory_); }

    void SetUp() override {
        fs::copy_file(directory_ / "template.json", image_, fs::copy_options::overwrite_existing);
        ::setenv("P15KIT_PKCS11_CARD", image_.c_str(), 1);
        ::setenv("P15KIT_PKCS11_PCSC", "off", 1);
        ::setenv("P15_TEST_PIN", "123456", 1);
        ASSERT_NE(library_, nullptr) << ::dlerror();
        auto getList =
            reinterpret_cast<CK_C_GetFunctionList>(::dlsym(library_, "C_GetFunctionList"));
        ASSERT_EQ(getList(&f), CKR_OK);
        ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
    }
    void TearDown() override { f->C_Finalize(nullptr); }

    std::string tool(const std::string& arguments) const {
        return output(std::string(P15TOOL_PATH) + " --card " + image_.string() + " " + arguments);
    }
    // A read/write session, the user logged in.
    CK_SESSION_HANDLE userSession() {
        CK_SESSION_HANDLE session = 0;
        EXPECT_EQ(
            f->C_OpenSession(0, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session),
            CKR_OK);
        unsigned char pin[] = "123456";
        EXPECT_EQ(f->C_Login(session, CKU_USER, pin, 6), CKR_OK);
        return session;
    }
    std::vector<CK_OBJECT_HANDLE> find(CK_SESSION_HANDLE session, std::vector<CK_ATTRIBUTE> match) {
        std::vector<CK_OBJECT_HANDLE> found(16);
        CK_ULONG count = 0;
        EXPECT_EQ(f->C_FindObjectsInit(session, match.data(), match.size()), CKR_OK);
        EXPECT_EQ(f->C_FindObjects(session, found.data(), found.size(), &count), CKR_OK);
        EXPECT_EQ(f->C_FindObjectsFinal(session), CKR_OK);
        found.resize(count);
        return found;
    }
    // CKA_OBJECT_ID of the data object labelled `label`.
    Bytes objectId(CK_SESSION_HANDLE session, std::string label) {
        const auto found = find(session, {{CKA_CLASS, &dataClass, sizeof dataClass},
                                          {CKA_LABEL, label.data(), label.size()}});
        Bytes value(512);
        CK_ATTRIBUTE query{CKA_OBJECT_ID, value.data(), value.size()};
        EXPECT_EQ(found.size(), 1u) << label;
        EXPECT_EQ(found.empty() ? CKR_OK : f->C_GetAttributeValue(session, found[0], &query, 1),
                  CKR_OK);
        value.resize(found.empty() ? 0 : query.ulValueLen);
        return value;
    }
    CK_RV create(CK_SESSION_HANDLE session, std::string label, Bytes oid) {
        char value[] = "v";
        std::vector<CK_ATTRIBUTE> object{{CKA_CLASS, &dataClass, sizeof dataClass},
                                         {CKA_LABEL, label.data(), label.size()},
                                         {CKA_VALUE, value, 1},
                                         {CKA_OBJECT_ID, oid.data(), oid.size()}};
        CK_OBJECT_HANDLE created = 0;
        return f->C_CreateObject(session, object.data(), object.size(), &created);
    }

    static inline fs::path directory_;
    static inline void* library_ = nullptr;
    const fs::path image_ = directory_ / "card.json";
    CK_FUNCTION_LIST_PTR f = nullptr;
};

TEST_F(CardData, AnObjectIdentifierIsTheSameForTheModuleAndP15tool) {
    const fs::path value = directory_ / "value";
    std::ofstream(value) << "v";
    tool("data write " + value.string() +
         " --label tool --oid 1.3.6.1.4.1.311 --pin-env P15_TEST_PIN");
    const CK_SESSION_HANDLE session = userSession();
    EXPECT_EQ(objectId(session, "tool"),
              (Bytes{0x06, 0x07, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37}));

    // 2.999.1, and 1.2 with 200 more arcs: a length in the long form.
    Bytes longOid{0x06, 0x81, 0xC9, 0x2A};
    longOid.resize(longOid.size() + 200, 0x01);
    ASSERT_EQ(create(session, "short", {0x06, 0x03, 0x88, 0x37, 0x01}), CKR_OK);
    ASSERT_EQ(create(session, "long", longOid), CKR_OK);
    ASSERT_EQ(create(session, "none", {}), CKR_OK);
    // Another tag, no arc, lengths short, long, indefinite and not minimal,
    // an arc cut short, one with a leading 80, one of 64 bits.
    Bytes arc64{0x06, 0x0B, 0x2A, 0x81};
    arc64.insert(arc64.end(), 8, 0x80);
    arc64.push_back(0x00);
    for (const Bytes& oid :
         {Bytes{0x04, 0x01, 0x2A}, Bytes{0x06, 0x00}, Bytes{0x06, 0x02, 0x2A},
          Bytes{0x06, 0x01, 0x2A, 0x03}, Bytes{0x06, 0x80, 0x2A}, Bytes{0x06, 0x81, 0x01, 0x2A},
          Bytes{0x06, 0x01, 0x82}, Bytes{0x06, 0x03, 0x2A, 0x80, 0x01}, arc64}) {
        EXPECT_EQ(create(session, "bad", oid), CKR_ATTRIBUTE_VALUE_INVALID) << oid.size();
    }

    ASSERT_EQ(f->C_Finalize(nullptr), CKR_OK);
    const nlohmann::json listed = nlohmann::json::parse(tool("--json list"))["dataObjects"];
    ASSERT_EQ(listed.size(), 4u) << listed;
    EXPECT_EQ(listed[1]["applicationOID"], "2.999.1");
    EXPECT_EQ(listed[2]["applicationOID"].get<std::string>().size(), 3 + 2 * 200);
    EXPECT_FALSE(listed[3].contains("applicationOID"));
    ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
    const CK_SESSION_HANDLE later = userSession();
    EXPECT_EQ(objectId(later, "long"), longOid);
    EXPECT_EQ(objectId(later, "none"), Bytes());
}

// A broken directory file loses only its own entries (the plugin sees to
// that: ModuleTest.OddEntriesLeaveTheSoundKeyUsable); with EF(ODF) broken
// after its first entry the plugin lists no kind, and the token answers a
// search with nothing instead of failing it.
TEST_F(CardData, KindsThatDoNotDecodeAreLeftOutOfTheSearch) {
    vcard::CardState state = vcard::CardImage::load(image_.string());
    vcard::Bytes& odf =
        state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x50, 0x31}, true).content;
    odf.at(8) = 0xA1;
    odf.at(9) = 0xFF;
    vcard::CardImage::store(image_.string(), vcard::CardImage::serialise(state));
    CK_SESSION_HANDLE session = 0;
    ASSERT_EQ(f->C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
    EXPECT_TRUE(find(session, {}).empty());
}

} // namespace

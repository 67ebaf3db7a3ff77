// One card image used by several processes at once.
#include "ModuleFixture.hpp"

#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using p15test::run;

// The module opens the card; p15tool makes a key and a second module, in a
// forked child, stores a certificate; then the module logs in, which stores
// the PIN's try counter, and stores a certificate of its own. Nothing the
// others stored is lost.
TEST(SharedImage, WritesOfOtherProcessesOutliveTheOpenModulesLogin) {
    char pattern[] = "/tmp/p15kit-shared-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    const std::string directory = pattern, image = directory + "/card.json";
    const std::string tool = std::string(P15TOOL_PATH) + " --card " + image + " ";
    run(std::string(TESTCARD_PATH) + " " + image + " " + directory);
    ::setenv("P15KIT_PKCS11_CARD", image.c_str(), 1);
    ::setenv("P15KIT_PKCS11_PCSC", "off", 1);
    ::setenv("P15_TEST_PIN", "123456", 1);
    void* library = ::dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    CK_FUNCTION_LIST_PTR f = nullptr;
    ASSERT_EQ(reinterpret_cast<CK_C_GetFunctionList>(::dlsym(library, "C_GetFunctionList"))(&f),
              CKR_OK);
    unsigned char pin[] = "123456";
    const auto opened = [&](CK_SESSION_HANDLE& session) {
        return f->C_OpenSession(0, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                &session) == CKR_OK;
    };

    const auto stored = [&](CK_SESSION_HANDLE session, std::string label) {
        std::ifstream file(directory + "/certificate.der", std::ios::binary);
        std::vector<unsigned char> der(std::istreambuf_iterator<char>(file), {});
        CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
        CK_CERTIFICATE_TYPE x509 = CKC_X_509;
        std::vector<CK_ATTRIBUTE> certificate{
            {CKA_CLASS, &certificateClass, sizeof certificateClass},
            {CKA_CERTIFICATE_TYPE, &x509, sizeof x509},
            {CKA_LABEL, label.data(), label.size()},
            {CKA_VALUE, der.data(), der.size()}};
        CK_OBJECT_HANDLE created = 0;
        return f->C_CreateObject(session, certificate.data(), certificate.size(), &created);
    };

    CK_SESSION_HANDLE session = 0;
    CK_TOKEN_INFO token;
    ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
    ASSERT_TRUE(opened(session));
    ASSERT_EQ(f->C_GetTokenInfo(0, &token), CKR_OK);              // the card is open
    ASSERT_EQ(f->C_FindObjectsInit(session, nullptr, 0), CKR_OK); // and its objects read
    ASSERT_EQ(f->C_FindObjectsFinal(session), CKR_OK);
    run(tool + "keygen --bits 1024 --label Shared --pin-env P15_TEST_PIN");
    const pid_t child = ::fork();
    if (child == 0) {
        // The child starts with no module and initialises its own; the parent's goes on.
        CK_ULONG slots = 0;
        ::_exit(f->C_GetSlotList(CK_FALSE, nullptr, &slots) == CKR_CRYPTOKI_NOT_INITIALIZED &&
                        f->C_Initialize(nullptr) == CKR_OK && opened(session) &&
                        f->C_Login(session, CKU_USER, pin, 6) == CKR_OK &&
                        stored(session, "second module's") == CKR_OK
                    ? 0
                    : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(f->C_Login(session, CKU_USER, pin, 6), CKR_OK);
    EXPECT_EQ(stored(session, "first module's"), CKR_OK); // after the child's, read again
    EXPECT_EQ(f->C_Finalize(nullptr), CKR_OK);
    const std::string objects = run(tool + "list");
    EXPECT_NE(objects.find("Shared"), std::string::npos) << objects;
    EXPECT_NE(objects.find("second module's"), std::string::npos) << objects;
    EXPECT_NE(objects.find("first module's"), std::string::npos) << objects;
    run("rm -rf " + directory);
}

} // namespace

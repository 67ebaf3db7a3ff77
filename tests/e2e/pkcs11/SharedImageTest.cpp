// One card image used by several processes at once: the module that keeps
// it open, p15tool, and a second module in another process. None of them
// writes back an older card over what another one stored.
#include "pkcs11/Cryptoki.hpp"

#include <array>
#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

std::string run(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen(command.c_str(), "r");
    std::array<char, 4096> chunk;
    for (std::size_t got; pipe && (got = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0;) {
        output.append(chunk.data(), got);
    }
    EXPECT_TRUE(pipe && ::pclose(pipe) == 0) << command << "\n" << output;
    return output;
}

class SharedImage : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/p15kit-shared-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        directory_ = pattern;
        run(std::string(TESTCARD_PATH) + " " + image() + " " + directory_);
        ::setenv("P15KIT_PKCS11_CARD", image().c_str(), 1);
        ::setenv("P15KIT_PKCS11_PCSC", "off", 1);
        ::setenv("P15_TEST_PIN", "123456", 1);
        void* library = ::dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << ::dlerror();
        auto getList =
            reinterpret_cast<CK_C_GetFunctionList>(::dlsym(library, "C_GetFunctionList"));
        ASSERT_EQ(getList(&f), CKR_OK);
    }
    void TearDown() override { run("rm -rf " + directory_); }

    std::string image() const { return directory_ + "/card.json"; }
    std::string tool(const std::string& arguments) {
        return run(std::string(P15TOOL_PATH) + " --card " + image() + " " + arguments);
    }
    bool storeCertificate(CK_SESSION_HANDLE session, unsigned char number) {
        std::ifstream file(directory_ + "/certificate.der", std::ios::binary);
        std::vector<unsigned char> der(std::istreambuf_iterator<char>(file), {});
        CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
        CK_CERTIFICATE_TYPE x509 = CKC_X_509;
        unsigned char id[] = {0x46, number};
        std::string label = "copy " + std::to_string(number);
        std::vector<CK_ATTRIBUTE> certificate{
            {CKA_CLASS, &certificateClass, sizeof certificateClass},
            {CKA_CERTIFICATE_TYPE, &x509, sizeof x509},
            {CKA_ID, id, sizeof id},
            {CKA_LABEL, label.data(), label.size()},
            {CKA_VALUE, der.data(), der.size()}};
        CK_OBJECT_HANDLE created = 0;
        return f->C_CreateObject(session, certificate.data(), certificate.size(), &created) ==
               CKR_OK;
    }

    std::string directory_;
    CK_FUNCTION_LIST_PTR f = nullptr;
};

// The module opens the card; p15tool makes a key and a second module, in a
// child process, stores a certificate; then the module logs in, which stores
// the PIN's try counter. Nothing the others stored is lost.
TEST_F(SharedImage, WritesOfOtherProcessesOutliveTheOpenModulesLogin) {
    CK_SESSION_HANDLE session = 0;
    unsigned char pin[] = "123456";
    ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
    ASSERT_EQ(f->C_OpenSession(0, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session),
              CKR_OK);
    CK_TOKEN_INFO token;
    ASSERT_EQ(f->C_GetTokenInfo(0, &token), CKR_OK); // the card is open
    tool("keygen --bits 1024 --label Shared --pin-env P15_TEST_PIN");
    const pid_t child = ::fork();
    if (child == 0) {
        CK_SESSION_HANDLE other = 0;
        f->C_Finalize(nullptr); // the child's module starts anew, as another process's would
        const bool stored = f->C_Initialize(nullptr) == CKR_OK &&
                            f->C_OpenSession(0, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr,
                                             nullptr, &other) == CKR_OK &&
                            f->C_Login(other, CKU_USER, pin, 6) == CKR_OK &&
                            storeCertificate(other, 2);
        ::_exit(stored ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(f->C_Login(session, CKU_USER, pin, 6), CKR_OK);
    EXPECT_EQ(f->C_Finalize(nullptr), CKR_OK);
    const std::string objects = tool("list");
    EXPECT_NE(objects.find("Shared"), std::string::npos) << objects;
    EXPECT_NE(objects.find("copy 2"), std::string::npos) << objects;
}

} // namespace

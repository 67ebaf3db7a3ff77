// The module loaded as applications load it, over the real plugin, card layer and virtual card; the
// card is made once by make-test-card.sh and copied fresh for every test.
#ifndef TESTS_E2E_PKCS11_MODULEFIXTURE_HPP
#define TESTS_E2E_PKCS11_MODULEFIXTURE_HPP

#include "Profiles.hpp"
#include "pkcs11/Cryptoki.hpp"

#include <algorithm>
#include <cryptopp/files.h>
#include <cryptopp/osrng.h>
#include <cryptopp/pkcspad.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace p15test {

namespace fs = std::filesystem;

inline const std::string userPin = "123456";
inline const std::string puk = "12345678";
using Bytes = std::vector<unsigned char>;
inline const Bytes missing{'?'};

inline CK_OBJECT_CLASS publicKeyClass = CKO_PUBLIC_KEY;
inline CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
inline CK_OBJECT_CLASS dataClass = CKO_DATA;

// What `command` prints; it must succeed. It finds the user PIN in P15_TEST_PIN.
inline std::string shell(const std::string& command) {
    ::setenv("P15_TEST_PIN", userPin.c_str(), 1);
    std::string output;
    FILE* pipe = ::popen(command.c_str(), "r");
    char chunk[4096];
    for (std::size_t got; pipe && (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;) {
        output.append(chunk, got);
    }
    EXPECT_TRUE(pipe && ::pclose(pipe) == 0) << command << "\n" << output;
    return output;
}

inline CK_UTF8CHAR_PTR utf8(std::string& text) {
    return reinterpret_cast<CK_UTF8CHAR_PTR>(text.data());
}

// The calls a test makes through the module `f`, each result checked.
struct Client {
    CK_FUNCTION_LIST_PTR f = nullptr;
    void* library = nullptr;

    void load() {
        library = ::dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << ::dlerror();
        const auto list =
            reinterpret_cast<CK_C_GetFunctionList>(::dlsym(library, "C_GetFunctionList"));
        ASSERT_TRUE(list && list(&f) == CKR_OK);
        ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
    }

    CK_SESSION_HANDLE open(CK_FLAGS flags = CKF_SERIAL_SESSION | CKF_RW_SESSION,
                           CK_SLOT_ID slot = 0) {
        CK_SESSION_HANDLE session = 0;
        EXPECT_EQ(f->C_OpenSession(slot, flags, nullptr, nullptr, &session), CKR_OK);
        return session;
    }
    CK_RV login(CK_SESSION_HANDLE session, CK_USER_TYPE user, std::string pin) {
        return f->C_Login(session, user, utf8(pin), pin.size());
    }
    CK_SESSION_HANDLE userSession(CK_FLAGS flags = CKF_SERIAL_SESSION | CKF_RW_SESSION,
                                  CK_SLOT_ID slot = 0) {
        const CK_SESSION_HANDLE session = open(flags, slot);
        EXPECT_EQ(login(session, CKU_USER, userPin), CKR_OK);
        return session;
    }
    // The module of the next process: only what is on the card is left.
    void restart() {
        ASSERT_EQ(f->C_Finalize(nullptr), CKR_OK);
        ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
    }
    CK_FLAGS tokenFlags() {
        CK_TOKEN_INFO info;
        EXPECT_EQ(f->C_GetTokenInfo(0, &info), CKR_OK);
        return info.flags;
    }
    std::vector<CK_OBJECT_HANDLE> find(CK_SESSION_HANDLE session, std::vector<CK_ATTRIBUTE> tmpl) {
        EXPECT_EQ(f->C_FindObjectsInit(session, tmpl.data(), tmpl.size()), CKR_OK);
        std::vector<CK_OBJECT_HANDLE> found;
        CK_OBJECT_HANDLE handle;
        CK_ULONG count = 0;
        // One at a time, so that the search's hand-out is tested too.
        while (f->C_FindObjects(session, &handle, 1, &count) == CKR_OK && count == 1) {
            found.push_back(handle);
        }
        EXPECT_EQ(f->C_FindObjectsFinal(session), CKR_OK);
        return found;
    }

    // The values of `types` for `object`; `missing` ("?") for one it lacks.
    std::vector<Bytes> values(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                              std::vector<CK_ATTRIBUTE_TYPE> types) {
        std::vector<Bytes> out(types.size(), Bytes(4096));
        std::vector<CK_ATTRIBUTE> query;
        for (std::size_t i = 0; i < types.size(); ++i) {
            query.push_back({types[i], out[i].data(), out[i].size()});
        }
        f->C_GetAttributeValue(session, object, query.data(), query.size());
        for (std::size_t i = 0; i < types.size(); ++i) {
            const bool lacks = query[i].ulValueLen == CK_UNAVAILABLE_INFORMATION;
            out[i] = lacks ? missing : Bytes(out[i].begin(), out[i].begin() + query[i].ulValueLen);
        }
        return out;
    }
    CK_RV set(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
              Bytes value) {
        CK_ATTRIBUTE entry{type, value.data(), value.size()};
        return f->C_SetAttributeValue(session, object, &entry, 1);
    }
    // The one object of `objectClass` (with `value` of `type`, unless empty).
    CK_OBJECT_HANDLE only(CK_SESSION_HANDLE session, CK_OBJECT_CLASS objectClass, Bytes value = {},
                          CK_ATTRIBUTE_TYPE type = CKA_ID) {
        std::vector<CK_ATTRIBUTE> tmpl{{CKA_CLASS, &objectClass, sizeof objectClass}};
        if (!value.empty()) {
            tmpl.push_back({type, value.data(), value.size()});
        }
        const auto found = find(session, tmpl);
        EXPECT_EQ(found.size(), 1u);
        return found.empty() ? 0 : found[0];
    }
    CK_OBJECT_HANDLE publicKey(CK_SESSION_HANDLE in) { return only(in, CKO_PUBLIC_KEY); }
    CK_OBJECT_HANDLE privateKey(CK_SESSION_HANDLE in) { return only(in, CKO_PRIVATE_KEY); }
    // The answer of `use` (CKF_SIGN, CKF_ENCRYPT, CKF_DECRYPT) to `in` with `key` and the mechanism
    // `type`, of the length the call tells first; neither the question nor a buffer one byte short
    // (nor, for a signature, a part given now) ends the operation.
    Bytes answer(CK_SESSION_HANDLE session, CK_FLAGS use, CK_MECHANISM_TYPE type,
                 CK_OBJECT_HANDLE key, Bytes in) {
        CK_MECHANISM mechanism{type, nullptr, 0};
        const auto [init, call] = use == CKF_SIGN      ? std::pair(f->C_SignInit, f->C_Sign)
                                  : use == CKF_ENCRYPT ? std::pair(f->C_EncryptInit, f->C_Encrypt)
                                                       : std::pair(f->C_DecryptInit, f->C_Decrypt);
        CK_ULONG length = 0;
        EXPECT_EQ(init(session, &mechanism, key), CKR_OK);
        EXPECT_EQ(call(session, in.data(), in.size(), nullptr, &length), CKR_OK);
        Bytes out(length);
        EXPECT_TRUE(use != CKF_SIGN ||
                    f->C_SignUpdate(session, in.data(), 1) == CKR_OPERATION_ACTIVE);
        EXPECT_EQ(call(session, in.data(), in.size(), out.data(), &(length = out.size() - 1)),
                  CKR_BUFFER_TOO_SMALL);
        EXPECT_EQ(call(session, in.data(), in.size(), out.data(), &(length = out.size())), CKR_OK);
        EXPECT_EQ(length, out.size()) << "the length told is the answer's";
        return out;
    }
    // One call of `use` (CKF_SIGN, CKF_VERIFY, CKF_ENCRYPT, CKF_DECRYPT) after its Init with `key`,
    // by default the card's public key to verify and encipher, its private key else; `out` takes
    // the result, or gives the signature to verify.
    CK_RV run(CK_SESSION_HANDLE session, CK_FLAGS use, CK_MECHANISM mechanism, Bytes in, Bytes& out,
              CK_OBJECT_HANDLE key = 0) {
        const bool publicHalf = use == CKF_VERIFY || use == CKF_ENCRYPT;
        key = key ? key : publicHalf ? publicKey(session) : privateKey(session);
        const auto init = use == CKF_SIGN     ? f->C_SignInit
                          : use == CKF_VERIFY ? f->C_VerifyInit
                          : publicHalf        ? f->C_EncryptInit
                                              : f->C_DecryptInit;
        if (const CK_RV rv = init(session, &mechanism, key); rv != CKR_OK || use == CKF_VERIFY) {
            return rv ? rv : f->C_Verify(session, in.data(), in.size(), out.data(), out.size());
        }
        const auto call = use == CKF_SIGN ? f->C_Sign : publicHalf ? f->C_Encrypt : f->C_Decrypt;
        out.assign(512, 0);
        CK_ULONG length = out.size();
        const CK_RV rv = call(session, in.data(), in.size(), out.data(), &length);
        out.resize(rv == CKR_OK ? length : 0);
        return rv;
    }
    CK_RV create(CK_SESSION_HANDLE session, std::vector<CK_ATTRIBUTE> tmpl,
                 CK_OBJECT_HANDLE* created = nullptr) {
        CK_OBJECT_HANDLE handle = 0;
        return f->C_CreateObject(session, tmpl.data(), tmpl.size(), created ? created : &handle);
    }
};

// A client logged in on `slot` with the key pair `label`: each use signs (SHA256_RSA_PKCS) or
// deciphers (RSA_PKCS) `message`, checked with the public key; told CKR_USER_NOT_LOGGED_IN, it logs
// in again once, as clients do, unless told not to.
struct KeyUser : Client {
    KeyUser(CK_FUNCTION_LIST_PTR module, CK_SLOT_ID slot, std::string label)
        : Client{module} {
        session = userSession(CKF_SERIAL_SESSION | CKF_RW_SESSION, slot);
        privateHalf = only(session, CKO_PRIVATE_KEY, {label.begin(), label.end()}, CKA_LABEL);
        publicHalf = only(session, CKO_PUBLIC_KEY, {label.begin(), label.end()}, CKA_LABEL);
    }
    CK_RV use(bool signing, const std::string& message, bool loginAgain = true) {
        const Bytes text(message.begin(), message.end());
        Bytes in = text, out;
        const CK_MECHANISM sha256{CKM_SHA256_RSA_PKCS, nullptr, 0}, rsa{CKM_RSA_PKCS, nullptr, 0};
        EXPECT_TRUE(signing || run(session, CKF_ENCRYPT, rsa, text, in, publicHalf) == CKR_OK);
        const CK_RV rv = run(session, signing ? CKF_SIGN : CKF_DECRYPT, signing ? sha256 : rsa, in,
                             out, privateHalf);
        if (rv == CKR_USER_NOT_LOGGED_IN && loginAgain &&
            login(session, CKU_USER, userPin) == CKR_OK) {
            return use(signing, message, false);
        }
        EXPECT_TRUE(rv != CKR_OK ||
                    (signing ? run(session, CKF_VERIFY, sha256, text, out, publicHalf) == CKR_OK
                             : out == text))
            << message << (signing ? ": the signature does not verify" : ": another plaintext");
        return rv;
    }
    CK_SESSION_HANDLE session = 0;
    CK_OBJECT_HANDLE privateHalf = 0, publicHalf = 0;
};

// Runs `body` in a forked process that starts with no module, as PKCS#11 wants (the parent's is
// left to the parent), and initialises its own; its exit status tells whether a check failed.
inline pid_t forked(CK_FUNCTION_LIST_PTR f, const std::function<void()>& body) {
    if (const pid_t child = ::fork(); child != 0) {
        return child;
    }
    try { // the child never returns into the test
        CK_ULONG slots = 0;
        EXPECT_EQ(f->C_GetSlotList(CK_FALSE, nullptr, &slots), CKR_CRYPTOKI_NOT_INITIALIZED);
        EXPECT_EQ(f->C_Initialize(nullptr), CKR_OK);
        body();
        f->C_Finalize(nullptr);
    } catch (const std::exception& e) {
        ADD_FAILURE() << e.what();
    }
    std::fflush(stdout);
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
}
inline void succeeded(pid_t child) {
    int status = -1;
    EXPECT_EQ((std::pair{::waitpid(child, &status, 0), status}), std::pair(child, 0));
}

// Processes sharing one card, one for each of `labels`, sign `count` distinct messages at once with
// their key pair, then decipher as many; every result is checked.
inline void keyPairsUsedAtOnce(CK_FUNCTION_LIST_PTR f, CK_SLOT_ID slot,
                               std::vector<std::string> labels, int count) {
    for (const bool signing : {true, false}) {
        SCOPED_TRACE(signing ? "signing" : "deciphering");
        std::vector<pid_t> children;
        for (const std::string& label : labels) {
            children.push_back(forked(f, [&] {
                KeyUser user(f, slot, label);
                for (int i = 0; i < count; ++i) {
                    EXPECT_EQ(user.use(signing, label + " message " + std::to_string(i)), CKR_OK);
                }
            }));
        }
        std::for_each(children.begin(), children.end(), succeeded);
    }
}

class ModuleTest : public ::testing::Test, public Client {
protected:
    static void SetUpTestSuite() {
        directory_ = fs::temp_directory_path() / ("p15kit-pkcs11-" + std::to_string(getpid()));
    }
    static void TearDownTestSuite() { fs::remove_all(directory_); }

    virtual vcard::CardProfile profile() const { return vcard::CardProfile::Native; }

    // Where make-test-card.sh left the card of `profile` (template.json), its key and its
    // certificate, made on first use; empty when it failed.
    static fs::path madeCard(vcard::CardProfile profile) {
        const std::string name = vcard::profileName(profile);
        const fs::path folder =
            profile == vcard::CardProfile::Native ? directory_ : directory_ / name;
        fs::create_directories(folder);
        const bool made = fs::exists(folder / "template.json") ||
                          std::system(("P15_TESTCARD_PROFILE=" + name + " sh " + TESTCARD_PATH +
                                       " " + P15TOOL_PATH + " " +
                                       (folder / "template.json").string() + " " + folder.string())
                                          .c_str()) == 0;
        return made ? folder : fs::path();
    }

    void SetUp() override {
        folder_ = madeCard(profile());
        ASSERT_FALSE(folder_.empty()) << "make-test-card.sh made no card";
        image_ = directory_ / "card.json";
        fs::copy_file(folder_ / "template.json", image_, fs::copy_options::overwrite_existing);
        ::setenv("P15KIT_PKCS11_CARD", image_.c_str(), 1);
        ::setenv("P15KIT_PKCS11_PCSC", "off", 1);
        load();
    }
    void TearDown() override {
        if (f) { // none when SetUp failed
            f->C_Finalize(nullptr);
        }
    }

    // The block the card's public key recovers from `signature`, and the PKCS#1 v1.5 signature
    // block of `payload` it must be.
    static Bytes recovered(const Bytes& signature) {
        Bytes block(256);
        CryptoPP::RSA::PublicKey(softwareKey())
            .ApplyFunction(CryptoPP::Integer(signature.data(), signature.size()))
            .Encode(block.data(), block.size());
        return block;
    }
    static Bytes pkcs1Block(const Bytes& payload) {
        Bytes block(256 - payload.size(), 0xFF);
        block[0] = 0x00, block[1] = 0x01, block.back() = 0x00;
        block.insert(block.end(), payload.begin(), payload.end());
        return block;
    }
    // The private half of the card's key and its certificate, as the card maker left them.
    static CryptoPP::RSA::PrivateKey softwareKey() {
        CryptoPP::RSA::PrivateKey key;
        CryptoPP::FileSource in((folder_ / "private.der").c_str(), true);
        key.BERDecode(in);
        return key;
    }
    static Bytes certificateDer() {
        std::ifstream file(folder_ / "certificate.der", std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(file), {});
    }

    static inline fs::path directory_;
    static inline fs::path folder_;
    fs::path image_;
};

// A ModuleTest on a card of the profile the suite is instantiated with (bothProfiles).
class ProfiledModuleTest : public ModuleTest,
                           public ::testing::WithParamInterface<vcard::CardProfile> {
protected:
    vcard::CardProfile profile() const override { return GetParam(); }
};

} // namespace p15test

#endif

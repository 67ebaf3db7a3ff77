// A PKCS#11 client program for the tests where several programs share one card: it loads the
// module, logs in with the user PIN of P15_TEST_PIN on the first slot holding a token, and
//   sign LABEL N     signs N distinct messages (CKM_SHA256_RSA_PKCS) with the private key LABEL
//                    and verifies each in software with the public key LABEL from the token;
//   decrypt LABEL N  enciphers N distinct messages in software (PKCS#1 v1.5) with that public
//                    key and deciphers them with C_Decrypt;
//   reset LABEL COMMAND  runs COMMAND (another program that resets the card when it lets it
//                    go) while logged in, twice, and checks the session falls back to the
//                    public state: once through C_GetSessionInfo and C_Login, once through a
//                    C_Sign before any login (CKR_USER_NOT_LOGGED_IN); after each, C_Sign works.
// Told CKR_USER_NOT_LOGGED_IN (another program reset the card), sign and decrypt log in again
// once. It prints each failure and how many operations failed; exit status 0 when none did.
#include "pkcs11/Cryptoki.hpp"

#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

std::string hex(CK_RV rv) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(rv));
    return text;
}

void check(CK_RV rv, const std::string& call) {
    if (rv != CKR_OK) {
        throw std::runtime_error(call + " returned " + hex(rv));
    }
}

class Client {
public:
    explicit Client(const std::string& label) {
        void* library = ::dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!library) {
            throw std::runtime_error(::dlerror());
        }
        auto getList =
            reinterpret_cast<CK_C_GetFunctionList>(::dlsym(library, "C_GetFunctionList"));
        check(getList ? getList(&f) : CKR_GENERAL_ERROR, "C_GetFunctionList");
        check(f->C_Initialize(nullptr), "C_Initialize");
        CK_SLOT_ID slots[16];
        CK_ULONG count = 16;
        check(f->C_GetSlotList(CK_TRUE, slots, &count), "C_GetSlotList");
        if (count == 0) {
            throw std::runtime_error("no slot holds a token");
        }
        check(f->C_OpenSession(slots[0], CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                               &session),
              "C_OpenSession");
        check(login(), "C_Login");
        privateKey = find(CKO_PRIVATE_KEY, label);
        publicKey = find(CKO_PUBLIC_KEY, label);
        CryptoPP::Integer modulus = integer(CKA_MODULUS), exponent = integer(CKA_PUBLIC_EXPONENT);
        key.Initialize(modulus, exponent);
    }
    ~Client() { f->C_Finalize(nullptr); }

    CK_RV login() {
        const char* pin = std::getenv("P15_TEST_PIN");
        std::string value = pin ? pin : "";
        return f->C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(value.data()),
                          value.size());
    }
    // The first failing return of C_SignInit and C_Sign over message.
    CK_RV sign(const Bytes& message, Bytes& signature) {
        CK_MECHANISM mechanism{CKM_SHA256_RSA_PKCS, nullptr, 0};
        signature.assign(512, 0);
        CK_ULONG length = signature.size();
        CK_RV rv = f->C_SignInit(session, &mechanism, privateKey);
        if (rv == CKR_OK) {
            rv = f->C_Sign(session, const_cast<CK_BYTE_PTR>(message.data()), message.size(),
                           signature.data(), &length);
        }
        signature.resize(rv == CKR_OK ? length : 0);
        return rv;
    }
    CK_RV decrypt(const Bytes& cryptogram, Bytes& plain) {
        CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
        plain.assign(512, 0);
        CK_ULONG length = plain.size();
        CK_RV rv = f->C_DecryptInit(session, &mechanism, privateKey);
        if (rv == CKR_OK) {
            rv = f->C_Decrypt(session, const_cast<CK_BYTE_PTR>(cryptogram.data()),
                              cryptogram.size(), plain.data(), &length);
        }
        plain.resize(rv == CKR_OK ? length : 0);
        return rv;
    }
    bool verifies(const Bytes& message, const Bytes& signature) const {
        CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Verifier verifier(key);
        return signature.size() == verifier.SignatureLength() &&
               verifier.VerifyMessage(message.data(), message.size(), signature.data(),
                                      signature.size());
    }
    Bytes encipher(const Bytes& message) {
        CryptoPP::RSAES_PKCS1v15_Encryptor encryptor(key);
        Bytes cryptogram(encryptor.CiphertextLength(message.size()));
        encryptor.Encrypt(random, message.data(), message.size(), cryptogram.data());
        return cryptogram;
    }

    CK_FUNCTION_LIST_PTR f = nullptr;
    CK_SESSION_HANDLE session = 0;

private:
    CK_OBJECT_HANDLE find(CK_OBJECT_CLASS kind, const std::string& label) {
        CK_ATTRIBUTE query[] = {{CKA_CLASS, &kind, sizeof kind},
                                {CKA_LABEL, const_cast<char*>(label.data()), label.size()}};
        CK_OBJECT_HANDLE found = 0;
        CK_ULONG count = 0;
        check(f->C_FindObjectsInit(session, query, 2), "C_FindObjectsInit");
        check(f->C_FindObjects(session, &found, 1, &count), "C_FindObjects");
        check(f->C_FindObjectsFinal(session), "C_FindObjectsFinal");
        if (count == 0) {
            throw std::runtime_error("no key labelled \"" + label + "\" of class " +
                                     std::to_string(kind));
        }
        return found;
    }
    CryptoPP::Integer integer(CK_ATTRIBUTE_TYPE type) {
        CK_ATTRIBUTE attribute{type, nullptr, 0};
        check(f->C_GetAttributeValue(session, publicKey, &attribute, 1), "C_GetAttributeValue");
        Bytes value(attribute.ulValueLen);
        attribute.pValue = value.data();
        check(f->C_GetAttributeValue(session, publicKey, &attribute, 1), "C_GetAttributeValue");
        return CryptoPP::Integer(value.data(), value.size());
    }

    CK_OBJECT_HANDLE privateKey = 0, publicKey = 0;
    CryptoPP::RSA::PublicKey key;
    CryptoPP::AutoSeededRandomPool random;
};

// A message no other operation of this run or of another process signs.
Bytes message(const std::string& label, int index) {
    const std::string text =
        label + " message " + std::to_string(index) + " of process " + std::to_string(::getpid());
    return Bytes(text.begin(), text.end());
}

// What one operation returned, and the failure it met (empty when none).
struct Outcome {
    CK_RV rv;
    std::string failure;
};

// Runs count operations. Another program's release resets the card and so logs this one out:
// like any client, it logs in again once when told CKR_USER_NOT_LOGGED_IN.
int runMany(Client& client, const std::string& label, int count,
            const std::function<Outcome(const Bytes&)>& operation) {
    int failed = 0, logins = 0;
    for (int i = 0; i < count; ++i) {
        const Bytes text = message(label, i);
        Outcome outcome = operation(text);
        if (outcome.rv == CKR_USER_NOT_LOGGED_IN && client.login() == CKR_OK) {
            ++logins;
            outcome = operation(text);
        }
        if (!outcome.failure.empty()) {
            ++failed;
            std::cerr << label << ": operation " << i << ": " << outcome.failure << "\n";
        }
    }
    std::cout << label << ": " << failed << " of " << count << " failed, logged in again " << logins
              << " times\n";
    return failed;
}

Outcome signAndVerify(Client& client, const Bytes& text) {
    Bytes signature;
    const CK_RV rv = client.sign(text, signature);
    return {rv, rv != CKR_OK                        ? "C_Sign returned " + hex(rv)
                : !client.verifies(text, signature) ? "the signature does not verify under its key"
                                                    : ""};
}

Outcome encipherAndDecrypt(Client& client, const Bytes& text) {
    Bytes plain;
    const CK_RV rv = client.decrypt(client.encipher(text), plain);
    return {rv, rv != CKR_OK    ? "C_Decrypt returned " + hex(rv)
                : plain != text ? "the cryptogram deciphers to another plaintext"
                                : ""};
}

// Runs command while logged in, then checks the session is public again in one of two ways.
int surviveResets(Client& client, const std::string& command) {
    int failed = 0;
    auto expect = [&failed](bool holds, const std::string& what) {
        if (!holds) {
            ++failed;
            std::cerr << "after the other program's reset: " << what << "\n";
        }
    };
    Bytes text = message("reset", 0), signature;
    for (const bool signFirst : {false, true}) {
        expect(std::system(command.c_str()) == 0, "the other program failed: " + command);
        if (signFirst) {
            const CK_RV rv = client.sign(text, signature);
            expect(rv == CKR_USER_NOT_LOGGED_IN,
                   "C_Sign before C_Login returned " + hex(rv) + ", not CKR_USER_NOT_LOGGED_IN");
        } else {
            CK_SESSION_INFO info{};
            check(client.f->C_GetSessionInfo(client.session, &info), "C_GetSessionInfo");
            expect(info.state == CKS_RW_PUBLIC_SESSION || info.state == CKS_RO_PUBLIC_SESSION,
                   "C_GetSessionInfo reports state " + std::to_string(info.state) +
                       ", not a public one");
        }
        const CK_RV rv = client.login();
        expect(rv == CKR_OK, "C_Login returned " + hex(rv));
        const CK_RV signed_ = client.sign(text, signature);
        expect(signed_ == CKR_OK && client.verifies(text, signature),
               "C_Sign after C_Login returned " + hex(signed_) + " or a wrong signature");
    }
    std::cout << failed << " checks failed after the other program's resets\n";
    return failed;
}

} // namespace

int main(int argc, char** argv) {
    const std::string mode = argc == 4 ? argv[1] : "";
    if (mode != "sign" && mode != "decrypt" && mode != "reset") {
        std::cerr << "usage: p15-pkcs11-signer sign|decrypt LABEL N | reset LABEL COMMAND\n";
        return 2;
    }
    try {
        Client client(argv[2]);
        const auto operation = mode == "sign" ? signAndVerify : encipherAndDecrypt;
        const int failed =
            mode == "reset" ? surviveResets(client, argv[3])
                            : runMany(client, argv[2], std::atoi(argv[3]),
                                      [&](const Bytes& text) { return operation(client, text); });
        return failed == 0 ? 0 : 1;
    } catch (const std::exception& e) {
        std::cerr << argv[2] << ": " << e.what() << "\n";
        return 1;
    }
}

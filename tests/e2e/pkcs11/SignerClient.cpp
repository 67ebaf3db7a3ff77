// A PKCS#11 client, linked to the module, for the tests where programs share one card. It logs
// in with P15_TEST_PIN on the first slot holding a token and uses the key pair LABEL:
//   sign LABEL N     signs N distinct messages and verifies each in software;
//   decrypt LABEL N  deciphers N messages enciphered in software and compares the plaintexts;
//   reset LABEL COMMAND  twice runs COMMAND, resetting the card, while logged in: the session must
//       be public again (C_GetSessionInfo the first time, C_Sign returning CKR_USER_NOT_LOGGED_IN
//       the second), then C_Login and C_Sign work. Sign and decrypt, like any client, log in again
//       once when told CKR_USER_NOT_LOGGED_IN. Prints each failure; exit status 0 when none.
#include "pkcs11/Cryptoki.hpp"

#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
int failures = 0;

// What a call returned, as "C_Sign returned 0x00000101".
std::string returned(const std::string& call, CK_RV rv) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(rv));
    return call + " returned " + text;
}
void check(CK_RV rv, const std::string& call) {
    if (rv != CKR_OK) {
        throw std::runtime_error(returned(call, rv));
    }
}
#define CHECK(call) check(call, #call)
// Counts and prints a check that failed.
void expect(bool holds, const std::string& failure) {
    if (!holds) {
        ++failures;
        std::cerr << failure << "\n";
    }
}

struct Client {
    explicit Client(const std::string& label) {
        CK_SLOT_ID slots[16];
        CK_ULONG count = 16;
        CHECK(C_GetFunctionList(&f));
        CHECK(f->C_Initialize(nullptr));
        CHECK(f->C_GetSlotList(CK_TRUE, slots, &count));
        check(count ? CKR_OK : CKR_TOKEN_NOT_PRESENT, "C_GetSlotList, asked for a token,");
        CHECK(f->C_OpenSession(slots[0], CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                               &session));
        CHECK(login());
        privateKey = find(CKO_PRIVATE_KEY, label);
        CK_BYTE modulus[512], exponent[8];
        CK_ATTRIBUTE values[] = {{CKA_MODULUS, modulus, sizeof modulus},
                                 {CKA_PUBLIC_EXPONENT, exponent, sizeof exponent}};
        CHECK(f->C_GetAttributeValue(session, find(CKO_PUBLIC_KEY, label), values, 2));
        key.Initialize(CryptoPP::Integer(modulus, values[0].ulValueLen),
                       CryptoPP::Integer(exponent, values[1].ulValueLen));
    }
    ~Client() { f->C_Finalize(nullptr); }

    CK_RV login() {
        std::string pin = std::getenv("P15_TEST_PIN") ? std::getenv("P15_TEST_PIN") : "";
        return f->C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()),
                          pin.size());
    }
    // Signs text (SHA256_RSA_PKCS) and verifies the signature under the public key, or deciphers
    // (RSA_PKCS) a cryptogram of text made in software and compares the plaintext; a result
    // that does not check out is a failure `where`.
    CK_RV operate(bool signing, const std::string& message, const std::string& where) {
        const Bytes text(message.begin(), message.end());
        Bytes in = text, out(512);
        if (!signing) {
            CryptoPP::RSAES_PKCS1v15_Encryptor encryptor(key);
            in.resize(encryptor.CiphertextLength(text.size()));
            encryptor.Encrypt(random, text.data(), text.size(), in.data());
        }
        CK_MECHANISM mechanism{signing ? CKM_SHA256_RSA_PKCS : CKM_RSA_PKCS, nullptr, 0};
        CK_ULONG length = out.size();
        CK_RV rv = (signing ? f->C_SignInit : f->C_DecryptInit)(session, &mechanism, privateKey);
        if (rv == CKR_OK) {
            rv = (signing ? f->C_Sign : f->C_Decrypt)(session, in.data(), in.size(), out.data(),
                                                      &length);
        }
        out.resize(length);
        CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Verifier verifier(key);
        expect(rv != CKR_OK || (signing ? out.size() == verifier.SignatureLength() &&
                                              verifier.VerifyMessage(text.data(), text.size(),
                                                                     out.data(), out.size())
                                        : out == text),
               where + (signing ? "the signature does not verify under its key"
                                : "the cryptogram deciphers to another plaintext"));
        return rv;
    }

    CK_OBJECT_HANDLE find(CK_OBJECT_CLASS kind, const std::string& label) {
        CK_ATTRIBUTE query[] = {{CKA_CLASS, &kind, sizeof kind},
                                {CKA_LABEL, const_cast<char*>(label.data()), label.size()}};
        CK_OBJECT_HANDLE found = 0;
        CK_ULONG count = 0;
        CHECK(f->C_FindObjectsInit(session, query, 2));
        CHECK(f->C_FindObjects(session, &found, 1, &count));
        CHECK(f->C_FindObjectsFinal(session));
        check(count ? CKR_OK : CKR_KEY_HANDLE_INVALID, "C_FindObjects for \"" + label + "\"");
        return found;
    }
    CK_FUNCTION_LIST_PTR f = nullptr;
    CK_SESSION_HANDLE session = 0;
    CK_OBJECT_HANDLE privateKey = 0;
    CryptoPP::RSA::PublicKey key;
    CryptoPP::AutoSeededRandomPool random;
};

void runMany(Client& client, bool signing, const std::string& label, int count) {
    int logins = 0;
    for (int i = 0; i < count; ++i) {
        const std::string text = label + " message " + std::to_string(i); // no two alike
        const std::string where = label + ": operation " + std::to_string(i) + ": ";
        CK_RV rv = client.operate(signing, text, where);
        if (rv == CKR_USER_NOT_LOGGED_IN && client.login() == CKR_OK) {
            ++logins;
            rv = client.operate(signing, text, where);
        }
        expect(rv == CKR_OK, where + returned(signing ? "C_Sign" : "C_Decrypt", rv));
    }
    std::cout << label << ": " << failures << " of " << count << " failed, logged in again "
              << logins << " times\n";
}

void surviveResets(Client& client, const std::string& command) {
    const std::string text = "signed after a reset";
    for (const bool signFirst : {false, true}) {
        expect(std::system(command.c_str()) == 0, "the other program failed: " + command);
        CK_SESSION_INFO info{};
        const CK_RV rv = signFirst ? client.operate(true, text, "after a reset: ")
                                   : client.f->C_GetSessionInfo(client.session, &info);
        expect(signFirst ? rv == CKR_USER_NOT_LOGGED_IN
                         : rv == CKR_OK && (info.state == CKS_RW_PUBLIC_SESSION ||
                                            info.state == CKS_RO_PUBLIC_SESSION),
               "after a reset, " + returned(signFirst ? "C_Sign" : "C_GetSessionInfo", rv) +
                   ", state " + std::to_string(info.state));
        expect(client.login() == CKR_OK && client.operate(true, text, "after C_Login: ") == CKR_OK,
               "after a reset, C_Login or C_Sign failed");
    }
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
        if (mode == "reset") {
            surviveResets(client, argv[3]);
        } else {
            runMany(client, mode == "sign", argv[2], std::atoi(argv[3]));
        }
        return failures == 0 ? 0 : 1;
    } catch (const std::exception& e) {
        std::cerr << argv[2] << ": " << e.what() << "\n";
        return 1;
    }
}

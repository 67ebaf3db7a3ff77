#include "cryptoapi/detail/Algorithms.hpp"

#include "cryptoapi/Provider.hpp"
#include "mw/Exception.hpp"

#define CRYPTOPP_ENABLE_NAMESPACE_WEAK 1
#include <cryptopp/md2.h>
#include <cryptopp/md5.h>
#include <cryptopp/ripemd.h>
#include <cryptopp/sha.h>

#include <cstring>

namespace cryptoapi {

const char* const providerName = "cryptoapi";

namespace detail {

const std::string rsaEncryptionOid = "1.2.840.113549.1.1.1";
// The RSA algorithm of X.500 (id-ea-rsa).
const std::string rsaKeyFactoryOid = "2.5.8.1.1";

// The tables hold plain text, so that they are ready before any dynamic
// initialisation runs.

namespace {

template <class Hash> std::unique_ptr<CryptoPP::HashTransformation> make() {
    return std::make_unique<Hash>();
}

struct DigestAlgorithm {
    const char* oid;
    std::unique_ptr<CryptoPP::HashTransformation> (*create)();
};

const DigestAlgorithm digests[] = {
    {"1.2.840.113549.2.2", make<CryptoPP::Weak::MD2>},
    {"1.2.840.113549.2.5", make<CryptoPP::Weak::MD5>},
    {"1.3.36.3.2.2", make<CryptoPP::RIPEMD128>},
    {"1.3.36.3.2.1", make<CryptoPP::RIPEMD160>},
    {"1.3.14.3.2.26", make<CryptoPP::SHA1>},
    {"2.16.840.1.101.3.4.2.4", make<CryptoPP::SHA224>},
    {"2.16.840.1.101.3.4.2.1", make<CryptoPP::SHA256>},
    {"2.16.840.1.101.3.4.2.2", make<CryptoPP::SHA384>},
    {"2.16.840.1.101.3.4.2.3", make<CryptoPP::SHA512>},
};

const SignatureAlgorithm signatures[] = {
    {"1.2.840.113549.1.1.1", "", false},
    {"1.2.840.113549.1.1.2", "1.2.840.113549.2.2", false},
    {"1.2.840.113549.1.1.4", "1.2.840.113549.2.5", false},
    {"1.3.36.3.3.1.3", "1.3.36.3.2.2", false},
    {"1.3.36.3.3.1.2", "1.3.36.3.2.1", false},
    {"1.2.840.113549.1.1.5", "1.3.14.3.2.26", false},
    {"1.2.840.113549.1.1.14", "2.16.840.1.101.3.4.2.4", false},
    {"1.2.840.113549.1.1.11", "2.16.840.1.101.3.4.2.1", false},
    {"1.2.840.113549.1.1.12", "2.16.840.1.101.3.4.2.2", false},
    {"1.2.840.113549.1.1.13", "2.16.840.1.101.3.4.2.3", false},
    // PSS with SHA-1 or SHA-224 is not offered.
    {"1.2.840.113549.1.1.10/2.16.840.1.101.3.4.2.1", "2.16.840.1.101.3.4.2.1", true},
    {"1.2.840.113549.1.1.10/2.16.840.1.101.3.4.2.2", "2.16.840.1.101.3.4.2.2", true},
    {"1.2.840.113549.1.1.10/2.16.840.1.101.3.4.2.3", "2.16.840.1.101.3.4.2.3", true},
};

} // namespace

bool isOwnProvider(const char* provider) {
    return provider == nullptr || *provider == '\0' || std::strcmp(provider, providerName) == 0;
}

std::unique_ptr<CryptoPP::HashTransformation> createHash(const std::string& digestOid) {
    for (const DigestAlgorithm& digest : digests) {
        if (digestOid == digest.oid) {
            return digest.create();
        }
    }
    return nullptr;
}

const SignatureAlgorithm* findSignature(const std::string& identifier) {
    for (const SignatureAlgorithm& signature : signatures) {
        if (identifier == signature.oid) {
            return &signature;
        }
    }
    return nullptr;
}

void requireBytes(const unsigned char* data, std::size_t length, const char* what) {
    if (data == nullptr && length != 0) {
        MW_THROW(mw::IllegalArgumentException, std::string(what) + " is a null pointer");
    }
}

} // namespace detail
} // namespace cryptoapi

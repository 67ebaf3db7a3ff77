#ifndef TESTS_UNIT_CRYPTOAPI_TESTKEY_HPP
#define TESTS_UNIT_CRYPTOAPI_TESTKEY_HPP

#include "cryptoapi/PublicKey.hpp"
#include "mw/AutoPtr.hpp"

#include <cryptopp/rsa.h>

#include <string>
#include <vector>

namespace cryptoapi_test {

using Bytes = std::vector<unsigned char>;

// One 1024-bit key pair per test run, and its public half made through the
// provider's RSA key factory.
const CryptoPP::InvertibleRSAFunction& testKey();
mw::AutoPtr<cryptoapi::PublicKey> publicTestKey();

Bytes bytesOf(const std::string& text);
Bytes fromHex(const std::string& hex);

} // namespace cryptoapi_test

#endif

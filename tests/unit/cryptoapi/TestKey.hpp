#ifndef TESTS_UNIT_CRYPTOAPI_TESTKEY_HPP
#define TESTS_UNIT_CRYPTOAPI_TESTKEY_HPP

#include "cryptoapi/PublicKey.hpp"
#include "mw/AutoPtr.hpp"

#include <cryptopp/rsa.h>

#include <string>
#include <vector>

namespace cryptoapi_test {

using Bytes = std::vector<unsigned char>;

// One key pair per size and test run, 1024 bits unless said, and its public
// half made through the provider's RSA key factory.
const CryptoPP::InvertibleRSAFunction& testKey(unsigned int bits = 1024);
mw::AutoPtr<cryptoapi::PublicKey> publicTestKey(unsigned int bits = 1024);

Bytes bytesOf(const std::string& text);
Bytes fromHex(const std::string& hex);

} // namespace cryptoapi_test

#endif

#include "TestKey.hpp"

#include "cryptoapi/KeyFactory.hpp"
#include "cryptoapi/RSAPublicKeySpec.hpp"
#include "mw/Hex.hpp"

#include <cryptopp/osrng.h>

#include <map>

namespace cryptoapi_test {

const CryptoPP::InvertibleRSAFunction& testKey(unsigned int bits) {
    static std::map<unsigned int, CryptoPP::InvertibleRSAFunction> keys;
    auto found = keys.find(bits);
    if (found == keys.end()) {
        CryptoPP::AutoSeededRandomPool random;
        found = keys.emplace(bits, CryptoPP::InvertibleRSAFunction()).first;
        found->second.GenerateRandomWithKeySize(random, bits);
    }
    return found->second;
}

namespace {

Bytes encoded(const CryptoPP::Integer& value) {
    Bytes bytes(value.MinEncodedSize());
    value.Encode(bytes.data(), bytes.size());
    return bytes;
}

} // namespace

mw::AutoPtr<cryptoapi::PublicKey> publicTestKey(unsigned int bits) {
    const Bytes modulus = encoded(testKey(bits).GetModulus());
    const Bytes exponent = encoded(testKey(bits).GetPublicExponent());
    const mw::AutoPtr<cryptoapi::KeyFactory> factory(
        cryptoapi::KeyFactory::getInstance("2.5.8.1.1"));
    return mw::AutoPtr<cryptoapi::PublicKey>(factory->generatePublic(cryptoapi::RSAPublicKeySpec(
        modulus.data(), modulus.size(), exponent.data(), exponent.size())));
}

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

Bytes fromHex(const std::string& hex) {
    const mw::ByteBuffer bytes = mw::fromHex(hex);
    return Bytes(bytes.begin(), bytes.end());
}

} // namespace cryptoapi_test

#include "TestKey.hpp"

#include "cryptoapi/KeyFactory.hpp"
#include "cryptoapi/RSAPublicKeySpec.hpp"
#include "mw/Hex.hpp"

#include <cryptopp/osrng.h>

namespace cryptoapi_test {

const CryptoPP::InvertibleRSAFunction& testKey() {
    static const CryptoPP::InvertibleRSAFunction key = [] {
        CryptoPP::AutoSeededRandomPool random;
        CryptoPP::InvertibleRSAFunction generated;
        generated.GenerateRandomWithKeySize(random, 1024);
        return generated;
    }();
    return key;
}

namespace {

Bytes encoded(const CryptoPP::Integer& value) {
    Bytes bytes(value.MinEncodedSize());
    value.Encode(bytes.data(), bytes.size());
    return bytes;
}

} // namespace

mw::AutoPtr<cryptoapi::PublicKey> publicTestKey() {
    const Bytes modulus = encoded(testKey().GetModulus());
    const Bytes exponent = encoded(testKey().GetPublicExponent());
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

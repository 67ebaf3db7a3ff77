#include "TestKeys.hpp"

#include <boost/make_shared.hpp>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>

namespace hosttest {

using namespace card::service;

SecurityConditionPtr always() {
    return boost::make_shared<AlwaysSecurityCondition>();
}

SecurityConditionPtr pinVerified(unsigned char reference) {
    PinReference pin;
    pin.reference = reference;
    return boost::make_shared<PinRefSecurityCondition>(pin);
}

AccessConditions grant(unsigned short modes, SecurityConditionPtr condition) {
    return {AccessCondition{modes, std::move(condition)}};
}

KeyRef keyRef(unsigned char kid, unsigned short bits, unsigned char filePrefix) {
    KeyRef key;
    key.keyReference = static_cast<unsigned char>(0x80 | kid);
    key.modulusBits = bits;
    key.fileId = mw::ByteBuffer{filePrefix, kid};
    return key;
}

CryptoPP::Integer toInteger(const mw::ByteBuffer& bytes) {
    return CryptoPP::Integer(bytes.data(), bytes.size());
}

mw::ByteBuffer toBytes(const CryptoPP::Integer& value, std::size_t length) {
    mw::ByteBuffer bytes(length);
    value.Encode(bytes.data(), length);
    return bytes;
}

bool isPkcs1Signature(const card::crypto::spec::RsaPublicKeySpec& key, const mw::ByteBuffer& data,
                      const mw::ByteBuffer& signature) {
    const CryptoPP::Integer n = toInteger(key.getModulus());
    const CryptoPP::Integer e = toInteger(key.getPublicExponent());
    const std::size_t k = n.ByteCount();
    const mw::ByteBuffer block = toBytes(a_exp_b_mod_c(toInteger(signature), e, n), k);
    mw::ByteBuffer expected(k);
    expected.data()[1] = 0x01;
    std::fill(expected.begin() + 2, expected.end() - data.size() - 1, 0xFF);
    std::copy(data.begin(), data.end(), expected.end() - data.size());
    return signature.size() == k && block == expected;
}

mw::ByteBuffer encipher(const card::crypto::spec::RsaPublicKeySpec& key,
                        const mw::ByteBuffer& message) {
    CryptoPP::RSA::PublicKey publicKey;
    publicKey.Initialize(toInteger(key.getModulus()), toInteger(key.getPublicExponent()));
    CryptoPP::RSAES_PKCS1v15_Encryptor encryptor(publicKey);
    CryptoPP::AutoSeededRandomPool rng;
    mw::ByteBuffer cryptogram(encryptor.CiphertextLength(message.size()));
    encryptor.Encrypt(rng, message.data(), message.size(), cryptogram.data());
    return cryptogram;
}

} // namespace hosttest

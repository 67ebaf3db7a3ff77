#include "TestKeys.hpp"

#include "CardFixture.hpp"

#include <boost/make_shared.hpp>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>

namespace hosttest {

using namespace card::service;

SecurityConditionPtr always() {
    return boost::make_shared<AlwaysSecurityCondition>();
}

SecurityConditionPtr pinVerified(unsigned char reference) {
    return boost::make_shared<PinRefSecurityCondition>(pinReference(reference));
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

mw::ByteBuffer encipher(const card::crypto::spec::RsaPublicKeySpec& key,
                        const mw::ByteBuffer& message) {
    const auto integer = [](const mw::ByteBuffer& bytes) {
        return CryptoPP::Integer(bytes.data(), bytes.size());
    };
    CryptoPP::RSA::PublicKey publicKey;
    publicKey.Initialize(integer(key.getModulus()), integer(key.getPublicExponent()));
    CryptoPP::RSAES_PKCS1v15_Encryptor encryptor(publicKey);
    CryptoPP::AutoSeededRandomPool rng;
    mw::ByteBuffer cryptogram(encryptor.CiphertextLength(message.size()));
    encryptor.Encrypt(rng, message.data(), message.size(), cryptogram.data());
    return cryptogram;
}

} // namespace hosttest

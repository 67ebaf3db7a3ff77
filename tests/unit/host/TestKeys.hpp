#ifndef TESTS_UNIT_HOST_TESTKEYS_HPP
#define TESTS_UNIT_HOST_TESTKEYS_HPP

// What the card layer's tests build and check besides CardFixture's card: access conditions, key
// references, a cryptogram made in software, the details of card exceptions.

#include "CardFixture.hpp"
#include "card/CardException.hpp"
#include "card/crypto/spec/KeySpec.hpp"
#include "card/service/FileCreationParams.hpp"

#include <boost/exception/get_error_info.hpp>
#include <boost/make_shared.hpp>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <string>

namespace hosttest {

inline card::service::SecurityConditionPtr always() {
    return boost::make_shared<card::service::AlwaysSecurityCondition>();
}
inline card::service::SecurityConditionPtr pinVerified(unsigned char reference) {
    return boost::make_shared<card::service::PinRefSecurityCondition>(pinReference(reference));
}
inline card::service::AccessConditions grant(unsigned short modes,
                                             card::service::SecurityConditionPtr condition) {
    return {card::service::AccessCondition{modes, std::move(condition)}};
}

inline card::service::KeyRef keyRef(unsigned char kid, unsigned short bits,
                                    unsigned char filePrefix) {
    card::service::KeyRef key;
    key.keyReference = static_cast<unsigned char>(0x80 | kid);
    key.modulusBits = bits;
    key.fileId = mw::ByteBuffer{filePrefix, kid};
    return key;
}

// `message` enciphered with PKCS#1 v1.5 (block type 2) under the public key.
inline mw::ByteBuffer encipher(const card::crypto::spec::RsaPublicKeySpec& key,
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

// What the card exception that `work` throws carries as `Info`: "(none)" when it carries none,
// "" when `work` throws none.
template <class Info, class Work> std::string errorInfo(const Work& work) {
    try {
        work();
    } catch (const card::CardException& e) {
        const auto* value = boost::get_error_info<Info>(e);
        return value ? std::string(*value) : "(none)";
    }
    return "";
}

} // namespace hosttest

#endif

#include "cryptoapi/RSAPublicKey.hpp"

#include "cryptoapi/detail/Algorithms.hpp"

#include <cryptopp/queue.h>
#include <cryptopp/rsa.h>

namespace cryptoapi {

namespace {

mw::ByteBuffer unsignedBytes(const CryptoPP::Integer& value) {
    mw::ByteBuffer bytes(value.MinEncodedSize());
    value.Encode(bytes.data(), bytes.size());
    return bytes;
}

} // namespace

RSAPublicKey::RSAPublicKey(const CryptoPP::RSAFunction& function)
    : function_(std::make_unique<CryptoPP::RSAFunction>(function)) {}

RSAPublicKey::~RSAPublicKey() = default;

const std::string& RSAPublicKey::getAlgorithm() const {
    return detail::rsaKeyFactoryOid;
}

mw::ByteBuffer RSAPublicKey::getEncoded() const {
    CryptoPP::ByteQueue der;
    function_->DEREncode(der);
    mw::ByteBuffer bytes(static_cast<std::size_t>(der.MaxRetrievable()));
    der.Get(bytes.data(), bytes.size());
    return bytes;
}

mw::ByteBuffer RSAPublicKey::getModulus() const {
    return unsignedBytes(function_->GetModulus());
}

mw::ByteBuffer RSAPublicKey::getPublicExponent() const {
    return unsignedBytes(function_->GetPublicExponent());
}

} // namespace cryptoapi

#include "vcard/RsaKey.hpp"

#include "vcard/StatusWord.hpp"
#include "vcard/Tlv.hpp"

#include <cryptopp/integer.h>
#include <cryptopp/nbtheory.h>

namespace vcard {

using CryptoPP::Integer;

namespace {

Bytes toBytes(const Integer& value, std::size_t size) {
    Bytes out(size);
    value.Encode(out.data(), out.size());
    return out;
}

Bytes toBytes(const Integer& value) {
    return toBytes(value, value.MinEncodedSize());
}

Integer toInteger(const Bytes& bytes) {
    return Integer(bytes.data(), bytes.size());
}

} // namespace

RsaCrtComponents::~RsaCrtComponents() {
    for (Bytes* part : {&e, &p, &q, &qInv, &dp, &dq})
        wipe(*part);
}

RsaKey RsaKey::generate(CryptoPP::RandomNumberGenerator& rng, unsigned bits) {
    RsaKey key;
    key.function_.Initialize(rng, bits, Integer(65537));
    key.hasPrivate_ = true;
    return key;
}

RsaKey RsaKey::fromCrt(CryptoPP::RandomNumberGenerator& rng, const RsaCrtComponents& crt,
                       unsigned bits) {
    const Integer e = toInteger(crt.e), p = toInteger(crt.p), q = toInteger(crt.q);
    const Integer qInv = toInteger(crt.qInv), dp = toInteger(crt.dp), dq = toInteger(crt.dq);
    // Sizes first: the arithmetic below takes time that grows with the components.
    const unsigned pBits = p.BitCount(), qBits = q.BitCount();
    if (pBits + qBits < bits || pBits + qBits > bits + 1 || e.BitCount() > bits ||
        qInv.BitCount() > pBits || dp.BitCount() > pBits || dq.BitCount() > qBits)
        throw CardError(sw::wrongData);
    if (p <= Integer::One() || q <= Integer::One() || e <= Integer::One() || p == q)
        throw CardError(sw::wrongData);
    const Integer n = p * q;
    const Integer p1 = p - 1, q1 = q - 1;
    const Integer lambda = CryptoPP::LCM(p1, q1);
    if (n.BitCount() != bits || CryptoPP::GCD(e, lambda) != Integer::One())
        throw CardError(sw::wrongData);
    const Integer d = e.InverseMod(lambda);
    if (d % p1 != dp || d % q1 != dq || (q * qInv) % p != Integer::One())
        throw CardError(sw::wrongData);
    RsaKey key;
    key.function_.Initialize(n, e, d, p, q, dp, dq, qInv);
    key.hasPrivate_ = true;
    if (!isValid(rng, key.function_, true))
        throw CardError(sw::wrongData);
    return key;
}

bool RsaKey::isValid(CryptoPP::RandomNumberGenerator& rng,
                     const CryptoPP::InvertibleRSAFunction& function, bool hasPrivate) {
    return hasPrivate ? function.Validate(rng, 1)
                      : function.CryptoPP::RSAFunction::Validate(rng, 1);
}

RsaKey RsaKey::fromFunction(const CryptoPP::InvertibleRSAFunction& function, bool hasPrivate) {
    RsaKey key;
    key.function_ = function;
    key.hasPrivate_ = hasPrivate;
    return key;
}

RsaKey RsaKey::publicPart() const {
    RsaKey key;
    key.function_.SetModulus(function_.GetModulus());
    key.function_.SetPublicExponent(function_.GetPublicExponent());
    return key;
}

unsigned RsaKey::bits() const {
    return function_.GetModulus().BitCount();
}

Bytes RsaKey::modulus() const {
    return toBytes(function_.GetModulus(), modulusBytes());
}

Bytes RsaKey::exponent() const {
    return toBytes(function_.GetPublicExponent());
}

Bytes RsaKey::publicKeyTemplate() const {
    Bytes inner;
    appendTlv(inner, 0x81, modulus());
    appendTlv(inner, 0x82, exponent());
    Bytes out;
    appendTlv(out, 0x7F49, inner);
    return out;
}

Bytes RsaKey::privateOperation(CryptoPP::RandomNumberGenerator& rng, const Bytes& block) const {
    const std::size_t k = modulusBytes();
    const Integer value = toInteger(block);
    if (block.size() != k || value >= function_.GetModulus())
        throw CardError(sw::wrongData);
    return toBytes(function_.CalculateInverse(rng, value), k);
}

} // namespace vcard

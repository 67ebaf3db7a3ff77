#include "card/crypto/spec/RsaPrivateCrtKeySpec.hpp"

#include "app/ApplicationException.hpp"

namespace card {
namespace crypto {
namespace spec {

namespace {

// Bytes of a big-endian unsigned number without its leading zero bytes.
std::size_t significantBytes(const mw::ByteBuffer& number) {
    std::size_t leadingZeros = 0;
    while (leadingZeros < number.size() && number.get(leadingZeros) == 0) {
        ++leadingZeros;
    }
    return number.size() - leadingZeros;
}

// A prime or CRT value of a modulus of `modulusBits` is at most half as
// wide, and never zero.
bool fitsHalfModulus(const mw::ByteBuffer& component, unsigned short modulusBits) {
    const std::size_t bytes = significantBytes(component);
    return bytes != 0 && bytes <= (modulusBits / 2 + 7u) / 8;
}

} // namespace

RsaPrivateCrtKeySpec::RsaPrivateCrtKeySpec(unsigned short modulusBits,
                                           mw::ByteBuffer publicExponent, mw::ByteBuffer p,
                                           mw::ByteBuffer q, mw::ByteBuffer dp, mw::ByteBuffer dq,
                                           mw::ByteBuffer pInv, mw::ByteBuffer qInv)
    : modulusBits_(modulusBits)
    , publicExponent_(std::move(publicExponent))
    , p_(std::move(p))
    , q_(std::move(q))
    , dp_(std::move(dp))
    , dq_(std::move(dq))
    , pInv_(std::move(pInv))
    , qInv_(std::move(qInv)) {
    if (!fitsHalfModulus(p_, modulusBits)) {
        APP_THROW(app::InvalidDataException, "invalid crt component size: p");
    }
    if (!fitsHalfModulus(q_, modulusBits)) {
        APP_THROW(app::InvalidDataException, "invalid crt component size: q");
    }
    if (!fitsHalfModulus(dp_, modulusBits) || !fitsHalfModulus(dq_, modulusBits)) {
        APP_THROW(app::InvalidDataException, "invalid crt component size: dp");
    }
    if (!fitsHalfModulus(pInv_, modulusBits)) {
        APP_THROW(app::InvalidDataException, "invalid crt component size: p_inv");
    }
    if (!fitsHalfModulus(qInv_, modulusBits)) {
        APP_THROW(app::InvalidDataException, "invalid crt component size: q_inv");
    }
}

} // namespace spec
} // namespace crypto
} // namespace card

#include "card/crypto/spec/RsaPrivateCrtKeySpec.hpp"

#include "app/ApplicationException.hpp"

#include <utility>

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
    const std::pair<const mw::ByteBuffer&, const char*> components[] = {
        {p_, "invalid crt component size: p"},        {q_, "invalid crt component size: q"},
        {dp_, "invalid crt component size: dp"},      {dq_, "invalid crt component size: dq"},
        {pInv_, "invalid crt component size: p_inv"}, {qInv_, "invalid crt component size: q_inv"}};
    for (const auto& [component, refusal] : components) {
        if (!fitsHalfModulus(component, modulusBits)) {
            APP_THROW(app::InvalidDataException, refusal);
        }
    }
}

} // namespace spec
} // namespace crypto
} // namespace card

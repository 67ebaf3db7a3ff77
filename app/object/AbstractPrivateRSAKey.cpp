#include "app/object/AbstractPrivateRSAKey.hpp"

#include "app/ApplicationException.hpp"

#include <cryptopp/integer.h>

namespace app {
namespace object {

namespace {

// A big integer whose words are overwritten with zeros before release.
class WipedInteger {
public:
    explicit WipedInteger(const mw::ByteBuffer& bigEndian)
        : value_(bigEndian.data(), bigEndian.size(), CryptoPP::Integer::UNSIGNED) {}
    explicit WipedInteger(CryptoPP::Integer value)
        : value_(std::move(value)) {}
    ~WipedInteger() {
        const std::size_t bytes = value_.ByteCount();
        for (std::size_t i = 0; i < bytes; ++i) {
            value_.SetByte(i, 0);
        }
    }
    WipedInteger(const WipedInteger&) = delete;
    WipedInteger& operator=(const WipedInteger&) = delete;
    const CryptoPP::Integer& get() const { return value_; }

private:
    CryptoPP::Integer value_;
};

} // namespace

bool isSupportedModulusSize(unsigned int bits) {
    return bits == 1024 || bits == 1536 || bits == 2048;
}

void AbstractPrivateRSAKey::setModulusLength(std::uint16_t bits) {
    if (!isSupportedModulusSize(bits)) {
        APP_THROW_DATA(InvalidDataException, "invalid modulus size", bits);
    }
    modulusLength_.set(bits);
}

void AbstractPrivateRSAKey::setPublicExponent(const mw::ByteBuffer& exponent) {
    if (exponent.size() != 3) {
        APP_THROW_DATA(InvalidDataException, "invalid public exponent size", exponent.size());
    }
    publicExponent_.set(exponent);
}

void AbstractPrivateRSAKey::setCrtComponents(const mw::ByteBuffer& p, const mw::ByteBuffer& q,
                                             const mw::ByteBuffer& dp, const mw::ByteBuffer& dq,
                                             const mw::ByteBuffer& pInv,
                                             const mw::ByteBuffer& qInv) {
    unsigned int bits = 0;
    {
        const WipedInteger primeP(p);
        const WipedInteger primeQ(q);
        const WipedInteger modulus(primeP.get() * primeQ.get());
        bits = modulus.get().BitCount();
    }
    if (!isSupportedModulusSize(bits)) {
        APP_THROW_DATA(InvalidDataException, "invalid modulus size", bits);
    }
    const mw::ByteBuffer* components[] = {&p, &q, &dp, &dq, &pInv, &qInv};
    for (std::size_t i = 0; i < crt_.size(); ++i) {
        crt_[i].set(*components[i]);
    }
    modulusLength_.set(static_cast<std::uint16_t>(bits));
}

bool AbstractPrivateRSAKey::isKeyMaterialTouched() const {
    for (const auto& component : crt_) {
        if (component.isTouched()) {
            return true;
        }
    }
    return publicExponent_.isTouched();
}

bool AbstractPrivateRSAKey::isTouched() const {
    return AbstractPrivateKey::isTouched() || modulusLength_.isTouched() ||
           isKeyMaterialTouched() || keyValueReference_.isTouched();
}

void AbstractPrivateRSAKey::clearTouched() const {
    AbstractPrivateKey::clearTouched();
    modulusLength_.clearTouched();
    publicExponent_.clearTouched();
    for (const auto& component : crt_) {
        component.clearTouched();
    }
    keyValueReference_.clearTouched();
}

} // namespace object
} // namespace app

// The checks RSA keys make on what the host sets, before anything reaches a card.
#include "app/ApplicationException.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

namespace {

using app::pkcs15::object::P15RsaPrivateKey;
using app::pkcs15::object::P15RsaPublicKey;

// The text and number of the application exception `statement` throws.
template <class Statement> std::pair<std::string, unsigned int> failureOf(Statement statement) {
    try {
        statement();
    } catch (const app::ApplicationException& e) {
        const char* const* text = boost::get_error_info<app::ErrorText>(e);
        const unsigned int* data = boost::get_error_info<app::ErrorData>(e);
        return {text ? *text : "", data ? *data : 0};
    }
    return {"no failure", 0};
}

using Failure = std::pair<std::string, unsigned int>;

mw::ByteBuffer filled(std::size_t size, unsigned char first, unsigned char rest) {
    mw::ByteBuffer bytes(size);
    std::fill(bytes.begin(), bytes.end(), rest);
    bytes.data()[0] = first;
    return bytes;
}

TEST(RsaKeyModel, ModulusLengthAndExponentSizesAreChecked) {
    P15RsaPrivateKey key{boost::weak_ptr<const app::pkcs15::fs::PrKDF>()};
    key.setModulusLength(2048);
    EXPECT_EQ(failureOf([&] { key.setModulusLength(4096); }),
              Failure("invalid modulus size", 4096));
    EXPECT_EQ(failureOf([&] { key.setModulusLength(1000); }),
              Failure("invalid modulus size", 1000));
    EXPECT_EQ(key.getModulusLength(), 2048) << "a failed setter changes nothing";

    key.setPublicExponent(mw::ByteBuffer{0x01, 0x00, 0x01});
    EXPECT_EQ(failureOf([&] {
                  key.setPublicExponent(mw::ByteBuffer{0x01, 0x00, 0x00, 0x01});
              }),
              Failure("invalid public exponent size", 4));
    EXPECT_EQ(key.getPublicExponent(), (mw::ByteBuffer{0x01, 0x00, 0x01}));
}

TEST(RsaKeyModel, TheModulusLengthComesFromTheProductOfThePrimes) {
    P15RsaPrivateKey key{boost::weak_ptr<const app::pkcs15::fs::PrKDF>()};
    const mw::ByteBuffer p = filled(64, 0xC0, 0x01), q = filled(64, 0xF0, 0x03);
    const mw::ByteBuffer dp{1}, dq{2}, pInv{3}, qInv{4};
    key.setCrtComponents(p, q, dp, dq, pInv, qInv);
    EXPECT_EQ(key.getModulusLength(), 1024);
    EXPECT_EQ(key.getQ(), q);
    EXPECT_EQ(key.getQInv(), qInv);

    // Top bits clear: the product has 1021 bits.
    const mw::ByteBuffer small = filled(64, 0x40, 0x01);
    EXPECT_EQ(failureOf([&] { key.setCrtComponents(small, small, qInv, pInv, dq, dp); }),
              Failure("invalid modulus size", 1021));
    EXPECT_EQ(key.getP(), p) << "nothing is stored from a refused set";
    EXPECT_EQ(key.getDp(), dp);

    const mw::ByteBuffer wide = filled(128, 0xFF, 0x01);
    key.setCrtComponents(wide, wide, dp, dq, pInv, qInv);
    EXPECT_EQ(key.getModulusLength(), 2048);
}

TEST(RsaKeyModel, APublicModulusIsSizedByItsBytes) {
    P15RsaPublicKey key{boost::weak_ptr<const app::pkcs15::fs::PuKDF>()};
    const mw::ByteBuffer full = filled(256, 0x80, 0x00);
    key.setModulus(full);
    EXPECT_EQ(failureOf([&] { key.setModulus(filled(255, 0x80, 0x00)); }),
              Failure("invalid modulus size", 2040));
    EXPECT_EQ(key.getModulus(), full);
}

TEST(RsaKeyModel, ANewEntryCarriesNoKeyReferenceZeroAndNoKeyInfo) {
    P15RsaPublicKey key{boost::weak_ptr<const app::pkcs15::fs::PuKDF>()};
    key.setLabel("k");
    key.setModulusLength(1024);
    const auto entry = key.encodePublicKeyType();
    EXPECT_FALSE(entry.publicRSAKeyValue.classAttributes.keyReference);
    EXPECT_FALSE(entry.publicRSAKeyValue.typeAttributes.keyInfo);
    EXPECT_EQ(entry.publicRSAKeyValue.typeAttributes.modulusLength, 1024);
}

} // namespace

#include "card/crypto/spec/RsaPrivateCrtKeySpec.hpp"
#include "app/ApplicationException.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

namespace {

using card::crypto::spec::RsaPrivateCrtKeySpec;
using mw::ByteBuffer;

ByteBuffer filled(std::size_t length) {
    ByteBuffer bytes(length);
    std::fill(bytes.begin(), bytes.end(), 0xC3);
    return bytes;
}

// Builds a 1024-bit spec whose components are 64 bytes except those given.
struct Components {
    ByteBuffer p = filled(64), q = filled(64), dp = filled(64), dq = filled(64), pInv = filled(64),
               qInv = filled(64);

    RsaPrivateCrtKeySpec build() const {
        return RsaPrivateCrtKeySpec(1024, {0x01, 0x00, 0x01}, p, q, dp, dq, pInv, qInv);
    }
};

std::string failureOf(const Components& components) {
    try {
        components.build();
    } catch (const app::InvalidDataException& e) {
        const char* const* text = boost::get_error_info<app::ErrorText>(e);
        return text ? *text : "(no text)";
    }
    return "";
}

TEST(RsaPrivateCrtKeySpecTest, EachComponentIsCheckedAgainstHalfTheModulus) {
    EXPECT_EQ(failureOf(Components{}), "");
    ByteBuffer signedEncoding{0x00}; // leading zero bytes do not count
    signedEncoding.append(filled(64));
    const struct {
        ByteBuffer Components::*field;
        ByteBuffer value;
        const char* failure;
    } cases[] = {
        {&Components::p, signedEncoding, ""},
        {&Components::p, filled(65), "invalid crt component size: p"},
        {&Components::q, ByteBuffer(), "invalid crt component size: q"},
        {&Components::dq, filled(65), "invalid crt component size: dp"},
        {&Components::pInv, filled(100), "invalid crt component size: p_inv"},
        {&Components::qInv, ByteBuffer(64), "invalid crt component size: q_inv"},
    };
    for (const auto& c : cases) {
        Components components;
        components.*c.field = c.value;
        EXPECT_EQ(failureOf(components), c.failure);
    }
}

} // namespace

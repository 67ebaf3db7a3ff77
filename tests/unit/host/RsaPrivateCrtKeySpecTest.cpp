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
    Components components;
    EXPECT_EQ(failureOf(components), "");
    EXPECT_EQ(components.build().getQ(), filled(64));

    Components wideP;
    wideP.p = filled(65);
    EXPECT_EQ(failureOf(wideP), "invalid crt component size: p");
    Components emptyQ;
    emptyQ.q = ByteBuffer();
    EXPECT_EQ(failureOf(emptyQ), "invalid crt component size: q");
    Components wideDq;
    wideDq.dq = filled(65);
    EXPECT_EQ(failureOf(wideDq), "invalid crt component size: dp");
    Components widePInv;
    widePInv.pInv = filled(100);
    EXPECT_EQ(failureOf(widePInv), "invalid crt component size: p_inv");
    Components zeroQInv;
    zeroQInv.qInv = ByteBuffer(64);
    EXPECT_EQ(failureOf(zeroQInv), "invalid crt component size: q_inv");
}

TEST(RsaPrivateCrtKeySpecTest, LeadingZeroBytesDoNotCount) {
    Components signedEncoding;
    signedEncoding.p = ByteBuffer{0x00};
    signedEncoding.p.append(filled(64));
    EXPECT_EQ(failureOf(signedEncoding), "");
}

} // namespace

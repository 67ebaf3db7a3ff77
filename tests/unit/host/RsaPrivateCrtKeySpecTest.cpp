// Each CRT component is at most half the modulus long; leading zero bytes do not count.
#include "card/crypto/spec/RsaPrivateCrtKeySpec.hpp"
#include "app/ApplicationException.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

namespace {

using mw::ByteBuffer;

ByteBuffer filled(std::size_t length) {
    ByteBuffer bytes(length);
    std::fill(bytes.begin(), bytes.end(), 0xC3);
    return bytes;
}

TEST(RsaPrivateCrtKeySpecTest, EachComponentIsCheckedAgainstHalfTheModulus) {
    ByteBuffer signedEncoding{0x00};
    signedEncoding.append(filled(64));
    const struct {
        std::size_t index; // of p, q, dp, dq, p_inv, q_inv
        ByteBuffer value;
        const char* failure;
    } cases[] = {
        {0, filled(64), ""},
        {0, signedEncoding, ""},
        {0, filled(65), "invalid crt component size: p"},
        {1, ByteBuffer(), "invalid crt component size: q"},
        {2, filled(65), "invalid crt component size: dp"},
        {3, filled(65), "invalid crt component size: dq"},
        {4, filled(100), "invalid crt component size: p_inv"},
        {5, ByteBuffer(64), "invalid crt component size: q_inv"},
    };
    for (const auto& c : cases) {
        std::vector<ByteBuffer> parts(6, filled(64));
        parts[c.index] = c.value;
        std::string failure;
        try {
            card::crypto::spec::RsaPrivateCrtKeySpec(1024, {0x01, 0x00, 0x01}, parts[0], parts[1],
                                                     parts[2], parts[3], parts[4], parts[5]);
        } catch (const app::InvalidDataException& e) {
            const char* const* text = boost::get_error_info<app::ErrorText>(e);
            failure = text ? *text : "(no text)";
        }
        EXPECT_EQ(failure, c.failure) << c.index;
    }
}

} // namespace

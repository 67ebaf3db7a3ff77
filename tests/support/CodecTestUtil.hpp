#ifndef TESTS_SUPPORT_CODECTESTUTIL_HPP
#define TESTS_SUPPORT_CODECTESTUTIL_HPP

#include "app/pkcs15/oss/Codec.hpp"
#include "mw/Hex.hpp"
#include "tests/support/AppErrors.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace oss = app::pkcs15::oss;

namespace boost {
// Lets test failures show optional components.
template <class T> void PrintTo(const optional<T>& value, std::ostream* out) {
    *out << (value ? ::testing::PrintToString(*value) : std::string("(absent)"));
}
} // namespace boost

inline oss::Bytes hex(const std::string& text) {
    const mw::ByteBuffer bytes = mw::fromHex(text);
    return {bytes.begin(), bytes.end()};
}

// The bytes of a file of tests/data/samples (or, by "../", its neighbours):
// hex lines, '#' comments.
inline oss::Bytes loadSample(const std::string& name) {
    std::ifstream file(std::string(P15_SAMPLES_DIR) + "/" + name);
    EXPECT_TRUE(file.good()) << name;
    std::string line, digits;
    while (std::getline(file, line)) {
        digits += line.rfind('#', 0) == 0 ? "" : line;
    }
    return hex(digits);
}

using p15test::appError;
using p15test::Failure;

// What a failed decode reported: its text and offset.
template <class T> Failure decodeError(const oss::Bytes& input) {
    return appError<app::InvalidDataException>([&] {
        T value;
        oss::decode(input.data(), input.size(), value);
    });
}

// Decodes `input` whole and checks that the re-encoding decodes to the same value.
template <class T> T decodeAll(const oss::Bytes& input) {
    T value;
    EXPECT_EQ(oss::decode(input.data(), input.size(), value), input.size());
    const oss::Bytes again = oss::encode(value);
    T reread;
    EXPECT_EQ(oss::decode(again.data(), again.size(), reread), again.size());
    EXPECT_TRUE(reread == value);
    return value;
}

// The value encodes to exactly `der` and `der` decodes to the value.
template <class T> void expectDer(const T& value, const std::string& der) {
    EXPECT_EQ(oss::encode(value), hex(der));
    EXPECT_TRUE(decodeAll<T>(hex(der)) == value);
}

#endif

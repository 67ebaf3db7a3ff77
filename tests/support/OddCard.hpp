#ifndef TESTS_SUPPORT_ODDCARD_HPP
#define TESTS_SUPPORT_ODDCARD_HPP

#include <cstddef>
#include <string>

namespace p15test {

struct OddEntries {
    std::size_t undecodable, ecKey; // offsets in EF(PrKDF)
};

// EF(PrKDF) of the image as real cards write it: its only entry (a sound
// RSA key) with a vendor component before the first of its
// CommonKeyAttributes, then an entry that does not decode and an EC key.
// With `breakCdf`, EF(CDF)'s first length runs far beyond the file.
OddEntries addOddEntries(const std::string& image, bool breakCdf);

} // namespace p15test

#endif

#ifndef TESTS_SUPPORT_ODDCARD_HPP
#define TESTS_SUPPORT_ODDCARD_HPP

#include <cstddef>
#include <string>

namespace p15test {

// Where addOddEntries put the entries the lists leave out.
struct OddEntries {
    std::size_t undecodable; // an entry that does not decode
    std::size_t ecKey;       // an EC private key entry
};

// Rewrites the card image's EF(PrKDF) as real cards write it: its first
// entry (a sound RSA key) with a vendor component before the first component
// of its CommonKeyAttributes, then an entry that does not decode and an EC
// private key entry. With `breakCdf`, the length of EF(CDF)'s first entry
// runs beyond the file, so that none of its entries can be found.
OddEntries addOddEntries(const std::string& image, bool breakCdf);

} // namespace p15test

#endif

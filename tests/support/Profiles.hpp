// Suites that run on a virtual card of each profile.
#ifndef TESTS_SUPPORT_PROFILES_HPP
#define TESTS_SUPPORT_PROFILES_HPP

#include "vcard/CardProfile.hpp"

#include <gtest/gtest.h>

namespace p15test {

inline const auto bothProfiles =
    ::testing::Values(vcard::CardProfile::Native, vcard::CardProfile::Iso);
inline std::string profileParamName(const ::testing::TestParamInfo<vcard::CardProfile>& info) {
    return vcard::profileName(info.param);
}

// What the host must learn before a test passes on a card of the iso profile.
inline const char* const wrongPin6300 = "take 6300 as a wrong PIN";
inline const char* const unknownPinStatus =
    "report a PIN status as unknown when VERIFY without data is refused";
inline const char* const tokenInfoAlgorithms =
    "take the algorithms from EF(TokenInfo) when GET DATA is refused and name their algRef in MSE";

} // namespace p15test

// Skips the iso instantiation of a test; drop the line once the host has learnt it.
#define SKIP_ON_ISO_UNTIL_THE_HOST(learns)                                                         \
    if (GetParam() == vcard::CardProfile::Iso)                                                     \
    GTEST_SKIP() << "a card of the iso profile needs the host to " << (learns)

#endif

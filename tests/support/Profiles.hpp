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

} // namespace p15test

#endif

#include "tests/support/CodecTestUtil.hpp"

#include "app/SecurityConditions.hpp"
#include "app/pkcs15/oss/OssHelper.hpp"

#include <boost/make_shared.hpp>

namespace {

using app::pkcs15::oss::OssHelper;

app::SecurityConditionPtr pin(std::uint8_t id) {
    return boost::make_shared<app::AuthIdSecurityCondition>(std::vector<std::uint8_t>{id});
}

std::vector<oss::AccessControlRule> rulesOf(const std::string& der) {
    return decodeAll<oss::CommonObjectAttributes>(hex(der)).accessControlRules.value();
}

// read+update+execute: and(authId 01, not(or(authId 02, authId 03))), which
// encodes back to the same value (a tree read wrong would not); an empty mode
// string gives 0.
TEST(OssHelperTest, decodesModesAndNestedConditions) {
    const auto value = rulesOf("3017 3015 3013 030205E0 A10D 040101 A008 A206 040102 040103");
    std::vector<app::AccessControlRule> rules;
    OssHelper::decodeAccessControlRules(value, rules);
    ASSERT_EQ(rules.size(), 1u);
    EXPECT_EQ(rules[0].getAccessMode(), 0x7);
    std::vector<oss::AccessControlRule> reencoded;
    OssHelper::encodeAccessControlRules(rules, reencoded);
    EXPECT_TRUE(reencoded == value);
    rules.clear();
    OssHelper::decodeAccessControlRules(rulesOf("300A 3008 3006 030100 040101"), rules);
    EXPECT_EQ(rules[0].getAccessMode(), 0);
}

// A 4-bit mode in the second rule leaves the first in the list; the
// "always" NULL of a newer card format has no application form.
TEST(OssHelperTest, decodeFailuresStopTheList) {
    std::vector<app::AccessControlRule> rules;
    const auto fourBits = rulesOf("3014 3012 3007 03020780 040101 3007 03020410 040101");
    EXPECT_APP_TEXT(OssHelper::decodeAccessControlRules(fourBits, rules),
                    "CommonObject::AccessRule::AccessMode not PKCS#15 conform");
    ASSERT_EQ(rules.size(), 1u);
    EXPECT_EQ(rules[0].getAccessMode(), 0x4);
    const auto always = rulesOf("300A 3008 3006 03020780 0500");
    EXPECT_APP_TEXT(OssHelper::decodeAccessControlRules(always, rules),
                    "decodeSecurityCondition: unknown SecurityCondition choice");
}

// Modes up to 15 encode, 16 is refused with the mode and nothing added;
// never, and no condition, grant nothing and write no rule; always, and never
// inside another condition, have no PKCS#15 form.
TEST(OssHelperTest, encodesModesUpToFifteenAndOnlyConditionsWithAForm) {
    std::vector<oss::AccessControlRule> value;
    OssHelper::encodeAccessControlRules({{0x9, pin(1)},
                                         {0x7, pin(2)},
                                         {0x4, boost::make_shared<app::NeverSecurityCondition>()},
                                         {0x2, nullptr}},
                                        value);
    ASSERT_EQ(value.size(), 2u);
    EXPECT_TRUE(value[0].accessMode == (oss::BitString{{0x20}, 3}));
    EXPECT_EQ(oss::encode(value[1]), hex("3007 030205E0 040102"));
    EXPECT_EQ(appError([&] {
                  OssHelper::encodeAccessControlRules({{0x10, pin(1)}}, value);
              }),
              Failure("CommonObject::AccessRule::AccessMode not PKCS#15 conform", 0x10));
    EXPECT_EQ(value.size(), 2u);
    const auto always = boost::make_shared<app::AlwaysSecurityCondition>();
    EXPECT_APP_TEXT(OssHelper::encodeAccessControlRules({{0x4, always}}, value),
                    "encodeSecurityCondition: always condition not supported");
    const auto inside = boost::make_shared<app::AndSecurityCondition>(
        app::SecurityConditionList{pin(1), boost::make_shared<app::NeverSecurityCondition>()});
    EXPECT_APP_TEXT(OssHelper::encodeAccessControlRules({{0x4, inside}}, value),
                    "encodeSecurityCondition: never condition not supported inside a condition");
}

} // namespace

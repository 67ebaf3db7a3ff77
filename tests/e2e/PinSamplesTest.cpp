// AODF files of real cards, put on the virtual card and read back through
// the application and the host card layer.
#include "SampleFile.hpp"

#include "app/IAccessControlled.hpp"
#include "app/SecurityConditions.hpp"
#include "app/object/IPin.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/object/P15Pin.hpp"

#include <gtest/gtest.h>

namespace {

using app::object::IPin;

class PinSamples : public hosttest::SampleCard {
protected:
    // Puts the sample in EF(AODF) and lists its PINs.
    std::vector<boost::shared_ptr<IPin>> pinsOf(const std::string& sample) {
        put(0x4408, sample);
        std::vector<boost::shared_ptr<IPin>> pins;
        for (const auto& object : application_->getAuthObjects(*channel_)) {
            pins.push_back(boost::dynamic_pointer_cast<IPin>(object));
        }
        return pins;
    }
    mw::ByteBuffer aodf() const { return content(0x4408); }
};

TEST_P(PinSamples, AnAcosPinKeepsItsNonDerFlagsWhenItsLabelChanges) {
    auto pins = pinsOf("acos5-64_aodf.hex");
    ASSERT_EQ(pins.size(), 1u);
    const IPin& pin = *pins[0];
    EXPECT_EQ(pin.getLabel().value_or(""), "User");
    EXPECT_EQ(pin.getFlags().value_or(0), 0x03) << "private, modifiable";
    EXPECT_EQ(pin.getAuthId(), (mw::ByteBuffer{0x01}));
    EXPECT_EQ(pin.getPinFlags(),
              IPin::CaseSensitive | IPin::Local | IPin::Initialized | IPin::NeedsPadding);
    EXPECT_EQ(pin.getPinType(), IPin::AsciiNumeric);
    EXPECT_EQ(pin.getMinLength(), 4);
    EXPECT_EQ(pin.getStoredLength(), 8);
    EXPECT_EQ(pin.getMaxLength().value_or(0), 8);
    EXPECT_EQ(pin.getPinReference().value_or(0), 1);
    EXPECT_EQ(pin.getPadChar().value_or(mw::ByteBuffer()), (mw::ByteBuffer{0xFF}));
    ASSERT_TRUE(pin.getPath());
    EXPECT_EQ(pin.getPath()->path, (mw::ByteBuffer{0x3F, 0x00, 0x41, 0x00}));

    // Written through the directory file's own list, its only owner now.
    pins.clear();
    const mw::ByteBuffer before = aodf();
    const auto& listed = application_->getODF()->getAODF()->pins(*channel_);
    listed[0]->setLabel("Usr2");
    application_->writeCardObject(*channel_, *listed[0]);
    EXPECT_EQ(aodf(), replaced(before, "User", "Usr2"));
}

TEST_P(PinSamples, PinsWithIsoAlwaysRulesAreListedAndKeptByteForByte) {
    const auto pins = pinsOf("uy-eid-gemalto_aodf.hex");
    ASSERT_EQ(pins.size(), 2u);
    const IPin& user = *pins[0];
    EXPECT_EQ(user.getLabel().value_or(""), "User PIN");
    EXPECT_EQ(user.getAuthId(), (mw::ByteBuffer{0xAD, 0x11}));
    EXPECT_EQ(user.getProtectingAuthId().value_or(mw::ByteBuffer()), (mw::ByteBuffer{0xAD, 0x81}));
    EXPECT_EQ(user.getPinFlags(), IPin::Initialized | IPin::NeedsPadding | IPin::ExchangeRefData);
    EXPECT_EQ(user.getStoredLength(), 12);
    EXPECT_EQ(user.getMaxLength().value_or(0), 8) << "below the stored length, as the card has it";
    EXPECT_EQ(user.getPinReference().value_or(0), 0x11);
    EXPECT_EQ(user.getPadChar().value_or(mw::ByteBuffer()), (mw::ByteBuffer{0x00}));
    EXPECT_EQ(user.getLastPinChange().value_or(""), "20131011133817Z");
    // Execute and update under "always"; the rule of an ISO 7816-15 mode is not shown.
    const auto& rules = dynamic_cast<const app::IAccessControlled&>(user).getAccessControlRules();
    ASSERT_TRUE(rules);
    ASSERT_EQ(rules->size(), 2u);
    EXPECT_EQ((*rules)[0].getAccessMode(), app::AccessControlRule::Execute);
    EXPECT_EQ((*rules)[1].getAccessMode(), app::AccessControlRule::Update);
    EXPECT_TRUE(boost::dynamic_pointer_cast<app::AlwaysSecurityCondition>(
        (*rules)[1].getSecurityCondition()));

    const IPin& so = *pins[1];
    EXPECT_EQ(so.getFlags().value_or(0), 0x02) << "private";
    EXPECT_EQ(so.getPinFlags() & (IPin::UnblockingPin | IPin::SoPin),
              IPin::UnblockingPin | IPin::SoPin);
    EXPECT_EQ(so.getPinReference().value_or(0), 0x81);

    const mw::ByteBuffer before = aodf();
    pins[1]->setLabel("SO-PIN");
    application_->writeCardObject(*channel_, *pins[1]);
    EXPECT_EQ(aodf(), replaced(before, "SO PIN", "SO-PIN"))
        << "rules, lastPinChange and the neighbour stay as the card had them";
}

INSTANTIATE_TEST_SUITE_P(Transports, PinSamples,
                         ::testing::Values(hosttest::TransportKind::InProcess),
                         hosttest::transportName);

} // namespace

#include "AppErrors.hpp"
#include "AppOnCard.hpp"
#include "PluginOnCard.hpp"

#include "app/object/IPin.hpp"

namespace {

using app::object::IPin;

using hosttest::text;

// The PINs of the personalised card as a host sees them, none verified.
class PinsThroughThePlugin : public hosttest::PluginOnCard {
protected:
    bool startsVerified() const override { return false; }
    boost::shared_ptr<IPin> pin(std::size_t index) const {
        return support::pinAt(*application_, *channel_, index);
    }
    mw::ByteBuffer aodf() const { return fileContent(mw::ByteBuffer{0x44, 0x08}); }
};

// Listing, blocking, unblocking and changing PINs run through p15tool's
// PinCommands suite; these pin what the plugin does with the entries.

// A label written changes its entry only: longer, it goes behind the others,
// which stay where they are. Refused by the card (the PIN not verified), too
// large for EF(AODF) or for any entry, it changes nothing.
TEST_P(PinsThroughThePlugin, ALabelWrittenChangesItsEntryOnly) {
    const mw::ByteBuffer before = aodf();
    const auto user = pin(0), puk = pin(1);
    user->authenticate(*channel_, text(hosttest::userPin));
    user->deauthenticate(*channel_);
    EXPECT_EQ(user->getPinInfo(*channel_).state, 0);
    puk->setLabel("Unblocking PIN");
    EXPECT_CARD_ERROR(application_->writeCardObject(*channel_, *puk), "Update Binary", 0x6982);
    user->authenticate(*channel_, text(hosttest::userPin));
    puk->setLabel(std::string(before.size(), 'x'));
    EXPECT_APP_TEXT(application_->writeCardObject(*channel_, *puk), "EF(AODF) out of memory");
    puk->setLabel(std::string(70000, 'x'));
    EXPECT_APP_TEXT(application_->writeCardObject(*channel_, *puk),
                    "encoded pin size exceeds 65535 bytes");
    EXPECT_EQ(aodf(), before);

    puk->setLabel("Unblocking PIN");
    application_->writeCardObject(*channel_, *puk);
    const mw::ByteBuffer after = aodf();
    const std::size_t userLength = 2 + before.get(1); // short-form lengths on this card
    const std::size_t soAt = userLength + 2 + before.get(userLength + 1);
    EXPECT_EQ(after.get(0, userLength), before.get(0, userLength));
    EXPECT_EQ(after.get(userLength, 1), mw::ByteBuffer{0xD0}) << "a hole where it was";
    EXPECT_EQ(after.get(soAt, 2 + before.get(soAt + 1)),
              before.get(soAt, 2 + before.get(soAt + 1)));
    EXPECT_EQ(pin(2)->getLabel().value_or(""), "Unblocking PIN");
    EXPECT_EQ(pin(2)->getPinFlags(), puk->getPinFlags());
}

TEST_P(PinsThroughThePlugin, AWriteWithNothingSetSendsNothing) {
    if (virtualCard_ == nullptr) {
        GTEST_SKIP() << "counts the commands of the in-process card";
    }
    const auto user = pin(0);
    const std::uint64_t before = commands();
    application_->writeCardObject(*channel_, *user);
    EXPECT_EQ(commands(), before);
}

// A card object the host made itself.
class HostObject : public app::object::ICardObject {
public:
    ObjectClass getObjectClass() const override { return DataObject; }
    void setLabel(const std::string&) override {}
    const boost::optional<std::string>& getLabel() const override { return label_; }
    void setFlags(std::uint8_t) override {}
    const boost::optional<std::uint8_t>& getFlags() const override { return flags_; }

private:
    boost::optional<std::string> label_;
    boost::optional<std::uint8_t> flags_;
};

TEST_P(PinsThroughThePlugin, TheRepositoryDispatchesToTheObjectAndRefusesForeignOnes) {
    const auto user = pin(0);
    EXPECT_APP_TEXT(application_->readCardObject(*channel_, *user), "read pin not supported");
    EXPECT_APP_TEXT(application_->deleteCardObject(*channel_, *user), "remove pin not supported");
    HostObject foreign;
    EXPECT_APP_TEXT(application_->writeCardObject(*channel_, foreign),
                    "failed to cast to AbstractP15Object");
    EXPECT_APP_TEXT(application_->getSecretKeys(*channel_), "getSecretKeys not supported");
}

TEST_P(PinsThroughThePlugin, TheFactoryChecksKindAndRulesFirst) {
    using namespace app::object;
    const auto& factory = factory_;
    const app::AccessControlRules none;
    EXPECT_APP_TEXT(factory->createPrivateKey(IPrivateKey::EcPrivateKey, none),
                    "unsupported key type");
    EXPECT_APP_TEXT(factory->createPrivateKey(IPrivateKey::RsaPrivateKey, none),
                    "access control rules are required but not set");
    EXPECT_APP_TEXT(factory->createPublicKey(IPublicKey::EcPublicKey, none),
                    "unsupported key type");
    EXPECT_APP_TEXT(factory->createCertificate(ICertificate::AttributeCertificate, none),
                    "unsupported cert type");
    EXPECT_APP_TEXT(factory->createDataObject(IDataObject::OidDataObject, none),
                    "unsupported do type");
    EXPECT_APP_TEXT(factory->createSecretKey(ISecretKey::GenericSecretKey, none),
                    "creation of secret keys not supported");
}

INSTANTIATE_TEST_SUITE_P(Transports, PinsThroughThePlugin,
                         ::testing::Values(hosttest::TransportKind::InProcess,
                                           hosttest::TransportKind::Pcsc),
                         hosttest::transportName);
} // namespace

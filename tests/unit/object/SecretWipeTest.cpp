// The padded PIN values a PIN hands to the card are wiped before their memory
// goes back to the runtime, right after the operation. The CRT components a
// private key holds: KeySecrets.NoReleasedBlockHoldsACrtComponentOfAnImportedKey.
#include "FreeHook.hpp"
#include "UnconnectedChannel.hpp"
#include "app/pkcs15/object/P15Pin.hpp"
#include "card/service/IPinManagementService.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace {

using card::service::PinReference;

// Stands in for the card: it watches the value in the position under test
// and keeps nothing.
class WatchingPinService : public card::service::IPinManagementService {
public:
    explicit WatchingPinService(int watchedArgument)
        : watched_(watchedArgument) {}

    void authenticate(const card::IChannel&, const PinReference&,
                      const mw::ByteBuffer& value) const override {
        watchIf(0, value);
    }
    void change(const card::IChannel&, const PinReference&, const mw::ByteBuffer& newValue,
                const mw::ByteBuffer& oldValue) const override {
        watchIf(0, newValue);
        watchIf(1, oldValue);
    }
    void unblock(const card::IChannel&, const PinReference&,
                 const mw::ByteBuffer& value) const override {
        watchIf(0, value);
    }
    void deauthenticate(const card::IChannel&, const PinReference&) const override {}
    card::service::PinInfo getPinInfo(const card::IChannel&, const PinReference&) const override {
        return {};
    }
    void unblockAndChange(const card::IChannel&, const PinReference&, const mw::ByteBuffer&,
                          const mw::ByteBuffer&) const override {}

private:
    void watchIf(int argument, const mw::ByteBuffer& value) const {
        if (argument == watched_) {
            freehook::watch(const_cast<mw::ByteBuffer&>(value));
        }
    }
    int watched_;
};

boost::shared_ptr<app::pkcs15::object::P15Pin> pinWatching(int argument) {
    auto pin = boost::make_shared<app::pkcs15::object::P15Pin>(
        boost::make_shared<WatchingPinService>(argument),
        boost::weak_ptr<const app::pkcs15::fs::AODF>(), 0);
    pin->setPinReference(1);
    pin->setMaxLength(8);
    pin->setPadChar(mw::ByteBuffer{0xFF});
    return pin;
}

const mw::ByteBuffer value{'1', '2', '3', '4'};

TEST(PinWipe, PaddedValuesAreWipedAfterEveryOperation) {
    const UnconnectedChannel channel;
    pinWatching(0)->authenticate(channel, value);
    EXPECT_TRUE(freehook::releasedAsZeros()) << "authenticate";
    pinWatching(0)->unblock(channel, value);
    EXPECT_TRUE(freehook::releasedAsZeros()) << "unblock";
    pinWatching(0)->change(channel, value, value);
    EXPECT_TRUE(freehook::releasedAsZeros()) << "change, new value";
    pinWatching(1)->change(channel, value, value);
    EXPECT_TRUE(freehook::releasedAsZeros()) << "change, old value";
}

} // namespace

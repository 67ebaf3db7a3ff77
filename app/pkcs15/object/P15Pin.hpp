#ifndef APP_PKCS15_OBJECT_P15PIN_HPP
#define APP_PKCS15_OBJECT_P15PIN_HPP

#include "app/object/AbstractPin.hpp"
#include "app/object/IEncodedEntry.hpp"
#include "app/pkcs15/object/AbstractP15Object.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>

namespace card {
namespace service {
class IPinManagementService;
struct PinReference;
} // namespace service
} // namespace card

namespace app {
namespace pkcs15 {

namespace fs {
class AODF;
}

namespace object {

// A PIN of the application: one entry of EF(AODF). Its operations go to the
// card's PIN management service; its status is cached for the configured
// waiting time ("WaitingTime.PinInfo", milliseconds; 0 or less: no cache).
//
// An entry read from the card is rewritten from what was read, with only the
// attributes the host set replaced, so that everything this class does not
// model (access control rules, user consent, lastPinChange, components of
// later versions) stays as the card had it. The rule list shows the rules
// the application's condition tree can express (see
// decodeExpressibleRules); PIN entries never get rules written, so setting
// them and writing is refused.
class P15Pin : public app::object::AbstractPin,
               public app::object::IEncodedEntry,
               public AbstractP15Object {
public:
    using PinService = boost::shared_ptr<card::service::IPinManagementService>;

    // A new PIN, not on the card yet. The AODF is held weakly: it owns the PINs it lists.
    P15Pin(PinService service, boost::weak_ptr<const fs::AODF> aodf, std::int32_t waitingTime);
    // The PIN of an AODF entry and the entry's bytes.
    P15Pin(PinService service, boost::weak_ptr<const fs::AODF> aodf, std::int32_t waitingTime,
           const oss::AuthenticationType& entry, mw::ByteBuffer encoding);

    ObjectClass getObjectClass() const override { return AuthenticationObject; }

    void authenticate(const card::IChannel& channel, const mw::ByteBuffer& pin) const override;
    void deauthenticate(const card::IChannel& channel) const override;
    void unblock(const card::IChannel& channel, const mw::ByteBuffer& unblockingPin) const override;
    void unblock(const card::IChannel& channel, const mw::ByteBuffer& unblockingPin,
                 const mw::ByteBuffer& newPin) const override;
    void change(const card::IChannel& channel, const mw::ByteBuffer& oldPin,
                const mw::ByteBuffer& newPin) const override;
    PinInfo getPinInfo(const card::IChannel& channel) const override;

    void read(const card::IChannel& channel, const P15Application& application) override;
    void write(const card::IChannel& channel, const P15Application& application) const override;
    void remove(const card::IChannel& channel, const P15Application& application) const override;

    // The entry as it is on the card; empty for a new PIN.
    const mw::ByteBuffer& getEncoding() const override { return encoding_; }
    // The entry with the host's changes; see the class comment.
    oss::AuthenticationType encodeAuthenticationType() const;
    // `value` padded with the pad character, or cut, to maxLength bytes.
    mw::ByteBuffer pad(const mw::ByteBuffer& value) const;

private:
    void decodeAuthenticationType(const oss::AuthenticationType& entry);
    // The reference for the service; fails with `missingText` without one.
    card::service::PinReference reference(const char* missingText) const;
    // As reference(), also requiring maxLength and a pad character.
    card::service::PinReference paddingReference() const;
    // checkValue of the PIN that unblocks this one, or of this one when the
    // AODF does not list it.
    void checkUnblockingValue(const card::IChannel& channel,
                              const mw::ByteBuffer& unblockingPin) const;
    mw::ByteBuffer encodeEntry(const oss::AuthenticationType& entry) const;
    PinInfo askCard(const card::IChannel& channel,
                    const card::service::PinReference& reference) const;

    PinService service_;
    boost::weak_ptr<const fs::AODF> aodf_;
    std::int32_t waitingTime_;
    mutable std::int64_t lastQuery_ = 0;
    mutable PinInfo pinInfo_;
    mutable mw::ByteBuffer encoding_;
    // What was read (or last written), the base of the next encoding.
    mutable boost::optional<oss::AuthenticationType> entry_;
};

} // namespace object
} // namespace pkcs15
} // namespace app

#endif

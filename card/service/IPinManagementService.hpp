#ifndef CARD_SERVICE_IPINMANAGEMENTSERVICE_HPP
#define CARD_SERVICE_IPINMANAGEMENTSERVICE_HPP

#include "card/IBaseInterface.hpp"
#include "card/service/PinReference.hpp"
#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

namespace card {
class IChannel;
namespace service {

// PIN verification and maintenance. PIN values arrive padded to the card's
// stored length; the service sends them as they are and never keeps them.
class MW_EXPORT_TYPE IPinManagementService : public virtual IInterface {
public:
    // VERIFY; a wrong PIN fails with 63Cx (x tries left), a blocked one 6983.
    virtual void authenticate(const IChannel& channel, const PinReference& pin,
                              const mw::ByteBuffer& value) const = 0;
    // CHANGE REFERENCE DATA from `oldValue` to `newValue`.
    virtual void change(const IChannel& channel, const PinReference& pin,
                        const mw::ByteBuffer& newValue, const mw::ByteBuffer& oldValue) const = 0;
    // RESET RETRY COUNTER with the PIN's unblocking PIN; the PIN keeps its value.
    virtual void unblock(const IChannel& channel, const PinReference& pin,
                         const mw::ByteBuffer& unblockingValue) const = 0;
    // Drops the PIN's verified state.
    virtual void deauthenticate(const IChannel& channel, const PinReference& pin) const = 0;
    virtual PinInfo getPinInfo(const IChannel& channel, const PinReference& pin) const = 0;
    // RESET RETRY COUNTER that also sets a new value.
    virtual void unblockAndChange(const IChannel& channel, const PinReference& pin,
                                  const mw::ByteBuffer& unblockingValue,
                                  const mw::ByteBuffer& newValue) const = 0;
};

} // namespace service
} // namespace card

#endif

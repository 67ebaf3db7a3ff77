#ifndef HOST_ISO7816_PINMANAGEMENTSERVICE_HPP
#define HOST_ISO7816_PINMANAGEMENTSERVICE_HPP

#include "card/service/IPinManagementService.hpp"
#include "host/iso7816/FileSelection.hpp"

#include <atomic>
#include <boost/shared_ptr.hpp>

namespace host {
namespace iso7816 {

/// VERIFY, CHANGE REFERENCE DATA and RESET RETRY COUNTER. PIN values travel
/// only in wiping buffers and are never logged. The PIN state comes from
/// VERIFY without data while the card answers it with 9000, 63Cx or 6983;
/// 6A88 (no such PIN) is a card::CardException; after any other answer,
/// every PIN's state is Unknown for the session.
class PinManagementService : public card::service::IPinManagementService {
public:
    explicit PinManagementService(boost::shared_ptr<FileSelection> selection);

    void authenticate(const card::IChannel& channel, const card::service::PinReference& pin,
                      const mw::ByteBuffer& value) const override;
    void change(const card::IChannel& channel, const card::service::PinReference& pin,
                const mw::ByteBuffer& newValue, const mw::ByteBuffer& oldValue) const override;
    void unblock(const card::IChannel& channel, const card::service::PinReference& pin,
                 const mw::ByteBuffer& unblockingValue) const override;
    void deauthenticate(const card::IChannel& channel,
                        const card::service::PinReference& pin) const override;
    card::service::PinInfo getPinInfo(const card::IChannel& channel,
                                      const card::service::PinReference& pin) const override;
    void unblockAndChange(const card::IChannel& channel, const card::service::PinReference& pin,
                          const mw::ByteBuffer& unblockingValue,
                          const mw::ByteBuffer& newValue) const override;

private:
    void enterPinDf(const card::Transaction& held, const card::service::PinReference& pin) const;
    // Sends one PIN command inside a transaction, in the PIN's DF if it names one.
    mw::ByteBuffer run(const card::IChannel& channel, const card::service::PinReference& pin,
                       const char* name, unsigned char ins, unsigned char p1,
                       mw::ByteBuffer data) const;

    boost::shared_ptr<FileSelection> selection_;
    // The card answered the status query with a status word it does not
    // define for it: it is not asked again.
    mutable std::atomic<bool> noStatusQuery_{false};
};

} // namespace iso7816
} // namespace host

#endif

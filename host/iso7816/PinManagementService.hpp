#ifndef HOST_ISO7816_PINMANAGEMENTSERVICE_HPP
#define HOST_ISO7816_PINMANAGEMENTSERVICE_HPP

#include "card/service/IPinManagementService.hpp"
#include "host/iso7816/FileSelection.hpp"

#include <boost/shared_ptr.hpp>

namespace host {
namespace iso7816 {

// VERIFY, CHANGE REFERENCE DATA and RESET RETRY COUNTER. PIN values travel
// only in wiping buffers and are never logged.
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
};

} // namespace iso7816
} // namespace host

#endif

#include "host/iso7816/CardSession.hpp"

#include "card/IChannel.hpp"
#include "host/iso7816/AlgorithmList.hpp"
#include "host/iso7816/AsymmetricKeyManagementService.hpp"
#include "host/iso7816/CryptographyService.hpp"
#include "host/iso7816/FileAccessService.hpp"
#include "host/iso7816/FileSystemService.hpp"
#include "host/iso7816/PinManagementService.hpp"
#include "mw/Exception.hpp"

#include <boost/make_shared.hpp>

namespace host {
namespace iso7816 {

CardSession::CardSession(boost::shared_ptr<const card::IChannel> channel)
    : channel_(std::move(channel))
    , selection_(boost::make_shared<FileSelection>()) {
    if (!channel_) {
        MW_THROW(mw::NullPointerException, "card session without a channel");
    }
    algorithms_ = boost::make_shared<AlgorithmList>(channel_);
    const auto fileSystem = boost::make_shared<FileSystemService>(selection_);
    services_["PinManagementService"] = boost::make_shared<PinManagementService>(selection_);
    services_["FileAccessService"] = boost::make_shared<FileAccessService>(selection_);
    services_["FileSystemService"] = fileSystem;
    services_["CryptographyService"] =
        boost::make_shared<CryptographyService>(selection_, algorithms_);
    services_["AsymmetricKeyManagementService"] =
        boost::make_shared<AsymmetricKeyManagementService>(selection_, fileSystem);
}

void CardSession::selectApplication(const card::IChannel& channel,
                                    const mw::ByteBuffer& aid) const {
    const auto held = card::Transaction::join(channel);
    selection_->selectApplication(held, aid);
}

const std::vector<std::string>& CardSession::algorithms() const {
    return algorithms_->get();
}

bool CardSession::hasService(const std::string& name) const {
    return services_.count(name) != 0;
}

boost::shared_ptr<card::IInterface> CardSession::service(const std::string& name) const {
    const auto found = services_.find(name);
    return found == services_.end() ? nullptr : found->second;
}

} // namespace iso7816
} // namespace host

#include "app/pkcs15/fs/TokenInfo.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/object/P15ApplicationInfo.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

TokenInfo::~TokenInfo() = default;

const boost::shared_ptr<object::P15ApplicationInfo>&
TokenInfo::applicationInfo(const card::IChannel& channel) const {
    const auto& listed = objectsOf(
        *this, channel, [](const oss::TokenInfo&) { return true; }, made_);
    if (listed.empty()) {
        made_.push_back(boost::make_shared<object::P15ApplicationInfo>(
            boost::weak_ptr<const TokenInfo>(shared_from_this())));
    }
    return made_.front();
}

void TokenInfo::write(const card::IChannel& channel,
                      const card::service::IFileAccessService& /*fileAccess*/,
                      const mw::ByteBuffer& serialNumber, const mw::ByteBuffer& oldEncoding,
                      const mw::ByteBuffer& newEncoding) const {
    const std::vector<oss::TokenInfo>& stored = values(channel);
    if (!stored.empty() && stored.front().serialNumber &&
        mw::ByteBuffer(*stored.front().serialNumber) != serialNumber) {
        APP_THROW(OperationNotSupportedException, "the serial number of a token cannot be changed");
    }
    updateEncodedAttributes(oldEncoding, newEncoding);
}

} // namespace fs
} // namespace pkcs15
} // namespace app

#include "app/pkcs15/fs/AODF.hpp"

#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/object/P15Pin.hpp"

#include <boost/make_shared.hpp>

namespace app {
namespace pkcs15 {
namespace fs {

AODF::~AODF() = default;

const std::vector<boost::shared_ptr<object::P15Pin>>&
AODF::pins(const card::IChannel& channel) const {
    values(channel);
    if (pinsMade_) {
        return pins_;
    }
    const boost::shared_ptr<const P15Application> app = application();
    pins_ = makeObjects<object::P15Pin>(
        channel,
        [](const oss::AuthenticationType& entry) {
            return entry.choice == oss::AuthenticationType::pin;
        },
        [&](const oss::AuthenticationType& entry, const mw::ByteBuffer& encoding) {
            return boost::make_shared<object::P15Pin>(
                app->getPinManagementService(), boost::weak_ptr<const AODF>(shared_from_this()),
                app->getPinInfoWaitingTime(), entry, encoding);
        });
    pinsMade_ = true;
    return pins_;
}

// The PINs made before stay alive until the next list replaces them: the
// PIN whose write changed the file is still at work when this runs.
void AODF::forgetDecoded() const {
    DirectoryFile::forgetDecoded();
    pinsMade_ = false;
}

} // namespace fs
} // namespace pkcs15
} // namespace app

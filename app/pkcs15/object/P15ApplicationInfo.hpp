#ifndef APP_PKCS15_OBJECT_P15APPLICATIONINFO_HPP
#define APP_PKCS15_OBJECT_P15APPLICATIONINFO_HPP

#include "app/object/AbstractApplicationInfo.hpp"
#include "app/pkcs15/object/AbstractP15Object.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <boost/weak_ptr.hpp>

namespace app {
namespace pkcs15 {

namespace fs {
class TokenInfo;
}

namespace object {

// The application info: the TokenInfo of EF(TokenInfo). It is written
// back, never read or removed on its own.
//
// What was read is rewritten with only what the host set replaced, so
// that the components this class does not model (seInfo, recordInfo, the
// details of each algorithm, later extensions) stay as the card had them.
// The algorithms are listed by their object identifiers, an identifier as
// often as the card has entries for it; a list the host sets keeps, for
// each identifier in it, one card entry of that identifier not kept yet,
// and the entries without an identifier.
class P15ApplicationInfo : public app::object::AbstractApplicationInfo, public AbstractP15Object {
public:
    // A new application info, for a file that holds none.
    explicit P15ApplicationInfo(boost::weak_ptr<const fs::TokenInfo> file);
    // The application info of a TokenInfo and its bytes.
    P15ApplicationInfo(boost::weak_ptr<const fs::TokenInfo> file, const oss::TokenInfo& value,
                       mw::ByteBuffer encoding);

    ObjectClass getObjectClass() const override { return ApplicationInfoObject; }

    void read(const card::IChannel& channel, const P15Application& application) override;
    void write(const card::IChannel& channel, const P15Application& application) const override;
    void remove(const card::IChannel& channel, const P15Application& application) const override;

    // The TokenInfo as it is on the card; empty when the card has none.
    const mw::ByteBuffer& getEncoding() const { return encoding_; }
    // The TokenInfo with the host's changes.
    oss::TokenInfo encodeTokenInfo() const;
    mw::ByteBuffer encode() const;

private:
    void decodeTokenInfo(const oss::TokenInfo& value);

    boost::weak_ptr<const fs::TokenInfo> file_;
    mutable mw::ByteBuffer encoding_;
    mutable boost::optional<oss::TokenInfo> value_;
};

} // namespace object
} // namespace pkcs15
} // namespace app

#endif

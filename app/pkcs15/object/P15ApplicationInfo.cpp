#include "app/pkcs15/object/P15ApplicationInfo.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/TokenInfo.hpp"
#include "app/pkcs15/object/CommonAttributes.hpp"
#include "app/pkcs15/object/P15RsaKeyEntry.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "mw/Log.hpp"

#include <algorithm>
#include <boost/current_function.hpp>
#include <limits>

namespace app {
namespace pkcs15 {
namespace object {

namespace {

constexpr std::size_t tokenFlagBits = 4;
constexpr const char* tooLongText = "encoded application info size exceeds 65535 bytes";

// An optional text of the TokenInfo: taken when present and not empty.
void loadText(const boost::optional<std::string>& text,
              app::object::OptionalValue<std::string>& holder) {
    if (text && !text->empty()) {
        holder.load(text);
    }
}

void storeText(const app::object::OptionalValue<std::string>& holder, Store which,
               boost::optional<std::string>& text) {
    if (isStored(holder, which)) {
        text = *holder.get();
    }
}

std::vector<std::string> algorithmIds(const std::vector<oss::AlgorithmInfo>& algorithms) {
    std::vector<std::string> ids;
    for (const oss::AlgorithmInfo& algorithm : algorithms) {
        if (algorithm.algId) {
            ids.push_back(oss::oidToText(*algorithm.algId));
        }
    }
    return ids;
}

// The card's list as it is when `ids` are its identifiers in its order.
// Otherwise the card's entries without an identifier, then one entry per
// identifier of `ids`: the first card entry of that identifier not taken
// by an earlier one (entries of one identifier differ in reference and
// operations), or a new one under the next free reference.
std::vector<oss::AlgorithmInfo> storeAlgorithms(const std::vector<std::string>& ids,
                                                const std::vector<oss::AlgorithmInfo>& before) {
    if (ids == algorithmIds(before)) {
        return before;
    }
    std::vector<oss::AlgorithmInfo> after;
    std::vector<bool> taken(before.size());
    oss::Integer nextReference = 1;
    for (const oss::AlgorithmInfo& algorithm : before) {
        nextReference = std::max(nextReference, algorithm.reference + 1);
        if (!algorithm.algId) {
            after.push_back(algorithm);
        }
    }
    for (const std::string& id : ids) {
        const oss::Bytes oid = oss::oidFromText(id);
        std::size_t known = 0;
        while (known < before.size() && (taken[known] || before[known].algId != oid)) {
            ++known;
        }
        if (known < before.size()) {
            taken[known] = true;
            after.push_back(before[known]);
            continue;
        }
        oss::AlgorithmInfo algorithm;
        algorithm.reference = nextReference++;
        algorithm.parameters = {0x05, 0x00};
        algorithm.algId = oid;
        after.push_back(std::move(algorithm));
    }
    return after;
}

oss::BitString encodeTokenFlags(std::uint8_t flags) {
    if (flags > 0xF) {
        APP_THROW_DATA(InvalidDataException, "TokenInfo TokenFlags not PKCS#15 conform.", flags);
    }
    oss::BitString bits;
    bits.bitCount = tokenFlagBits;
    bits.octets = {static_cast<std::uint8_t>(flags << 4)};
    return bits;
}

std::uint8_t decodeTokenFlags(const oss::BitString& bits) {
    if (bits.bitCount > tokenFlagBits) {
        APP_THROW(InvalidDataException, "Token flags not PKCS#15 compatible");
    }
    return bits.octets.empty() ? 0 : static_cast<std::uint8_t>(bits.octets[0] >> 4);
}

} // namespace

P15ApplicationInfo::P15ApplicationInfo(boost::weak_ptr<const fs::TokenInfo> file)
    : file_(std::move(file)) {}

P15ApplicationInfo::P15ApplicationInfo(boost::weak_ptr<const fs::TokenInfo> file,
                                       const oss::TokenInfo& value, mw::ByteBuffer encoding)
    : P15ApplicationInfo(std::move(file)) {
    decodeTokenInfo(value);
    value_ = value;
    encoding_ = std::move(encoding);
}

void P15ApplicationInfo::decodeTokenInfo(const oss::TokenInfo& value) {
    if (value.version < std::numeric_limits<std::int32_t>::min() ||
        value.version > std::numeric_limits<std::int32_t>::max()) {
        APP_THROW(InvalidDataException, oss::kTextIntegerRange);
    }
    const std::uint8_t flags = decodeTokenFlags(value.tokenflags);
    if (value.lastUpdate && value.lastUpdate->choice != oss::LastUpdate::generalizedTime) {
        APP_THROW(InvalidDataException, "TokenInfo: last update by referenced time not supported.");
    }
    version_.load(static_cast<std::int32_t>(value.version));
    boost::optional<mw::ByteBuffer> serial;
    if (value.serialNumber) {
        serial = mw::ByteBuffer(*value.serialNumber);
    }
    serialNumber_.load(serial);
    tokenFlags_.load(flags);
    loadText(value.manufacturerID, manufacturerId_);
    loadText(value.label, label_);
    loadText(value.issuerId, issuerId_);
    loadText(value.holderId, holderId_);
    loadText(value.preferredLanguage, preferredLanguage_);
    if (value.lastUpdate) {
        lastUpdate_.load(value.lastUpdate->generalizedTimeValue);
    }
    if (value.supportedAlgorithms) {
        supportedAlgorithms_.load(algorithmIds(*value.supportedAlgorithms));
    }
}

oss::TokenInfo P15ApplicationInfo::encodeTokenInfo() const {
    oss::TokenInfo value = value_ ? *value_ : oss::TokenInfo();
    const Store which = value_ ? Store::Touched : Store::All;
    if (which == Store::All || version_.isTouched()) {
        value.version = getVersion();
    }
    if (isStored(serialNumber_, which)) {
        value.serialNumber = oss::Bytes(getSerialNumber()->begin(), getSerialNumber()->end());
    }
    if (which == Store::All ||
        (tokenFlags_.isTouched() && decodeTokenFlags(value.tokenflags) != getTokenFlags())) {
        value.tokenflags = encodeTokenFlags(getTokenFlags());
    }
    storeText(manufacturerId_, which, value.manufacturerID);
    storeText(label_, which, value.label);
    storeText(issuerId_, which, value.issuerId);
    storeText(holderId_, which, value.holderId);
    storeText(preferredLanguage_, which, value.preferredLanguage);
    if (isStored(lastUpdate_, which)) {
        value.lastUpdate = oss::LastUpdate();
        value.lastUpdate->generalizedTimeValue = *getLastUpdate();
    }
    if (isStored(supportedAlgorithms_, which)) {
        value.supportedAlgorithms =
            storeAlgorithms(*getSupportedAlgorithms(),
                            value.supportedAlgorithms.value_or(std::vector<oss::AlgorithmInfo>()));
    }
    return value;
}

mw::ByteBuffer P15ApplicationInfo::encode() const {
    return encodeKeyEntry(encodeTokenInfo(), tooLongText);
}

// The checks come before anything is sent: the room for a grown TokenInfo
// in the file as read, then the serial number the file writer needs.
void P15ApplicationInfo::write(const card::IChannel& channel,
                               const P15Application& application) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (!isTouched()) {
        return;
    }
    if (flags_.isTouched() || protectingAuthId_.isTouched() || accessControlRules_.isTouched()) {
        APP_THROW(OperationNotSupportedException,
                  "application info has no flags, authId or access control rules");
    }
    const oss::TokenInfo value = encodeTokenInfo();
    if (value_ && value == *value_) {
        clearTouched();
        return;
    }
    const boost::shared_ptr<const fs::TokenInfo> file = lockFile(file_);
    const P15Application::ChannelScope bound(application, channel);
    mw::ByteBuffer encoding = encodeKeyEntry(value, tooLongText);
    checkRoom(*file, channel, encoding_, encoding, "EF(TokenInfo) out of memory");
    const boost::optional<mw::ByteBuffer>& serial = getSerialNumber();
    if (!serial || serial->empty()) {
        APP_THROW(InvalidDataException, "serial number required but not found");
    }
    file->write(channel, *application.getFileAccessService(), *serial, encoding_, encoding);
    encoding_ = std::move(encoding);
    value_ = value;
    clearTouched();
}

void P15ApplicationInfo::read(const card::IChannel&, const P15Application&) {
    APP_THROW(OperationNotSupportedException, "read not supported");
}

void P15ApplicationInfo::remove(const card::IChannel&, const P15Application&) const {
    APP_THROW(OperationNotSupportedException, "remove not supported");
}

} // namespace object
} // namespace pkcs15
} // namespace app

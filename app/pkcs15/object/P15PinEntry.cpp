// How a PIN reads and writes its entry of EF(AODF).
#include "app/pkcs15/object/P15Pin.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/object/CommonAttributes.hpp"
#include "app/pkcs15/object/P15RsaKeyEntry.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>
#include <boost/exception/get_error_info.hpp>
#include <cstring>
#include <limits>

namespace app {
namespace pkcs15 {
namespace object {

namespace {

// A number of the entry as the holder's type; `text` when it does not fit.
template <class T> T narrow(oss::Integer value, const char* text) {
    if (value < 0 || static_cast<std::uint64_t>(value) > std::numeric_limits<T>::max()) {
        APP_THROW(InvalidDataException, text);
    }
    return static_cast<T>(value);
}

template <class T>
boost::optional<T> narrow(const boost::optional<oss::Integer>& value, const char* text) {
    return value ? boost::optional<T>(narrow<T>(*value, text)) : boost::none;
}

boost::optional<app::object::IPin::PinPath> decodePath(const boost::optional<oss::Path>& path) {
    if (!path) {
        return boost::none;
    }
    app::object::IPin::PinPath decoded;
    decoded.path = mw::ByteBuffer(path->path);
    decoded.index = narrow<std::uint16_t>(path->index, "pin path out of range");
    decoded.length = narrow<std::uint16_t>(path->length, "pin path out of range");
    return decoded;
}

oss::Path encodePath(const app::object::IPin::PinPath& path) {
    oss::Path encoded;
    encoded.path.assign(path.path.begin(), path.path.end());
    encoded.index = path.index ? boost::optional<oss::Integer>(*path.index) : boost::none;
    encoded.length = path.length ? boost::optional<oss::Integer>(*path.length) : boost::none;
    return encoded;
}

bool isTooLong(const InvalidDataException& e) {
    const char* const* text = boost::get_error_info<ErrorText>(e);
    return text && std::strcmp(*text, oss::kTextTooLong) == 0;
}

} // namespace

void P15Pin::decodeAuthenticationType(const oss::AuthenticationType& entry) {
    if (entry.choice != oss::AuthenticationType::pin) {
        APP_THROW(ApplicationException, "Authentication object of unknown type found");
    }
    const oss::PinObject& pin = entry.pinValue;
    loadCommonObjectAttributes(pin.commonObjectAttributes, *this);
    authId_.load(mw::ByteBuffer(pin.classAttributes.authId));
    const oss::PinAttributes& attributes = pin.typeAttributes;
    pinFlags_.load(decodeFlags(pinFlags, attributes.pinFlags));
    pinType_.load(narrow<std::uint32_t>(attributes.pinType, "pin type out of range"));
    minLength_.load(narrow<std::uint16_t>(attributes.minLength, "pin length out of range"));
    storedLength_.load(narrow<std::uint16_t>(attributes.storedLength, "pin length out of range"));
    maxLength_.load(narrow<std::uint16_t>(attributes.maxLength, "pin length out of range"));
    pinReference_.load(narrow<std::uint8_t>(attributes.pinReference, "pin reference out of range"));
    padChar_.load(attributes.padChar ? boost::optional<mw::ByteBuffer>(*attributes.padChar)
                                     : boost::none);
    lastPinChange_ = attributes.lastPinChange;
    path_.load(decodePath(attributes.path));
}

oss::AuthenticationType P15Pin::encodeAuthenticationType() const {
    if (accessControlRulesHolder().isTouched()) {
        APP_THROW(OperationNotSupportedException,
                  "access control rules of a pin cannot be written");
    }
    const Store which = entry_ ? Store::Touched : Store::All;
    const bool all = which == Store::All;
    oss::AuthenticationType entry = entry_ ? *entry_ : oss::AuthenticationType();
    oss::PinObject& pin = entry.pinValue;
    storeCommonObjectAttributes(*this, which, pin.commonObjectAttributes);
    if (all || authId_.isTouched()) {
        pin.classAttributes.authId.assign(getAuthId().begin(), getAuthId().end());
    }
    oss::PinAttributes& attributes = pin.typeAttributes;
    if (all || pinFlags_.isTouched()) {
        attributes.pinFlags = encodeFlags(pinFlags, getPinFlags());
    }
    if (all || pinType_.isTouched()) {
        attributes.pinType = getPinType();
    }
    if (all || minLength_.isTouched()) {
        attributes.minLength = getMinLength();
    }
    if (all || storedLength_.isTouched()) {
        attributes.storedLength = getStoredLength();
    }
    if (getMaxLength() && (all || maxLength_.isTouched())) {
        attributes.maxLength = *getMaxLength();
    }
    if (getPinReference() && (all || pinReference_.isTouched())) {
        attributes.pinReference = *getPinReference();
    }
    if (getPadChar() && (all || padChar_.isTouched())) {
        attributes.padChar = oss::Bytes(getPadChar()->begin(), getPadChar()->end());
    }
    if (getPath() && (all || path_.isTouched())) {
        attributes.path = encodePath(*getPath());
    }
    return entry;
}

mw::ByteBuffer P15Pin::encodeEntry(const oss::AuthenticationType& entry) const {
    try {
        return mw::ByteBuffer(oss::encode(entry));
    } catch (const InvalidDataException& e) {
        if (isTooLong(e)) {
            APP_THROW(ApplicationException, "encoded pin size exceeds 65535 bytes");
        }
        throw;
    }
}

void P15Pin::write(const card::IChannel& channel, const P15Application& application) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (!isTouched()) {
        return;
    }
    const oss::AuthenticationType entry = encodeAuthenticationType();
    mw::ByteBuffer encoding = encodeEntry(entry);
    const boost::shared_ptr<const fs::AODF> aodf = aodf_.lock();
    if (!aodf) {
        APP_THROW(ApplicationException, "failed to get shared ptr from weak ptr");
    }
    const P15Application::ChannelScope bound(application, channel);
    checkRoom(*aodf, channel, encoding_, encoding, "EF(AODF) out of memory");
    aodf->updateEncodedAttributes(encoding_, encoding);
    encoding_ = std::move(encoding);
    entry_ = entry;
    clearTouched();
}

} // namespace object
} // namespace pkcs15
} // namespace app

#ifndef APP_PKCS15_OBJECT_P15VALUEOBJECT_HPP
#define APP_PKCS15_OBJECT_P15VALUEOBJECT_HPP

#include "app/object/IEncodedEntry.hpp"
#include "app/pkcs15/fs/AppObjectType.hpp"
#include "app/pkcs15/object/AbstractP15Object.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>

namespace app {
namespace pkcs15 {
namespace object {

// Where the value of an object lies on the card: a file, and the range of
// it (offset and length) that holds the value.
struct ValueLocation {
    mw::ByteBuffer path;
    boost::optional<std::uint16_t> index;
    boost::optional<std::uint16_t> length;

    bool operator==(const ValueLocation& other) const {
        return path == other.path && index == other.index && length == other.length;
    }
};

// The location of an indirect value given by a path; an empty path for any
// other kind of value. An index or length beyond 16 bits is taken as absent.
ValueLocation decodeValueLocation(const oss::ObjectValue& value);
// Makes `value` the indirect path `location`, keeping what the Path holds
// beyond path, index and length.
void storeValueLocation(const ValueLocation& location, oss::ObjectValue& value);

// What the texts of errors say about one kind of object.
struct ValueObjectTexts {
    const char* valueTooLong;
    const char* entryTooLong;
    const char* outOfMemory;
    const char* notOnCard;
};

// A PKCS#15 object whose value lies in a file of its own (a certificate, a
// data object): `Generic` holds the attributes and the value, `File` is its
// directory file, `Entry` the directory entry's ASN.1 type.
//
// An entry read from the card is rewritten from what was read, with only
// what the host set replaced. A value is read once and then kept; writing
// keeps what was written.
template <class Generic, class File, class Entry>
class P15ValueObject : public Generic, public app::object::IEncodedEntry, public AbstractP15Object {
public:
    // Reads the value, unless it is known already.
    void read(const card::IChannel& channel, const P15Application& application) override;
    // Stores what the host changed: the entry (when it changed), then the
    // value's file (when a value was set), created anew at the value's path.
    // A failure with the value's file puts the entry back as it was. A new
    // value whose file is found on the card and named by another entry that
    // this application had not seen gets the next free file.
    void write(const card::IChannel& channel, const P15Application& application) const override;
    // Drops the entry, then deletes the value's file unless another entry
    // still names it.
    void remove(const card::IChannel& channel, const P15Application& application) const override;

    // The entry as it is on the card; empty for a new object.
    const mw::ByteBuffer& getEncoding() const override { return encoding_; }
    const ValueLocation& getValueLocation() const { return location_; }
    // The DER entry with the host's changes.
    mw::ByteBuffer encode() const;

protected:
    P15ValueObject(boost::weak_ptr<const File> file, const ValueObjectTexts& texts)
        : file_(std::move(file))
        , texts_(texts) {}

    // Records an entry read from the card, once its attributes are loaded.
    void keepEntry(const Entry& entry, mw::ByteBuffer encoding, ValueLocation location) {
        entry_ = entry;
        encoding_ = std::move(encoding);
        location_ = std::move(location);
    }
    // The entry as read (or last written), the base of the next one.
    const boost::optional<Entry>& entry() const { return entry_; }
    bool hasRules() const {
        return this->getAccessControlRules() && !this->getAccessControlRules()->empty();
    }

    // The entry with the host's changes and the value at `location`.
    virtual Entry encodeEntry(const ValueLocation& location) const = 0;
    // The kind of file a new value gets.
    virtual fs::AppObjectType valueFileType() const = 0;
    virtual const oss::CommonObjectAttributes& commonAttributesOf(const Entry& entry) const = 0;

private:
    // Whether the entry read has rules the application's conditions cannot
    // express: a file made anew from the rules it can would lose them.
    bool hasInexpressibleRules() const;
    void writeOnce(const card::IChannel& channel, const P15Application& application) const;
    void writeValueFile(const card::IChannel& channel, const P15Application& application,
                        const ValueLocation& location, bool replace) const;

    boost::weak_ptr<const File> file_;
    ValueObjectTexts texts_;
    mutable mw::ByteBuffer encoding_;
    mutable boost::optional<Entry> entry_;
    mutable ValueLocation location_;
};

} // namespace object
} // namespace pkcs15
} // namespace app

#endif

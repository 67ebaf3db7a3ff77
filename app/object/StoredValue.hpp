#ifndef APP_OBJECT_STOREDVALUE_HPP
#define APP_OBJECT_STOREDVALUE_HPP

#include "mw/ByteBuffer.hpp"

namespace app {
namespace object {

// The content of an object kept in a file of its own (a certificate, a data
// object): empty until read from the card or set by the host. Once read or
// written it is kept, so the card is asked only once.
class StoredValue {
public:
    const mw::ByteBuffer& get() const { return value_; }

    // A value the host gives: to be written.
    void set(const mw::ByteBuffer& value) {
        value_ = value;
        modified_ = true;
        known_ = true;
    }

    // The value as the card holds it, read or just written.
    void load(mw::ByteBuffer value) const {
        value_ = std::move(value);
        modified_ = false;
        known_ = true;
    }

    // The value set is now the card's.
    void markWritten() const { modified_ = false; }

    // Forgets the value: the card no longer holds it, or it must be read again.
    void forget() const {
        value_.clear();
        modified_ = false;
        known_ = false;
    }

    bool isModified() const { return modified_; }
    // Whether the value is in memory, read, written or set.
    bool isKnown() const { return known_; }

private:
    mutable mw::ByteBuffer value_;
    mutable bool modified_ = false;
    mutable bool known_ = false;
};

} // namespace object
} // namespace app

#endif

#ifndef APP_OBJECT_OPTIONALVALUE_HPP
#define APP_OBJECT_OPTIONALVALUE_HPP

#include <boost/optional.hpp>

namespace app {
namespace object {

// An attribute that may be absent. Setting it makes it present and touched.
template <class T> class OptionalValue {
public:
    const boost::optional<T>& get() const { return value_; }

    void set(const T& value) {
        value_ = value;
        touched_ = true;
    }

    // The value as read from the card (absent when the card has none).
    void load(const boost::optional<T>& value) {
        if (value) {
            value_ = *value;
        } else {
            value_ = boost::none;
        }
        touched_ = false;
    }

    bool isTouched() const { return touched_; }
    void clearTouched() const { touched_ = false; }

private:
    boost::optional<T> value_;
    mutable bool touched_ = false;
};

} // namespace object
} // namespace app

#endif

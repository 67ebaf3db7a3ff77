#ifndef APP_OBJECT_TRACKEDVALUE_HPP
#define APP_OBJECT_TRACKEDVALUE_HPP

#include <utility>

namespace app {
namespace object {

// An attribute that always has a value: the value read from the card (or the
// default of a new object) and, once changed, the new value. `touched` says
// that the host set it, `changed` that it set a different value.
template <class T> class TrackedValue {
public:
    TrackedValue() = default;
    explicit TrackedValue(T initial)
        : initial_(std::move(initial)) {}

    const T& get() const { return changed_ ? value_ : initial_; }

    void set(const T& value) {
        if (!(value == get())) {
            value_ = value;
            changed_ = true;
        }
        touched_ = true;
    }

    // The value as read from the card: no flag set.
    void load(T value) {
        initial_ = std::move(value);
        value_ = T();
        changed_ = false;
        touched_ = false;
    }

    bool isChanged() const { return changed_; }
    bool isTouched() const { return touched_; }
    void clearTouched() const { touched_ = false; }

private:
    T initial_ = T();
    T value_ = T();
    bool changed_ = false;
    mutable bool touched_ = false;
};

} // namespace object
} // namespace app

#endif

#ifndef MW_AUTOPTR_HPP
#define MW_AUTOPTR_HPP

#include "mw/Exception.hpp"

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace mw {

// Releases a single object.
struct ObjectDeallocator {
    template <class T> static void deallocate(T* object) noexcept { delete object; }
};

// Releases an array allocated with new[].
struct ArrayDeallocator {
    template <class T> static void deallocate(T* array) noexcept { delete[] array; }
};

// How an AutoPtr<T> releases by default: byte arrays (the crypto provider
// hands out encodings as new[]'d bytes) and T[] with delete[], anything else
// with delete.
template <class T>
using DefaultDeallocator =
    std::conditional_t<std::is_array_v<T> || std::is_same_v<T, unsigned char> ||
                           std::is_same_v<T, signed char> || std::is_same_v<T, char> ||
                           std::is_same_v<T, std::byte>,
                       ArrayDeallocator, ObjectDeallocator>;

namespace detail {
// The shared owner behind AutoPtr: the object and the number of AutoPtrs that
// refer to it. The count is not shared across threads.
template <class T, class Deallocator> class AutoPtrContainer {
public:
    explicit AutoPtrContainer(T* object) noexcept
        : object_(object) {}
    ~AutoPtrContainer() { Deallocator::deallocate(object_); }
    AutoPtrContainer(const AutoPtrContainer&) = delete;
    AutoPtrContainer& operator=(const AutoPtrContainer&) = delete;

    // The owned object, or null; never throws.
    T* get() const noexcept { return object_; }
    void addReference() noexcept { ++references_; }
    // Deletes the container, and with it the object, with the last reference.
    void dropReference() noexcept {
        if (--references_ == 0) {
            delete this;
        }
    }

private:
    T* object_;
    std::size_t references_ = 1;
};

} // namespace detail

// Owns an object handed out by the crypto provider; copies share it, the last
// one releases it. Dereferencing a null AutoPtr throws NullPointerException.
// Deallocator says how: ObjectDeallocator (delete) or ArrayDeallocator
// (delete[]), by default as DefaultDeallocator<T> says. AutoPtr<T[]> holds a
// T*.
template <class T, class Deallocator = DefaultDeallocator<T>> class AutoPtr {
public:
    using element_type = std::remove_extent_t<T>;

private:
    using Container = detail::AutoPtrContainer<element_type, Deallocator>;

public:
    AutoPtr() noexcept = default;

    // Takes ownership; the object is released even if this constructor fails.
    explicit AutoPtr(element_type* object)
        : container_(adopt(object)) {}

    AutoPtr(const AutoPtr& other) noexcept { share(other.container_); }

    AutoPtr(AutoPtr&& other) noexcept
        : container_(std::exchange(other.container_, nullptr)) {}

    ~AutoPtr() { release(); }

    AutoPtr& operator=(const AutoPtr& other) noexcept {
        share(other.container_);
        return *this;
    }

    AutoPtr& operator=(AutoPtr&& other) noexcept {
        if (this != &other) {
            release();
            container_ = std::exchange(other.container_, nullptr);
        }
        return *this;
    }

    // Lets go of the object (released if this was its last owner) and takes
    // ownership of `object`.
    void reset(element_type* object = nullptr) { *this = AutoPtr(object); }

    // The owned object, or null; never throws.
    element_type* get() const noexcept {
        return container_ != nullptr ? container_->get() : nullptr;
    }

    element_type* operator->() const {
        assert_value(get());
        return get();
    }

    element_type& operator*() const {
        assert_value(get());
        return *get();
    }

private:
    // Checks the wrapped pointer before it is used.
    static void assert_value(element_type* const value) {
        if (value == nullptr) {
            MW_THROW(NullPointerException, "Wrapped pointer is a NULL pointer.");
        }
    }

    static Container* adopt(element_type* object) {
        if (object == nullptr) {
            return nullptr;
        }
        auto* container = new (std::nothrow) Container(object);
        if (container == nullptr) {
            Deallocator::deallocate(object);
            throw std::bad_alloc();
        }
        return container;
    }

    // Takes the new reference before dropping the old, so self-assignment is safe.
    void share(Container* container) noexcept {
        if (container != nullptr) {
            container->addReference();
        }
        release();
        container_ = container;
    }

    void release() noexcept {
        Container* container = std::exchange(container_, nullptr);
        if (container != nullptr) {
            container->dropReference();
        }
    }

    Container* container_ = nullptr;
};

} // namespace mw

#endif

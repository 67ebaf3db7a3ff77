#ifndef MW_AUTOPTR_HPP
#define MW_AUTOPTR_HPP

#include "mw/Exception.hpp"

#include <cstddef>
#include <new>
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
// Deallocator says how: ObjectDeallocator (delete) or ArrayDeallocator.
template <class T, class Deallocator = ObjectDeallocator> class AutoPtr {
    using Container = detail::AutoPtrContainer<T, Deallocator>;

public:
    AutoPtr() noexcept = default;

    // Takes ownership; the object is released even if this constructor fails.
    explicit AutoPtr(T* object)
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

    // The owned object, or null; never throws.
    T* get() const noexcept { return container_ != nullptr ? container_->get() : nullptr; }

    T* operator->() const {
        assert_value(get());
        return get();
    }

    T& operator*() const {
        assert_value(get());
        return *get();
    }

private:
    // Checks the wrapped pointer before it is used.
    static void assert_value(T* const value) {
        if (value == nullptr) {
            MW_THROW(NullPointerException, "Wrapped pointer is a NULL pointer.");
        }
    }

    static Container* adopt(T* object) {
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

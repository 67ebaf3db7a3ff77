#ifndef MW_AUTOPTR_HPP
#define MW_AUTOPTR_HPP

#include "mw/Exception.hpp"

#include <cstddef>
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
// The shared owner behind AutoPtr (object and reference count, one thread).
template <class T, class Deallocator> class AutoPtrContainer {
public:
    explicit AutoPtrContainer(T* object) noexcept
        : object_(object) {}
    ~AutoPtrContainer() { Deallocator::deallocate(object_); }
    AutoPtrContainer(const AutoPtrContainer&) = delete;
    AutoPtrContainer& operator=(const AutoPtrContainer&) = delete;

    T* get() const noexcept { return object_; }
    void addReference() noexcept { ++references_; }
    // True when the last reference is gone.
    bool dropReference() noexcept { return --references_ == 0; }

private:
    T* object_;
    std::size_t references_ = 1;
};

} // namespace detail

// Owns an object handed out by the crypto provider; copies share it, the last
// one releases it. Dereferencing a null AutoPtr throws NullPointerException.
template <class T, class Deallocator = ObjectDeallocator> class AutoPtr {
    using Container = detail::AutoPtrContainer<T, Deallocator>;

public:
    AutoPtr() noexcept = default;

    // Takes ownership; the object is released even if this constructor fails.
    explicit AutoPtr(T* object)
        : container_(adopt(object)) {}

    AutoPtr(const AutoPtr& other) noexcept
        : container_(other.container_) {
        if (container_ != nullptr) {
            container_->addReference();
        }
    }

    AutoPtr(AutoPtr&& other) noexcept
        : container_(std::exchange(other.container_, nullptr)) {}

    ~AutoPtr() { release(); }

    AutoPtr& operator=(AutoPtr other) noexcept {
        std::swap(container_, other.container_);
        return *this;
    }

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
    static Container* adopt(T* object) {
        if (object == nullptr) {
            return nullptr;
        }
        try {
            return new Container(object);
        } catch (...) {
            Deallocator::deallocate(object);
            throw;
        }
    }

    // Checks the wrapped pointer before it is used.
    static void assert_value(T* const value) {
        if (value == nullptr) {
            MW_THROW(NullPointerException, "Wrapped pointer is a NULL pointer.");
        }
    }

    void release() noexcept {
        if (container_ != nullptr && container_->dropReference()) {
            delete container_;
        }
        container_ = nullptr;
    }

    Container* container_ = nullptr;
};

} // namespace mw

#endif

#ifndef MW_BYTEBUFFER_HPP
#define MW_BYTEBUFFER_HPP

#include "mw/Exception.hpp"
#include "mw/Visibility.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace mw {
namespace detail {

// Thrown when the runtime has no memory left for a buffer.
class MW_EXPORT_TYPE AllocationFailure : public std::bad_alloc {
public:
    const char* what() const noexcept override {
        return "CleanUpAllocPolicy: Allocating memory failed!";
    }
};

// Zeroes memory in a way the optimiser may not drop before a free.
inline void wipe(void* memory, std::size_t bytes) noexcept {
    if (memory != nullptr) {
        explicit_bzero(memory, bytes);
    }
}

inline constexpr const char* sizeTooBig =
    "Invalid argument \"size\". Value is bigger as possible max_size";
// Memory work of a buffer: exact-size zero-filled blocks, each wiped before
// it goes back to the runtime, so no secret outlives its buffer. The second
// parameter only names the type; allocations are never rounded up.
template <class T, std::size_t Unused> class CleanUpAllocPolicy {
public:
    using value_type = T;
    using pointer = T*;
    using size_type = std::size_t;

    static constexpr size_type max_size() noexcept {
        return std::numeric_limits<size_type>::max() / sizeof(T);
    }

    pointer allocate(size_type n) const {
        assertSize(n);
        if (n == 0) {
            return nullptr;
        }
        void* block = std::calloc(n * sizeof(T), 1);
        if (block == nullptr) {
            throw AllocationFailure();
        }
        return static_cast<pointer>(block);
    }

    void deallocate(pointer block, size_type n) const noexcept {
        wipe(block, n * sizeof(T));
        std::free(block);
    }

    void assertSize(size_type n) const {
        if (n > max_size()) {
            MW_THROW(IllegalArgumentException, sizeTooBig);
        }
    }
};

// Per-element work of a buffer. Elements live in zero-filled raw memory and
// are moved by plain copies, so only trivially copyable types qualify.
template <class T> struct ObjectTraits {
    static_assert(std::is_trivially_copyable<T>::value,
                  "buffer elements must be trivially copyable");

    static void copy(T* destination, const T* source, std::size_t count) noexcept {
        if (count != 0) {
            std::memcpy(destination, source, count * sizeof(T));
        }
    }
};

} // namespace detail

template <class T, class Policy, class Traits> class Allocator : public Policy, public Traits {
public:
    using value_type = T;
    using pointer = T*;
    using size_type = std::size_t;
};

// A contiguous run of elements that owns its memory; it carries all card
// data (APDUs, file contents, encodings, key components, PIN values).
//
// - Copies are deep: a copy gets its own block.
// - Every block the buffer gives up (destruction, clear, reassignment,
//   resize, insertion) is wiped before it is freed, so resizing costs a copy.
// - Blocks have exactly the requested size and come zero-filled; an empty
//   buffer holds no block at all (data() is null).
// - Range errors throw mw::IndexException "invalid index ".
//
// One thread owns a buffer at a time.
template <class T, class Alloc> class Buffer {
public:
    using value_type = T;
    using size_type = std::size_t;
    using iterator = T*;
    using const_iterator = const T*;

    Buffer() noexcept = default;

    explicit Buffer(size_type size) {
        data_ = alloc_.allocate(size);
        size_ = size;
    }

    Buffer(const T* source, size_type size)
        : Buffer(size) {
        alloc_.copy(data_, source, size);
    }

    Buffer(std::initializer_list<T> elements)
        : Buffer(elements.begin(), elements.size()) {}

    explicit Buffer(const std::vector<T>& elements)
        : Buffer(elements.data(), elements.size()) {}

    Buffer(const Buffer& other)
        : Buffer(other.data_, other.size_) {}

    Buffer(Buffer&& other) noexcept
        : data_(std::exchange(other.data_, nullptr))
        , size_(std::exchange(other.size_, 0)) {}

    ~Buffer() { clear(); }

    Buffer& operator=(const Buffer& other) {
        if (this != &other) {
            Buffer copy(other);
            swap(copy);
        }
        return *this;
    }

    Buffer& operator=(Buffer&& other) noexcept {
        if (this != &other) {
            clear();
            swap(other);
        }
        return *this;
    }

    void swap(Buffer& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
    }

    size_type size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    T* data() noexcept { return data_; }
    const T* data() const noexcept { return data_; }

    iterator begin() noexcept { return data_; }
    iterator end() noexcept { return data_ + size_; }
    const_iterator begin() const noexcept { return data_; }
    const_iterator end() const noexcept { return data_ + size_; }

    // Wipes and frees the block; the buffer is empty afterwards.
    void clear() noexcept {
        alloc_.deallocate(data_, size_);
        data_ = nullptr;
        size_ = 0;
    }

    // Moves the contents to a block of exactly `size` elements: growing adds
    // zeros at the end, shrinking drops the tail.
    void resize(size_type size) {
        if (size == size_) {
            return;
        }
        if (size == 0) {
            clear();
            return;
        }
        Buffer resized(size);
        alloc_.copy(resized.data_, data_, std::min(size, size_));
        swap(resized);
    }

    // Inserts `count` elements at `position` (position == size() appends).
    // The result is built in a new block, so `source` may point into this
    // buffer.
    void insert(size_type position, const T* source, size_type count) {
        if (position > size_) {
            MW_THROW(IndexException, "invalid index ");
        }
        if (count == 0) {
            return;
        }
        Buffer joined(size_ + count);
        alloc_.copy(joined.data_, data_, position);
        alloc_.copy(joined.data_ + position, source, count);
        alloc_.copy(joined.data_ + position + count, data_ + position, size_ - position);
        swap(joined);
    }

    void insert(size_type position, const Buffer& elements) {
        insert(position, elements.data_, elements.size_);
    }

    // Appending is insertion at the end (new block, old one wiped).
    void append(const T* source, size_type count) { insert(size_, source, count); }
    void append(const Buffer& elements) { insert(size_, elements.data_, elements.size_); }
    void append(T element) { insert(size_, &element, 1); }

    // A copy of `length` elements from `offset` (length 0: empty buffer).
    Buffer get(size_type offset, size_type length) const {
        const size_type end = offset + length;
        if (end < offset || end > size_) {
            // get(size_) throws, so that all range errors share one site.
            static_cast<void>(get(size_));
            return Buffer();
        }
        return Buffer(data_ + offset, length);
    }

    bool operator==(const Buffer& other) const noexcept {
        return size_ == other.size_ && std::equal(begin(), end(), other.begin());
    }
    bool operator!=(const Buffer& other) const noexcept { return !(*this == other); }

    // The element at `index`; writers use data() or the iterators.
    T get(size_type index) const {
        if (index >= size_) {
            MW_THROW(IndexException, "invalid index ");
        }
        return data_[index];
    }

private:
    T* data_ = nullptr;
    std::uint64_t size_ = 0;
    Alloc alloc_;
};

using ByteBuffer =
    Buffer<unsigned char, Allocator<unsigned char, detail::CleanUpAllocPolicy<unsigned char, 64>,
                                    detail::ObjectTraits<unsigned char>>>;

} // namespace mw

#endif

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vcard {

/// std::allocator that zeroes every block before giving it back, for containers that hold
/// secrets in transit (the card image's text and JSON tree hold PINs and private keys).
template <class T> struct WipingAllocator {
    using value_type = T;

    WipingAllocator() = default;
    template <class U> WipingAllocator(const WipingAllocator<U>&) {}

    T* allocate(std::size_t n) { return std::allocator<T>().allocate(n); }
    void deallocate(T* block, std::size_t n) {
        volatile unsigned char* bytes = reinterpret_cast<unsigned char*>(block);
        for (std::size_t i = 0; i < n * sizeof(T); ++i)
            bytes[i] = 0;
        std::allocator<T>().deallocate(block, n);
    }

    template <class U> bool operator==(const WipingAllocator<U>&) const { return true; }
    template <class U> bool operator!=(const WipingAllocator<U>&) const { return false; }
};

/// Text that may hold a secret: zeroed whenever its storage is released.
using SecretText = std::basic_string<char, std::char_traits<char>, WipingAllocator<char>>;
/// Bytes that may hold a secret: zeroed whenever their storage is released, on every path out.
using SecretBytes = std::vector<std::uint8_t, WipingAllocator<std::uint8_t>>;

} // namespace vcard

#include "FreeHook.hpp"

#include <algorithm>
#include <cstring>
#include <malloc.h>

#if defined(__SANITIZE_ADDRESS__)
#define P15_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define P15_TEST_ASAN 1
#endif
#endif

// The free() this one replaces: the sanitizer's when it owns the heap,
// otherwise the C library's.
#ifdef P15_TEST_ASAN
extern "C" void __interceptor_free(void* block);
#define releaseBlock __interceptor_free
#else
extern "C" void __libc_free(void* block);
#define releaseBlock __libc_free
#endif

namespace {

const void* watchedBlock = nullptr;
std::size_t watchedSize = 0;
bool blockFreed = false;
bool blockWasZero = false;

// Plain storage: the hook must not allocate or free on its own.
char secret[64];
std::size_t secretSize = 0;
std::size_t holdingSecret = 0;

// Volatile stores, so that no store the test relies on is optimised away
// ahead of a free.
void fill(unsigned char* block, std::size_t size, unsigned char value) {
    volatile unsigned char* bytes = block;
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = value;
    }
}

} // namespace

namespace freehook {

void watch(unsigned char* block, std::size_t size) {
    fill(block, size, 0xA5);
    watchedBlock = block;
    watchedSize = size;
    blockFreed = false;
    blockWasZero = false;
}

void watch(mw::ByteBuffer& buffer) {
    watch(buffer.data(), buffer.size());
}

void lookFor(std::string_view text) {
    secretSize = std::min(text.size(), sizeof secret);
    std::memcpy(secret, text.data(), secretSize);
    holdingSecret = 0;
}

std::size_t blocksFreedHoldingSecret() {
    return holdingSecret;
}

::testing::AssertionResult releasedAsZeros() {
    if (!blockFreed) {
        return ::testing::AssertionFailure() << "the block was not freed";
    }
    if (!blockWasZero) {
        return ::testing::AssertionFailure() << "the block held data when it was freed";
    }
    return ::testing::AssertionSuccess();
}

} // namespace freehook

// Not instrumented: the sanitizer's start-up frees memory through here
// before its shadow memory exists (no block is watched then).
extern "C" __attribute__((no_sanitize("address"))) __attribute__((no_sanitize("undefined"))) void
free(void* block) {
    if (block != nullptr && block == watchedBlock) {
        const auto* bytes = static_cast<const unsigned char*>(block);
        blockWasZero =
            std::all_of(bytes, bytes + watchedSize, [](unsigned char b) { return b == 0; });
        blockFreed = true;
        watchedBlock = nullptr;
    }
    if (block != nullptr && secretSize > 0 &&
        memmem(block, malloc_usable_size(block), secret, secretSize) != nullptr) {
        ++holdingSecret;
    }
    releaseBlock(block);
}

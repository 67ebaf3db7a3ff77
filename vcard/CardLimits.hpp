#pragma once

#include <cstddef>
#include <string>

namespace vcard {

struct CardFile;

/// How much the card holds. The commands refuse with 6A84 whatever would take the card beyond
/// these limits, and the image loader refuses an image beyond them: every card that the commands
/// build loads again.
namespace limits {
/// Levels of files below the MF: the children of the MF are at depth 1.
constexpr int maxDepth = 16;
/// Files of every kind, the MF included.
constexpr std::size_t maxFiles = 4096;
/// Private and public key files together.
constexpr std::size_t maxKeyFiles = 256;
/// Card memory in bytes, as storageOf() counts it.
constexpr std::size_t capacity = 1024 * 1024;
/// The largest transparent EF: the size in the FCP has two bytes. Offsets beyond 7FFF need the
/// odd-INS READ and UPDATE BINARY.
constexpr std::size_t maxEfSize = 0xFFFF;
/// The longest DF name.
constexpr std::size_t maxDfName = 16;
/// The longest stored PIN value.
constexpr std::size_t maxPinLength = 64;
/// The largest image file the loader reads; a card within the limits above stays far below.
constexpr std::size_t maxImageSize = 16 * 1024 * 1024;

bool isSupportedKeySize(unsigned bits);
/// What a file takes of the card memory: a header, its content and room for its key.
std::size_t storageOf(const CardFile& file);
} // namespace limits

/// What a file tree takes of the card's limits, counted file by file.
class CardUsage {
public:
    /// Every file of the tree under root, root included.
    static CardUsage of(const CardFile& root);

    /// The limit that adding file at this depth would exceed; empty when it fits.
    std::string excess(const CardFile& file, int depth) const;
    void add(const CardFile& file);

private:
    std::size_t files_ = 0;
    std::size_t keyFiles_ = 0;
    std::size_t storage_ = 0;
};

} // namespace vcard

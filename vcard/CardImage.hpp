#pragma once

#include "vcard/CardState.hpp"

#include <stdexcept>
#include <string>

namespace vcard {

class Instrumentation;

/// A card image that cannot be read, or a state that cannot be written.
class ImageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The whole persistent card state as one versioned JSON document (bytes in hex, private keys
/// included), and its atomic storage in a file of mode 0600.
class CardImage {
public:
    static constexpr int version = 1;

    static std::string serialise(const CardState& state);
    /// Throws ImageError naming source and the first thing found wrong.
    static CardState parse(const std::string& text, const std::string& source);

    /// Reads and parses the image; the file is never modified.
    static CardState load(const std::string& path);
    /// Writes the text to a temporary file beside path, syncs it, renames it over path and syncs
    /// the directory, so that a crash leaves either the old or the new image. hooks, when given,
    /// may stop the save at each SavePoint.
    static void store(const std::string& path, const std::string& text,
                      Instrumentation* hooks = nullptr);
};

} // namespace vcard

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

/// The new image replaced the old one, but its directory could not be synced afterwards: the
/// change is stored, though a power loss could still take it back.
class ImageNotSynced : public ImageError {
public:
    using ImageError::ImageError;
};

/// The whole persistent card state as one versioned JSON document (bytes in hex, private keys
/// included), and its atomic storage in a file of mode 0600.
class CardImage {
public:
    static constexpr int version = 1;

    static std::string serialise(const CardState& state);
    /// Throws ImageError naming source and the first thing found wrong.
    static CardState parse(const std::string& text, const std::string& source);

    /// Reads and parses the image; the file is never modified. A path that is a symbolic link
    /// or not a regular file is refused.
    static CardState load(const std::string& path);
    /// Writes the text to a new temporary file (mkstemp, mode 0600) beside path, syncs it,
    /// renames it over path and syncs the directory, so that a crash leaves either the old or the
    /// new image. A path that is a symbolic link is refused. Throws ImageError when the image was
    /// not replaced (the temporary file is removed), ImageNotSynced when only the directory sync
    /// failed. hooks, when given, may stop or fail the save at each SavePoint.
    static void store(const std::string& path, const std::string& text,
                      Instrumentation* hooks = nullptr);
};

} // namespace vcard

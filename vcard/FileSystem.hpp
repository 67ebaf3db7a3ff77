#pragma once

#include "vcard/CardFile.hpp"

#include <memory>

namespace vcard {

/// The file tree with the current DF and current file, and the commands that navigate and
/// change its structure. Refusals throw CardError with the status word of the profile.
class FileSystem {
public:
    static constexpr std::uint16_t mfFid = 0x3F00;

    /// A card with an empty MF.
    FileSystem();
    explicit FileSystem(std::unique_ptr<CardFile> mf);

    CardFile& mf() { return *mf_; }
    const CardFile& mf() const { return *mf_; }
    CardFile& currentFile() { return *current_; }
    /// The current DF: the current file if it is a DF, otherwise its parent.
    CardFile& currentDf();
    /// Back to the MF, as after a reset.
    void resetSelection() { current_ = mf_.get(); }
    /// Selects the file at the path of previous's current file, or the MF when there is none:
    /// another tree of the same card, reloaded, keeps the selection where it can.
    void followSelection(const FileSystem& previous);

    /// SELECT P1 00, 01, 02: by FID relative to the current DF.
    CardFile& selectByFid(std::uint8_t p1, const Bytes& fid);
    /// SELECT P1 04: the DF with exactly this name.
    CardFile& selectByName(const Bytes& name);
    /// SELECT P1 08 (fromMf) or 09.
    CardFile& selectByPath(const Bytes& path, bool fromMf);

    /// The current file as a transparent EF: 6986 without one, 6981 for a key file.
    CardFile& currentEf();

    /// CREATE FILE from an FCP template in the current DF; the new file becomes current. A file
    /// beyond the card's limits (CardLimits.hpp) is refused with 6A84.
    CardFile& create(const Bytes& fcp, const SecurityStatus& status);
    /// DELETE FILE of a child of the current DF (fid given) or of the current file.
    void remove(const Bytes& fid, const SecurityStatus& status);

    /// The key file with this FID in the current DF or, failing that, in the nearest parent.
    CardFile* findKeyFile(std::uint16_t fid);

private:
    CardFile& select(CardFile& file);

    std::unique_ptr<CardFile> mf_;
    CardFile* current_;
};

} // namespace vcard

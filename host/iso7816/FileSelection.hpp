#ifndef HOST_ISO7816_FILESELECTION_HPP
#define HOST_ISO7816_FILESELECTION_HPP

#include "card/CardException.hpp"
#include "host/iso7816/Fcp.hpp"
#include "mw/ByteBuffer.hpp"

#include <optional>

namespace card {
class ICardTransport;
class Transaction;
} // namespace card

namespace host {
namespace iso7816 {

// What the host knows about the card's selection, shared by the services of
// one card: the application DF (learned from SELECT by DF name), the current
// DF and the FCP of the last file selected with an answer, so that reading
// a whole file right after selecting it costs no extra command. A reset by
// another application sends the card back to the MF; the host follows.
//
// Paths are handled as absolute paths from the MF without 3F00: a path that
// starts with 3F00 is taken from the MF; a bare file identifier, a path
// starting with 3FFF and any other relative path from the application DF.
class FileSelection {
public:
    // SELECT by DF name; records the application DF and its FCP.
    void selectApplication(const card::Transaction& held, const mw::ByteBuffer& aid);
    // SELECT by path with the FCP in the answer; the FCP is remembered. The
    // file selected already is not selected again.
    const Fcp& select(const card::Transaction& held, const mw::ByteBuffer& path);
    // SELECT of a DF by absolute path, without an answer, unless it is the
    // current DF already.
    void selectDf(const card::Transaction& held, const mw::ByteBuffer& absolutePath);
    // Makes the application DF current unless the current DF lies in it
    // already (the card looks key files up from the current DF upwards).
    void enterApplication(const card::Transaction& held);
    // After another application reset the card, selects again the file
    // selected before, so that the next command acts on the same file.
    void followReset(const card::Transaction& held);

    mw::ByteBuffer absolutePath(const mw::ByteBuffer& path) const;
    const mw::ByteBuffer& applicationDf() const;

    // The FCP of the current file, when it came from a SELECT.
    const Fcp& currentFile() const;
    // Runs `operation` on the current file: a card exception names the file.
    template <class Operation> auto onCurrentFile(const Operation& operation) const {
        try {
            return operation();
        } catch (card::CardException& e) {
            if (currentFile_) {
                e << filePath(currentPath_);
            }
            throw;
        }
    }
    // A file was created under `parentDf` and is now current.
    void created(const mw::ByteBuffer& parentDf, Fcp fcp);
    // A file of `parentDf` was deleted: the DF itself is now current.
    void deleted(const mw::ByteBuffer& parentDf);

    // Whether the card takes extended Lc and Le fields, as its ATR says;
    // learned once, without a command.
    bool extendedLength(const card::ICardTransport& transport);

private:
    mw::ByteBuffer sendSelectCommand(const card::Transaction& held,
                                     const mw::ByteBuffer& absolutePath, bool wantFcp);
    const Fcp& selectAbsolute(const card::Transaction& held, const mw::ByteBuffer& absolutePath);

    std::optional<mw::ByteBuffer> applicationDf_;
    std::optional<mw::ByteBuffer> currentDf_;
    std::optional<Fcp> currentFile_;
    mw::ByteBuffer currentPath_; // of currentFile_
    // The transport's reset count when the card's selection was last known.
    unsigned long resetsSeen_ = 0;
    std::optional<bool> extendedLength_;
};

// `path` without its last file identifier.
mw::ByteBuffer parentPath(const mw::ByteBuffer& absolutePath);
// The last file identifier of `path`.
mw::ByteBuffer lastFileId(const mw::ByteBuffer& absolutePath);

} // namespace iso7816
} // namespace host

#endif

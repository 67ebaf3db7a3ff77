#ifndef APP_PKCS15_FS_P15FILE_HPP
#define APP_PKCS15_FS_P15FILE_HPP

#include "mw/ByteBuffer.hpp"

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace card {
class IChannel;
namespace service {
class IFileAccessService;
}
} // namespace card

namespace app {
namespace pkcs15 {

class P15Application;

namespace fs {

class ODF;

// A file path as "3F00/5015/4402", for messages.
std::string pathText(const mw::ByteBuffer& path);

// A PKCS#15 directory file (AODF, PrKDF, PuKDF, CDF, DODF): read from the
// card when first needed, split into its DER entries, and rewritten entry by
// entry through the application when an object changes.
class P15File {
public:
    // The kinds of file EF(ODF) can point to; the last one, EF(TokenInfo),
    // is not listed there.
    enum FileId { CDF = 0, AODF = 1, DODF = 2, PrKDF = 3, PuKDF = 4, TokenInfo = 5 };

    // One DER entry of the file: where it starts and its bytes.
    struct Entry {
        std::size_t offset;
        mw::ByteBuffer encoding;
    };

    // Why the lists leave an entry of the file out: it cannot be decoded or
    // made into an object, or it is of a kind the system keeps but does not use.
    struct EntryNote {
        std::size_t offset; // of the entry, from the file's start
        std::string reason;
    };

    // Entries end at the data's end or at the first padding byte, 00 or FF.
    static bool isPadding(std::uint8_t byte) { return byte == 0x00 || byte == 0xFF; }

    P15File(const boost::weak_ptr<ODF>& odf, FileId kind);
    virtual ~P15File();
    P15File(const P15File&) = delete;
    P15File& operator=(const P15File&) = delete;

    FileId getKind() const { return kind_; }
    // "EF(AODF)", "EF(PrKDF)", ...: how errors name the file.
    virtual const char* name() const = 0;

    mw::ByteBuffer getFileId(const card::IChannel& channel,
                             const card::service::IFileAccessService& fileAccess) const;
    // Replaces the entry `oldEncoding` by `newEncoding` on the card (an empty
    // old encoding adds an entry) and returns the file's new content.
    mw::ByteBuffer updateEncodedAttributes(const mw::ByteBuffer& oldEncoding,
                                           const mw::ByteBuffer& newEncoding) const;
    // Forgets what was read; the next access reads the file again.
    void clearContent() const;

    // The start of the file as read: its entries and the byte after them (the
    // whole file when no padding ends them); empty when the card has no such
    // file. The padding beyond is read only when a write needs it.
    const mw::ByteBuffer& content(const card::IChannel& channel) const;
    // Extends content() to at least `end` bytes, or to the end of the file.
    void readUpTo(const card::IChannel& channel, std::size_t end) const;
    const std::vector<Entry>& entries(const card::IChannel& channel) const;
    // End of the last entry or hole: where padding, and room for new entries, starts.
    // Every write asks for it: a file whose entries cannot be told apart (a
    // tag or length broken) throws InvalidDataException "directory file
    // structure broken; the file is not changed" with the byte offset.
    std::size_t contentLength(const card::IChannel& channel) const;
    // The bytes the entries take, holes left out: what must fit the file.
    std::size_t entriesLength(const card::IChannel& channel) const;
    // The notes on the entries the lists left out so far, in file order; a
    // file whose structure is broken has one note at the break and no entries.
    std::vector<EntryNote> notes(const card::IChannel& channel) const;
    // The size of the file on the card, from its control parameters.
    std::size_t fileSize(const card::IChannel& channel) const;

    // Used by the application after it rewrote the start of the file, and by
    // clearContent.
    void replaceContent(mw::ByteBuffer content) const;
    void dropContent() const;

    // "EF(PrKDF) 3F00/5015/4402": the file and its path as EF(ODF) names it,
    // for the errors of its content.
    std::string where() const;

    // The owning ODF; "failed to get shared ptr from weak ptr" when it is gone.
    boost::shared_ptr<ODF> odf() const;
    boost::shared_ptr<const P15Application> application() const;

protected:
    void ensureLoaded(const card::IChannel& channel) const;

    // Decodes the entry [data, data + size), keeps what it decoded, and
    // returns the number of bytes it used.
    virtual std::size_t decodeEntry(const std::uint8_t* data, std::size_t size) const = 0;
    // Whether an entry that does not decode is kept and left out of the
    // lists (keepUndecoded) rather than failing the read; not for
    // EF(TokenInfo), whose one value the application cannot do without.
    virtual bool keepsUndecoded() const = 0;
    virtual void keepUndecoded(const std::uint8_t* data, std::size_t size) const = 0;
    void addNote(std::size_t offset, std::string reason) const;
    bool hasNote(std::size_t offset) const;
    virtual void forgetDecoded() const = 0;

private:
    // Selects the file; its size comes with the selection.
    void selectOnCard(const card::IChannel& channel) const;
    void appendFromCard(const card::IChannel& channel, std::size_t length) const;
    void split() const;
    // Decodes the entry [offset, end) of the content, or keeps it undecoded
    // with a note.
    void decodeOrKeep(std::size_t offset, std::size_t end) const;

    boost::weak_ptr<ODF> odf_;
    FileId kind_;
    mutable bool mustRead_ = true;
    mutable mw::ByteBuffer content_;
    mutable std::vector<Entry> entries_;
    mutable std::size_t contentLength_ = 0;
    mutable std::size_t fileSize_ = 0;
    mutable std::vector<EntryNote> notes_;
    mutable bool structureBroken_ = false;
    mutable std::size_t brokenAt_ = 0;
    mutable mw::ByteBuffer path_; // as EF(ODF) names the file
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif

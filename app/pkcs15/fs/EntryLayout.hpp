#ifndef APP_PKCS15_FS_ENTRYLAYOUT_HPP
#define APP_PKCS15_FS_ENTRYLAYOUT_HPP

#include "mw/ByteBuffer.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace app {
namespace pkcs15 {
namespace fs {

/// The writes that change the entries of a directory file so that a card
/// losing power inside any of them keeps every other entry readable.
///
/// The card may tear an UPDATE BINARY after any prefix of its data, so no
/// entry that stays is ever moved. A removed entry becomes a hole: its first
/// tag byte is turned into a private-class primitive tag (one byte, so the
/// change is atomic), which keeps the entries after it in their places, and
/// readers skip it. Holes after the last entry are given back by a padding
/// byte at their start. A new entry is appended behind the padding byte that
/// ends the entries and made part of the file by writing its first byte last.
/// An entry that changes its length is rewritten where it stands only when
/// no entry follows it and its header changes in one byte at most; otherwise
/// the new entry is appended first and the old one becomes a hole. Only when
/// the file has no room for that are the entries packed anew, in one write
/// that a cut can tear.
class EntryLayout {
public:
    /// One UPDATE BINARY: `data` at `offset`, in the order of `writes()`.
    struct Write {
        std::size_t offset;
        mw::ByteBuffer data;
    };

    /// `content` is the start of the file, read at least one byte past the
    /// room the change needs (or to the end of the file); its entries and
    /// holes end at `used`; the file holds `fileSize` bytes. `holesAllowed`
    /// is false for a file that readers take as one value (EF(TokenInfo)).
    EntryLayout(mw::ByteBuffer content, std::size_t used, std::size_t fileSize,
                bool holesAllowed = true);

    /// Replaces the entry of `oldLength` bytes at `offset` by `replacement`:
    /// an old length of 0 adds the entry, an empty replacement removes it.
    /// An application exception when the entries would not fit the file, or
    /// when no entry of that length starts at `offset`.
    void replace(std::size_t offset, std::size_t oldLength, const mw::ByteBuffer& replacement);
    /// Removes the entries starting at `offsets`, all in one write.
    void remove(const std::vector<std::size_t>& offsets);

    /// Makes `after` the content: the bytes that differ, in one write; in two
    /// where they start at the padding byte that ends the entries (an entry
    /// appended), that byte last.
    void changeTo(mw::ByteBuffer after);

    const std::vector<Write>& writes() const { return writes_; }
    const mw::ByteBuffer& content() const { return content_; }

    /// A hole: what a removed entry leaves where entries follow it.
    static bool isHole(std::uint8_t firstTagByte) { return (firstTagByte & 0xE0) == 0xC0; }
    enum class Header { complete, incomplete, malformed };
    /// Where the value of the TLV at `offset` starts and where the TLV ends,
    /// from its tag and length alone: incomplete while `size` bytes do not
    /// hold its header, malformed for an indefinite or impossible length.
    static Header tlvHeader(const std::uint8_t* data, std::size_t size, std::size_t offset,
                            std::size_t& valueStart, std::size_t& end);

private:
    struct Segment {
        std::size_t offset;
        std::size_t length;
        bool hole;
        std::size_t end() const { return offset + length; }
    };

    std::vector<Segment> segments() const;
    // The end of the last entry that is not a hole: where holes can be given back.
    std::size_t liveEnd() const;
    std::size_t liveLength() const;
    unsigned char padding() const;

    std::size_t entriesEnd() const;

    void truncate(std::size_t at);
    void append(const mw::ByteBuffer& entry);
    bool rewriteInPlace(const Segment& entry, const mw::ByteBuffer& replacement, bool last);
    void pack(const Segment* changed, const mw::ByteBuffer& replacement);
    void needRoom(std::size_t end) const;

    mw::ByteBuffer content_;
    std::size_t used_;
    std::size_t fileSize_;
    bool holesAllowed_;
    std::vector<Write> writes_;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif

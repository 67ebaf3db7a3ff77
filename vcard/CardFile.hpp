#pragma once

#include "vcard/AccessCondition.hpp"
#include "vcard/Bytes.hpp"
#include "vcard/CardProfile.hpp"
#include "vcard/RsaKey.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace vcard {

/// The FCP descriptor byte (tag 82) of each kind of file.
enum class FileKind : std::uint8_t {
    TransparentEf = 0x01,
    Df = 0x38,
    PrivateKey = 0x11,
    PublicKey = 0x12,
};

/// A node of the card's file tree.
struct CardFile {
    std::uint16_t fid = 0;
    FileKind kind = FileKind::TransparentEf;
    SecurityAttributes security;
    /// DF name (tag 84); empty for unnamed DFs and all other files.
    Bytes name;
    /// Content of a transparent EF; its size is the file size.
    Bytes content;
    /// Modulus size of a key file (tag 80).
    unsigned keyBits = 0;
    /// The key of a key file once generated or imported.
    std::optional<RsaKey> key;

    CardFile* parent = nullptr;
    std::vector<std::unique_ptr<CardFile>> children;

    bool isDf() const { return kind == FileKind::Df; }
    bool isKeyFile() const { return kind == FileKind::PrivateKey || kind == FileKind::PublicKey; }

    CardFile* child(std::uint16_t childFid) const;
    CardFile& addChild(std::unique_ptr<CardFile> file);
    /// The FCP template: 62 { 80, 82, 83, 84, 8A, A1 } (Native), or 62 { 82, 83, 84, 80, 85,
    /// 8A, A1, A5 } with proprietary 85 and A5 (Iso).
    Bytes fcp(CardProfile profile = CardProfile::Native) const;

    ~CardFile();
};

} // namespace vcard

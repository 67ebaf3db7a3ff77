#include "vcard/CardFile.hpp"

#include "vcard/Tlv.hpp"

namespace vcard {

namespace {
Bytes twoBytes(unsigned value) {
    return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}
constexpr std::uint8_t lifeCycleOperational = 0x05;
} // namespace

CardFile* CardFile::child(std::uint16_t childFid) const {
    for (const auto& file : children)
        if (file->fid == childFid)
            return file.get();
    return nullptr;
}

CardFile& CardFile::addChild(std::unique_ptr<CardFile> file) {
    file->parent = this;
    children.push_back(std::move(file));
    return *children.back();
}

Bytes CardFile::fcp() const {
    Bytes inner;
    if (kind == FileKind::TransparentEf)
        appendTlv(inner, 0x80, twoBytes(static_cast<unsigned>(content.size())));
    else if (isKeyFile())
        appendTlv(inner, 0x80, twoBytes(keyBits));
    appendTlv(inner, 0x82, {static_cast<std::uint8_t>(kind)});
    appendTlv(inner, 0x83, twoBytes(fid));
    if (!name.empty())
        appendTlv(inner, 0x84, name);
    appendTlv(inner, 0x8A, {lifeCycleOperational});
    appendTlv(inner, 0xA1, security.encode());
    Bytes out;
    appendTlv(out, 0x62, inner);
    return out;
}

CardFile::~CardFile() {
    wipe(content);
}

} // namespace vcard

#include "vcard/CardFile.hpp"

#include "vcard/Tlv.hpp"

namespace vcard {

namespace {
Bytes twoBytes(unsigned value) {
    return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}
constexpr std::uint8_t lifeCycleOperational = 0x05;
// What cards of other makes put in their proprietary FCP objects; the template nests tags that
// mean something else at the top level (a size, a descriptor), which a host must not take up.
const Bytes proprietaryInformation = {0x00, 0x01, 0x00};
const Bytes proprietaryTemplate = {0x80, 0x02, 0xFF, 0xFF, 0x82, 0x01, 0x00};
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

Bytes CardFile::fcp(CardProfile profile) const {
    Bytes size;
    if (kind == FileKind::TransparentEf)
        appendTlv(size, 0x80, twoBytes(static_cast<unsigned>(content.size())));
    else if (isKeyFile())
        appendTlv(size, 0x80, twoBytes(keyBits));
    Bytes inner = profile == CardProfile::Native ? size : Bytes{};
    appendTlv(inner, 0x82, {static_cast<std::uint8_t>(kind)});
    appendTlv(inner, 0x83, twoBytes(fid));
    if (!name.empty())
        appendTlv(inner, 0x84, name);
    if (profile == CardProfile::Iso) {
        inner.insert(inner.end(), size.begin(), size.end());
        appendTlv(inner, 0x85, proprietaryInformation);
    }
    appendTlv(inner, 0x8A, {lifeCycleOperational});
    appendTlv(inner, 0xA1, security.encode());
    if (profile == CardProfile::Iso)
        appendTlv(inner, 0xA5, proprietaryTemplate);
    Bytes out;
    appendTlv(out, 0x62, inner);
    return out;
}

CardFile::~CardFile() {
    wipe(content);
}

} // namespace vcard

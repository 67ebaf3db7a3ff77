#include "vcard/FileSystem.hpp"

#include "vcard/CardLimits.hpp"
#include "vcard/StatusWord.hpp"
#include "vcard/Tlv.hpp"

namespace vcard {

namespace {

std::uint16_t toFid(const Bytes& bytes, std::size_t offset = 0) {
    return static_cast<std::uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

std::uint16_t requireFid(const Bytes& data) {
    if (data.empty())
        throw CardError(sw::wrongLength);
    if (data.size() != 2)
        throw CardError(sw::wrongData);
    return toFid(data);
}

bool isReservedFid(std::uint16_t fid) {
    return fid == 0x3F00 || fid == 0x3FFF || fid == 0xFFFF;
}

CardFile* findByName(CardFile& dir, const Bytes& name) {
    if (dir.isDf() && dir.name == name)
        return &dir;
    for (auto& file : dir.children)
        if (CardFile* found = findByName(*file, name))
            return found;
    return nullptr;
}

int depthOf(const CardFile& file) {
    int depth = 0;
    for (const CardFile* above = file.parent; above != nullptr; above = above->parent)
        ++depth;
    return depth;
}

bool nameInUse(CardFile& mf, const Bytes& name) {
    return !name.empty() && findByName(mf, name) != nullptr;
}

unsigned twoByteValue(const Bytes* value) {
    if (value == nullptr || value->size() != 2)
        throw CardError(sw::wrongData);
    return static_cast<unsigned>(toFid(*value));
}

FileKind parseKind(const Bytes* descriptor) {
    if (descriptor == nullptr || descriptor->size() != 1)
        throw CardError(sw::wrongData);
    switch (static_cast<FileKind>((*descriptor)[0])) {
    case FileKind::TransparentEf:
    case FileKind::Df:
    case FileKind::PrivateKey:
    case FileKind::PublicKey:
        return static_cast<FileKind>((*descriptor)[0]);
    }
    throw CardError(sw::wrongData);
}

std::unique_ptr<CardFile> fileFromFcp(const Bytes& fcp) {
    std::vector<Tlv> outer = parseTlvs(fcp);
    if (outer.size() != 1 || outer[0].tag != 0x62)
        throw CardError(sw::wrongData);
    std::vector<Tlv> tlvs = parseTlvs(outer[0].value);
    auto file = std::make_unique<CardFile>();
    file->kind = parseKind(findTlv(tlvs, 0x82));
    file->fid = static_cast<std::uint16_t>(twoByteValue(findTlv(tlvs, 0x83)));
    if (isReservedFid(file->fid))
        throw CardError(sw::wrongData);
    if (const Bytes* security = findTlv(tlvs, 0xA1))
        file->security = SecurityAttributes::decode(*security);
    const Bytes* name = findTlv(tlvs, 0x84);
    if (name != nullptr && (!file->isDf() || name->empty() || name->size() > limits::maxDfName))
        throw CardError(sw::wrongData);
    if (file->isDf()) {
        file->name = name ? *name : Bytes{};
        return file;
    }
    unsigned size = twoByteValue(findTlv(tlvs, 0x80));
    if (file->isKeyFile()) {
        if (!limits::isSupportedKeySize(size))
            throw CardError(sw::wrongData);
        file->keyBits = size;
    } else {
        if (size > limits::maxEfSize)
            throw CardError(sw::wrongData);
        file->content.assign(size, 0x00);
    }
    return file;
}

} // namespace

FileSystem::FileSystem()
    : FileSystem(std::make_unique<CardFile>()) {
    mf_->fid = mfFid;
    mf_->kind = FileKind::Df;
}

FileSystem::FileSystem(std::unique_ptr<CardFile> mf)
    : mf_(std::move(mf))
    , current_(mf_.get()) {}

CardFile& FileSystem::currentDf() {
    return current_->isDf() ? *current_ : *current_->parent;
}

CardFile& FileSystem::select(CardFile& file) {
    current_ = &file;
    return file;
}

void FileSystem::followSelection(const FileSystem& previous) {
    std::vector<std::uint16_t> path;
    for (const CardFile* file = previous.current_; file->parent != nullptr; file = file->parent)
        path.push_back(file->fid);
    CardFile* file = mf_.get();
    for (auto fid = path.rbegin(); fid != path.rend() && file != nullptr; ++fid)
        file = file->child(*fid);
    current_ = file != nullptr ? file : mf_.get();
}

CardFile& FileSystem::selectByFid(std::uint8_t p1, const Bytes& fid) {
    if (p1 == 0x00 && (fid.empty() || fid == Bytes{0x3F, 0x00}))
        return select(*mf_);
    const std::uint16_t wanted = requireFid(fid);
    CardFile& df = currentDf();
    CardFile* found = df.child(wanted);
    if (p1 == 0x00 && found == nullptr) {
        if (df.fid == wanted)
            found = &df;
        else if (df.parent != nullptr && df.parent->fid == wanted)
            found = df.parent;
    }
    if (found == nullptr || (p1 == 0x01 && !found->isDf()) || (p1 == 0x02 && found->isDf()))
        throw CardError(sw::notFound);
    return select(*found);
}

CardFile& FileSystem::selectByName(const Bytes& name) {
    if (name.empty())
        throw CardError(sw::wrongLength);
    CardFile* found = findByName(*mf_, name);
    if (found == nullptr)
        throw CardError(sw::notFound);
    return select(*found);
}

CardFile& FileSystem::selectByPath(const Bytes& path, bool fromMf) {
    if (path.empty())
        throw CardError(sw::wrongLength);
    if (path.size() % 2 != 0)
        throw CardError(sw::wrongData);
    std::size_t offset = 0;
    if (fromMf && toFid(path) == mfFid)
        offset = 2;
    CardFile* file = fromMf ? mf_.get() : &currentDf();
    for (; offset < path.size(); offset += 2) {
        CardFile* next = file->isDf() ? file->child(toFid(path, offset)) : nullptr;
        if (next == nullptr)
            throw CardError(sw::notFound);
        file = next;
    }
    return select(*file);
}

CardFile& FileSystem::currentEf() {
    if (current_->isDf())
        throw CardError(sw::noCurrentEf);
    if (current_->isKeyFile())
        throw CardError(sw::incompatibleWithFile);
    return *current_;
}

CardFile& FileSystem::create(const Bytes& fcp, const SecurityStatus& status) {
    if (fcp.empty())
        throw CardError(sw::wrongLength);
    CardFile& df = currentDf();
    std::unique_ptr<CardFile> file = fileFromFcp(fcp);
    if (!df.security.allows(AccessMode::Update, status))
        throw CardError(sw::securityNotSatisfied);
    if (df.child(file->fid) != nullptr)
        throw CardError(sw::fileExists);
    if (nameInUse(*mf_, file->name))
        throw CardError(sw::dfNameExists);
    if (!CardUsage::of(*mf_).excess(*file, depthOf(df) + 1).empty())
        throw CardError(sw::notEnoughMemory);
    return select(df.addChild(std::move(file)));
}

void FileSystem::remove(const Bytes& fid, const SecurityStatus& status) {
    CardFile* file = fid.empty() ? current_ : currentDf().child(requireFid(fid));
    if (file == nullptr)
        throw CardError(sw::notFound);
    if (file == mf_.get() || !file->children.empty())
        throw CardError(sw::conditionsNotSatisfied);
    if (!file->security.allows(AccessMode::Delete, status))
        throw CardError(sw::securityNotSatisfied);
    CardFile* parent = file->parent;
    current_ = parent;
    auto& siblings = parent->children;
    for (auto it = siblings.begin(); it != siblings.end(); ++it) {
        if (it->get() == file) {
            siblings.erase(it);
            break;
        }
    }
}

CardFile* FileSystem::findKeyFile(std::uint16_t fid) {
    for (CardFile* df = &currentDf(); df != nullptr; df = df->parent) {
        CardFile* file = df->child(fid);
        if (file != nullptr && file->isKeyFile())
            return file;
    }
    return nullptr;
}

} // namespace vcard

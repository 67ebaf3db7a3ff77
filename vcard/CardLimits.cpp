#include "vcard/CardLimits.hpp"

#include "vcard/CardFile.hpp"

namespace vcard {

namespace {
constexpr std::size_t fileHeader = 64;
// A private key file keeps n, d and the five CRT parts: at most five moduli.
constexpr std::size_t privateKeyModuli = 5;
} // namespace

bool limits::isSupportedKeySize(unsigned bits) {
    return bits == 1024 || bits == 1536 || bits == 2048;
}

std::size_t limits::storageOf(const CardFile& file) {
    const std::size_t modulus = file.keyBits / 8;
    switch (file.kind) {
    case FileKind::PrivateKey:
        return fileHeader + privateKeyModuli * modulus;
    case FileKind::PublicKey:
        return fileHeader + modulus + 4;
    case FileKind::Df:
    case FileKind::TransparentEf:
        break;
    }
    return fileHeader + file.name.size() + file.content.size();
}

CardUsage CardUsage::of(const CardFile& root) {
    CardUsage usage;
    usage.add(root);
    for (const auto& child : root.children) {
        CardUsage below = of(*child);
        usage.files_ += below.files_;
        usage.keyFiles_ += below.keyFiles_;
        usage.storage_ += below.storage_;
    }
    return usage;
}

std::string CardUsage::excess(const CardFile& file, int depth) const {
    using std::to_string;
    if (depth > limits::maxDepth)
        return "files nested more than " + to_string(limits::maxDepth) + " levels below the MF";
    if (files_ + 1 > limits::maxFiles)
        return "more than " + to_string(limits::maxFiles) + " files";
    if (file.isKeyFile() && keyFiles_ + 1 > limits::maxKeyFiles)
        return "more than " + to_string(limits::maxKeyFiles) + " key files";
    if (storage_ + limits::storageOf(file) > limits::capacity)
        return "more than the card memory of " + to_string(limits::capacity) + " bytes";
    return {};
}

void CardUsage::add(const CardFile& file) {
    ++files_;
    keyFiles_ += file.isKeyFile() ? 1 : 0;
    storage_ += limits::storageOf(file);
}

} // namespace vcard

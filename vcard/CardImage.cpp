#include "vcard/CardImage.hpp"

#include "vcard/Instrumentation.hpp"
#include "vcard/StatusWord.hpp"

#include <nlohmann/json.hpp>

#include <cryptopp/osrng.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace vcard {

using nlohmann::json;

namespace {

constexpr const char* formatName = "p15kit virtual card image";
// Bounds the recursion on a hostile image.
constexpr int maxTreeDepth = 16;

/// A problem found while reading an image, before the source name is attached.
struct Corrupt : std::runtime_error {
    using std::runtime_error::runtime_error;
};

const char* kindName(FileKind kind) {
    switch (kind) {
    case FileKind::Df:
        return "df";
    case FileKind::TransparentEf:
        return "ef";
    case FileKind::PrivateKey:
        return "private-key";
    case FileKind::PublicKey:
        return "public-key";
    }
    return "";
}

FileKind kindFromName(const std::string& name) {
    for (FileKind kind :
         {FileKind::Df, FileKind::TransparentEf, FileKind::PrivateKey, FileKind::PublicKey})
        if (name == kindName(kind))
            return kind;
    throw Corrupt("unknown file type \"" + name + "\"");
}

std::string hexOf(const CryptoPP::Integer& value) {
    Bytes bytes(value.MinEncodedSize());
    value.Encode(bytes.data(), bytes.size());
    std::string hex = toHex(bytes);
    wipe(bytes);
    return hex;
}

CryptoPP::Integer integerOf(const json& node, const char* name) {
    Bytes bytes = fromHex(node.at(name).get<std::string>());
    CryptoPP::Integer value(bytes.data(), bytes.size());
    wipe(bytes);
    return value;
}

json keyToJson(const RsaKey& key) {
    const CryptoPP::InvertibleRSAFunction& f = key.function();
    json node = {{"n", hexOf(f.GetModulus())}, {"e", hexOf(f.GetPublicExponent())}};
    if (key.hasPrivatePart()) {
        node["d"] = hexOf(f.GetPrivateExponent());
        node["p"] = hexOf(f.GetPrime1());
        node["q"] = hexOf(f.GetPrime2());
        node["dp"] = hexOf(f.GetModPrime1PrivateExponent());
        node["dq"] = hexOf(f.GetModPrime2PrivateExponent());
        node["qinv"] = hexOf(f.GetMultiplicativeInverseOfPrime2ModPrime1());
    }
    return node;
}

RsaKey keyFromJson(const json& node, const CardFile& file) {
    CryptoPP::InvertibleRSAFunction f;
    const bool hasPrivate = file.kind == FileKind::PrivateKey;
    if (hasPrivate) {
        f.Initialize(integerOf(node, "n"), integerOf(node, "e"), integerOf(node, "d"),
                     integerOf(node, "p"), integerOf(node, "q"), integerOf(node, "dp"),
                     integerOf(node, "dq"), integerOf(node, "qinv"));
    } else {
        f.SetModulus(integerOf(node, "n"));
        f.SetPublicExponent(integerOf(node, "e"));
    }
    CryptoPP::AutoSeededRandomPool rng;
    const bool valid = hasPrivate ? f.Validate(rng, 1) : f.CryptoPP::RSAFunction::Validate(rng, 1);
    if (!valid || f.GetModulus().BitCount() != file.keyBits)
        throw Corrupt(
            "inconsistent key in key file " +
            toHex({static_cast<std::uint8_t>(file.fid >> 8), static_cast<std::uint8_t>(file.fid)}));
    return RsaKey::fromFunction(f, hasPrivate);
}

json fileToJson(const CardFile& file) {
    json node = {{"fid", toHex({static_cast<std::uint8_t>(file.fid >> 8),
                                static_cast<std::uint8_t>(file.fid)})},
                 {"type", kindName(file.kind)},
                 {"security", toHex(file.security.encode())}};
    if (file.isDf()) {
        if (!file.name.empty())
            node["name"] = toHex(file.name);
        node["children"] = json::array();
        for (const auto& child : file.children)
            node["children"].push_back(fileToJson(*child));
    } else if (file.isKeyFile()) {
        node["bits"] = file.keyBits;
        node["key"] = file.key ? keyToJson(*file.key) : json();
    } else {
        node["content"] = toHex(file.content);
    }
    return node;
}

std::uint16_t fidFromJson(const json& node) {
    Bytes fid = fromHex(node.at("fid").get<std::string>());
    if (fid.size() != 2)
        throw Corrupt("file identifier \"" + node.at("fid").get<std::string>() +
                      "\" is not 2 bytes");
    return static_cast<std::uint16_t>(fid[0] << 8 | fid[1]);
}

std::unique_ptr<CardFile> fileFromJson(const json& node, int depth) {
    if (depth > maxTreeDepth)
        throw Corrupt("file tree nested too deep");
    auto file = std::make_unique<CardFile>();
    file->fid = fidFromJson(node);
    file->kind = kindFromName(node.at("type").get<std::string>());
    try {
        file->security =
            SecurityAttributes::decode(fromHex(node.at("security").get<std::string>()));
    } catch (const CardError&) {
        throw Corrupt("malformed security attributes of file " + node.at("fid").get<std::string>());
    }
    if (file->isDf()) {
        if (node.contains("name"))
            file->name = fromHex(node.at("name").get<std::string>());
        for (const json& child : node.at("children")) {
            std::unique_ptr<CardFile> loaded = fileFromJson(child, depth + 1);
            if (file->child(loaded->fid) != nullptr)
                throw Corrupt("file " + child.at("fid").get<std::string>() + " appears twice");
            file->addChild(std::move(loaded));
        }
    } else if (file->isKeyFile()) {
        file->keyBits = node.at("bits").get<unsigned>();
        if (!RsaKey::isSupportedSize(file->keyBits))
            throw Corrupt("unsupported key size " + std::to_string(file->keyBits));
        if (!node.at("key").is_null())
            file->key = keyFromJson(node.at("key"), *file);
    } else {
        file->content = fromHex(node.at("content").get<std::string>());
        if (file->content.size() > 0x7FFF)
            throw Corrupt("file " + node.at("fid").get<std::string>() +
                          " is larger than 7FFF bytes");
    }
    return file;
}

json pinsToJson(const PinStore& pins) {
    json list = json::array();
    for (const auto& [reference, pin] : pins.pins()) {
        json node = {{"reference", reference},
                     {"value", toHex(pin.value)},
                     {"maxTries", pin.maxTries},
                     {"triesLeft", pin.triesLeft}};
        if (pin.unblockingPin)
            node["unblockingPin"] = *pin.unblockingPin;
        list.push_back(node);
    }
    return list;
}

void pinsFromJson(const json& list, PinStore& pins) {
    for (const json& node : list) {
        Pin pin;
        const auto reference = node.at("reference").get<std::uint8_t>();
        pin.value = fromHex(node.at("value").get<std::string>());
        pin.maxTries = node.at("maxTries").get<std::uint8_t>();
        pin.triesLeft = node.at("triesLeft").get<std::uint8_t>();
        if (node.contains("unblockingPin"))
            pin.unblockingPin = node.at("unblockingPin").get<std::uint8_t>();
        if (pin.value.empty() || pin.maxTries == 0 || pin.maxTries > 15 ||
            pin.triesLeft > pin.maxTries)
            throw Corrupt("PIN " + std::to_string(reference) + " has an invalid value or counter");
        pins.add(reference, std::move(pin));
    }
}

std::string systemError(const std::string& what, const std::string& path) {
    return what + " '" + path + "': " + std::strerror(errno);
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

void writeAll(int fd, const char* data, std::size_t size, const std::string& path) {
    while (size > 0) {
        ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            throw ImageError(systemError("cannot write card image", path));
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

/// Closes the descriptor however the save ends.
struct FileDescriptor {
    int fd;
    ~FileDescriptor() {
        if (fd >= 0)
            ::close(fd);
    }
};

void syncDirectory(const std::string& path) {
    FileDescriptor dir{::open(directoryOf(path).c_str(), O_RDONLY | O_DIRECTORY)};
    if (dir.fd < 0 || ::fsync(dir.fd) != 0)
        throw ImageError(systemError("cannot sync the directory of card image", path));
}

void reach(Instrumentation* hooks, SavePoint point) {
    if (hooks != nullptr)
        hooks->reachSavePoint(point);
}

} // namespace

std::string CardImage::serialise(const CardState& state) {
    json image = {{"format", formatName},
                  {"version", version},
                  {"mf", fileToJson(state.files.mf())},
                  {"pins", pinsToJson(state.pins)}};
    return image.dump(1);
}

CardState CardImage::parse(const std::string& text, const std::string& source) {
    try {
        json image = json::parse(text);
        if (image.at("format").get<std::string>() != formatName)
            throw Corrupt("not a p15kit virtual card image");
        if (image.at("version").get<int>() != version)
            throw Corrupt("unsupported image version " + image.at("version").dump());
        std::unique_ptr<CardFile> mf = fileFromJson(image.at("mf"), 0);
        if (mf->fid != FileSystem::mfFid || !mf->isDf())
            throw Corrupt("the root is not the MF 3F00");
        CardState state{FileSystem(std::move(mf)), {}};
        pinsFromJson(image.at("pins"), state.pins);
        return state;
    } catch (const json::exception& error) {
        throw ImageError("card image '" + source + "' is corrupt or truncated: " + error.what());
    } catch (const std::exception& error) {
        throw ImageError("card image '" + source + "' is corrupt: " + error.what());
    }
}

CardState CardImage::load(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw ImageError(systemError("cannot open card image", path));
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad())
        throw ImageError(systemError("cannot read card image", path));
    return parse(text.str(), path);
}

void CardImage::store(const std::string& path, const std::string& text, Instrumentation* hooks) {
    const std::string temporary = path + ".tmp";
    FileDescriptor file{::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)};
    // fchmod too: a temporary file left by a crash keeps its old mode through O_TRUNC.
    if (file.fd < 0 || ::fchmod(file.fd, 0600) != 0)
        throw ImageError(systemError("cannot create card image", temporary));
    reach(hooks, SavePoint::TempFileOpened);
    const std::size_t half = text.size() / 2;
    writeAll(file.fd, text.data(), half, temporary);
    reach(hooks, SavePoint::HalfWritten);
    writeAll(file.fd, text.data() + half, text.size() - half, temporary);
    reach(hooks, SavePoint::Written);
    if (::fsync(file.fd) != 0)
        throw ImageError(systemError("cannot sync card image", temporary));
    reach(hooks, SavePoint::Synced);
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        throw ImageError(systemError("cannot replace card image", path));
    reach(hooks, SavePoint::Renamed);
    syncDirectory(path);
    reach(hooks, SavePoint::DirectorySynced);
}

} // namespace vcard

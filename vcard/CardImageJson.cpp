// The card image as JSON: serialisation, and a strict reader that treats the image as hostile.

#include "vcard/CardImage.hpp"

#include "vcard/CardLimits.hpp"
#include "vcard/StatusWord.hpp"
#include "vcard/WipingAllocator.hpp"

#include <nlohmann/json.hpp>

#include <cryptopp/osrng.h>

#include <cstdint>
#include <map>
#include <set>
#include <string_view>
#include <vector>

namespace vcard {

/// The image's JSON holds PINs and private keys as text: every string, array and object of it
/// is zeroed when released, and so is the text it is dumped to or parsed from.
using json = nlohmann::basic_json<std::map, std::vector, SecretText, bool, std::int64_t,
                                  std::uint64_t, double, WipingAllocator>;

namespace {

constexpr const char* formatName = "p15kit virtual card image";

/// A problem found while reading an image, before the source name is attached.
struct Corrupt : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string fidText(std::uint16_t fid) {
    return toHex({static_cast<std::uint8_t>(fid >> 8), static_cast<std::uint8_t>(fid)});
}

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

// ---- writing

std::string plain(const SecretText& text) {
    return std::string(text.data(), text.size());
}

/// toHex into text that is wiped when released.
SecretText secretHex(const Bytes& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    SecretText hex;
    hex.reserve(bytes.size() * 2);
    for (std::uint8_t b : bytes) {
        hex.push_back(digits[b >> 4]);
        hex.push_back(digits[b & 0x0F]);
    }
    return hex;
}

SecretText hexOf(const CryptoPP::Integer& value) {
    Bytes bytes(value.MinEncodedSize());
    value.Encode(bytes.data(), bytes.size());
    SecretText hex = secretHex(bytes);
    wipe(bytes);
    return hex;
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

json fileToJson(const CardFile& file) {
    json node = {{"fid", fidText(file.fid)},
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
        node["content"] = secretHex(file.content);
    }
    return node;
}

json pinsToJson(const PinStore& pins) {
    json list = json::array();
    for (const auto& [reference, pin] : pins.pins()) {
        json node = {{"reference", reference},
                     {"value", secretHex(pin.value)},
                     {"maxTries", pin.maxTries},
                     {"triesLeft", pin.triesLeft}};
        if (pin.unblockingPin)
            node["unblockingPin"] = *pin.unblockingPin;
        list.push_back(node);
    }
    return list;
}

// ---- reading: every field of its type and range, named in every message

const json& field(const json& node, const char* name) {
    if (!node.is_object())
        throw Corrupt("an object was expected where field \"" + std::string(name) + "\" should be");
    auto it = node.find(name);
    if (it == node.end())
        throw Corrupt("field \"" + std::string(name) + "\" is missing");
    return *it;
}

/// An integer from min to max; a fraction, an exponent or a value out of range is refused.
template <class T> T integerField(const json& node, const char* name, T min, T max) {
    const json& value = field(node, name);
    const bool fitsInt64 =
        value.is_number_integer() &&
        !(value.is_number_unsigned() && value.get<std::uint64_t>() > std::uint64_t(INT64_MAX));
    if (fitsInt64) {
        const std::int64_t number = value.get<std::int64_t>();
        if (number >= std::int64_t(min) && number <= std::int64_t(max))
            return static_cast<T>(number);
    }
    throw Corrupt("field \"" + std::string(name) + "\" is " + plain(value.dump()) +
                  ", not an integer from " + std::to_string(min) + " to " + std::to_string(max));
}

const SecretText& textField(const json& node, const char* name) {
    const json& value = field(node, name);
    if (!value.is_string())
        throw Corrupt("field \"" + std::string(name) + "\" is not a string");
    return value.get_ref<const SecretText&>();
}

Bytes hexField(const json& node, const char* name) {
    try {
        return fromHex(textField(node, name));
    } catch (const std::invalid_argument& error) {
        throw Corrupt("field \"" + std::string(name) + "\": " + error.what());
    }
}

const json& arrayField(const json& node, const char* name) {
    const json& value = field(node, name);
    if (!value.is_array())
        throw Corrupt("field \"" + std::string(name) + "\" is not an array");
    return value;
}

/// Prefixes what went wrong inside one entry with the entry it is about.
template <class Read> auto within(const std::string& where, Read read) {
    try {
        return read();
    } catch (const Corrupt& error) {
        throw Corrupt(where + ": " + error.what());
    }
}

FileKind kindFromName(std::string_view name) {
    for (FileKind kind :
         {FileKind::Df, FileKind::TransparentEf, FileKind::PrivateKey, FileKind::PublicKey})
        if (name == kindName(kind))
            return kind;
    throw Corrupt("unknown file type \"" + std::string(name) + "\"");
}

/// A key component, refused when it has more bits than the key: checked before any arithmetic.
CryptoPP::Integer componentOf(const json& node, const char* name, unsigned maxBits) {
    Bytes bytes = hexField(node, name);
    CryptoPP::Integer value(bytes.data(), bytes.size());
    wipe(bytes);
    if (value.BitCount() > maxBits)
        throw Corrupt("key component \"" + std::string(name) + "\" is larger than the key");
    return value;
}

RsaKey keyFromJson(const json& node, const CardFile& file) {
    const unsigned bits = file.keyBits;
    const CryptoPP::Integer n = componentOf(node, "n", bits);
    if (n.BitCount() != bits)
        throw Corrupt("the modulus is not of " + std::to_string(bits) + " bits");
    CryptoPP::InvertibleRSAFunction f;
    const bool hasPrivate = file.kind == FileKind::PrivateKey;
    if (hasPrivate) {
        f.Initialize(n, componentOf(node, "e", bits), componentOf(node, "d", bits),
                     componentOf(node, "p", bits), componentOf(node, "q", bits),
                     componentOf(node, "dp", bits), componentOf(node, "dq", bits),
                     componentOf(node, "qinv", bits));
    } else {
        f.SetModulus(n);
        f.SetPublicExponent(componentOf(node, "e", bits));
    }
    CryptoPP::AutoSeededRandomPool rng;
    if (!RsaKey::isValid(rng, f, hasPrivate))
        throw Corrupt("inconsistent key");
    return RsaKey::fromFunction(f, hasPrivate);
}

std::uint16_t fidFromJson(const json& node) {
    const Bytes fid = hexField(node, "fid");
    if (fid.size() != 2)
        throw Corrupt("field \"fid\" is not 2 bytes");
    return static_cast<std::uint16_t>(fid[0] << 8 | fid[1]);
}

void readFileBody(const json& node, CardFile& file) {
    try {
        file.security = SecurityAttributes::decode(hexField(node, "security"));
    } catch (const CardError&) {
        throw Corrupt("field \"security\" is not valid security attributes");
    }
    if (file.isDf()) {
        if (node.contains("name"))
            file.name = hexField(node, "name");
        if (node.contains("name") && (file.name.empty() || file.name.size() > limits::maxDfName))
            throw Corrupt("field \"name\" is not a DF name of 1 to " +
                          std::to_string(limits::maxDfName) + " bytes");
    } else if (file.isKeyFile()) {
        file.keyBits = integerField<unsigned>(node, "bits", 0, 0xFFFF);
        if (!limits::isSupportedKeySize(file.keyBits))
            throw Corrupt("field \"bits\": unsupported key size " + std::to_string(file.keyBits));
    } else {
        file.content = hexField(node, "content");
        if (file.content.size() > limits::maxEfSize)
            throw Corrupt("field \"content\" is larger than " + std::to_string(limits::maxEfSize) +
                          " bytes");
    }
}

/// What the loader tracks across the whole tree: the card's limits, and the DF names, which
/// SELECT by name must find once at most (CREATE FILE refuses a name in use just as well).
struct TreeUsage {
    CardUsage limits;
    std::set<Bytes> dfNames;
};

/// The fields of one file, counted against the card's limits before its key or children are
/// read, so that a hostile image costs no more than a full card. A DF's children, or nullptr.
const json* readFile(const json& node, int depth, TreeUsage& usage, CardFile& file) {
    file.kind = kindFromName(textField(node, "type"));
    readFileBody(node, file);
    const std::string excess = usage.limits.excess(file, depth);
    if (!excess.empty())
        throw Corrupt("the card would hold " + excess);
    if (!file.name.empty() && !usage.dfNames.insert(file.name).second)
        throw Corrupt("DF name " + toHex(file.name) + " appears twice on the card");
    usage.limits.add(file);
    if (file.isKeyFile() && !field(node, "key").is_null())
        file.key = keyFromJson(field(node, "key"), file);
    return file.isDf() ? &arrayField(node, "children") : nullptr;
}

/// One file and, for a DF, the tree below it; messages name the file by its path (3F00/5015/4401).
std::unique_ptr<CardFile> fileFromJson(const json& node, int depth, TreeUsage& usage,
                                       const std::string& parentPath) {
    auto file = std::make_unique<CardFile>();
    file->fid = within(parentPath.empty() ? "the MF" : "a file in " + parentPath,
                       [&] { return fidFromJson(node); });
    const std::string path =
        parentPath.empty() ? fidText(file->fid) : parentPath + "/" + fidText(file->fid);
    const json* children =
        within("file " + path, [&] { return readFile(node, depth, usage, *file); });
    if (children == nullptr)
        return file;
    for (const json& child : *children) {
        std::unique_ptr<CardFile> loaded = fileFromJson(child, depth + 1, usage, path);
        if (file->child(loaded->fid) != nullptr)
            throw Corrupt("file " + path + "/" + fidText(loaded->fid) + " appears twice");
        file->addChild(std::move(loaded));
    }
    return file;
}

Pin pinFromJson(const json& node) {
    Pin pin;
    pin.value = hexField(node, "value");
    if (pin.value.empty() || pin.value.size() > limits::maxPinLength)
        throw Corrupt("field \"value\" is not a PIN of 1 to " +
                      std::to_string(limits::maxPinLength) + " bytes");
    pin.maxTries = integerField<std::uint8_t>(node, "maxTries", 1, 15);
    pin.triesLeft = integerField<std::uint8_t>(node, "triesLeft", 0, pin.maxTries);
    if (node.contains("unblockingPin"))
        pin.unblockingPin = integerField<std::uint8_t>(node, "unblockingPin", 0, 0xFF);
    return pin;
}

void pinsFromJson(const json& list, PinStore& pins) {
    for (const json& node : list) {
        const auto reference = integerField<std::uint8_t>(node, "reference", 0, 0xFF);
        const std::string where = "PIN " + toHex({reference});
        if (pins.pins().count(reference) != 0)
            throw Corrupt(where + " appears twice");
        pins.add(reference, within(where, [&] { return pinFromJson(node); }));
    }
    for (const auto& [reference, pin] : pins.pins())
        if (pin.unblockingPin && pins.pins().count(*pin.unblockingPin) == 0)
            throw Corrupt("PIN " + toHex({reference}) + ": field \"unblockingPin\" names no PIN");
}

/// An image without "profile" is of the native profile, as every image made before there were two.
void readProfile(const json& image, CardState& state) {
    if (!image.contains("profile"))
        return;
    try {
        state.profile = profileFromName(plain(textField(image, "profile")));
    } catch (const std::invalid_argument& error) {
        throw Corrupt("field \"profile\": " + std::string(error.what()));
    }
    if (state.profile == CardProfile::Iso && state.hashOnCard)
        throw Corrupt("a card of the iso profile does not hash: hashOnCard is refused");
}

/// Refuses an object that names a field twice, which the parser would otherwise let the last
/// one win silently.
class DuplicateKeyCheck {
public:
    bool operator()(int, json::parse_event_t event, const json& parsed) {
        if (event == json::parse_event_t::object_start)
            open_.emplace_back();
        else if (event == json::parse_event_t::object_end)
            open_.pop_back();
        else if (event == json::parse_event_t::key &&
                 !open_.back().insert(plain(parsed.get_ref<const SecretText&>())).second)
            throw Corrupt("field " + plain(parsed.dump()) + " appears twice in one object");
        return true;
    }

private:
    std::vector<std::set<std::string>> open_;
};

} // namespace

std::string CardImage::serialise(const CardState& state) {
    json image = {{"format", formatName},
                  {"version", version},
                  {"mf", fileToJson(state.files.mf())},
                  {"pins", pinsToJson(state.pins)}};
    if (state.hashOnCard)
        image["hashOnCard"] = true;
    if (state.profile != CardProfile::Native)
        image["profile"] = profileName(state.profile);
    // One allocation of the exact size: growing the text would leave copies of it behind.
    const SecretText text = image.dump(1);
    return std::string(text.data(), text.size());
}

CardState CardImage::parse(const std::string& text, const std::string& source) {
    try {
        if (text.size() > limits::maxImageSize)
            throw Corrupt("larger than " + std::to_string(limits::maxImageSize) + " bytes");
        const json image = json::parse(text, DuplicateKeyCheck());
        if (textField(image, "format") != formatName)
            throw Corrupt("not a p15kit virtual card image");
        const int imageVersion = integerField<int>(image, "version", 0, 0xFFFF);
        if (imageVersion != version)
            throw Corrupt("unsupported image version " + std::to_string(imageVersion));
        TreeUsage usage;
        std::unique_ptr<CardFile> mf = fileFromJson(field(image, "mf"), 0, usage, "");
        if (mf->fid != FileSystem::mfFid || !mf->isDf())
            throw Corrupt("the root is not the MF 3F00");
        CardState state{FileSystem(std::move(mf)), {}};
        pinsFromJson(arrayField(image, "pins"), state.pins);
        if (image.contains("hashOnCard")) {
            if (!image["hashOnCard"].is_boolean())
                throw Corrupt("hashOnCard is not true or false");
            state.hashOnCard = image["hashOnCard"].get<bool>();
        }
        readProfile(image, state);
        return state;
    } catch (const json::parse_error& error) {
        // Not the parser's message: it quotes the token read last, which may be a PIN or a key.
        throw ImageError("card image '" + source +
                         "' is corrupt or truncated: syntax error at byte " +
                         std::to_string(error.byte));
    } catch (const json::exception& error) {
        throw ImageError("card image '" + source + "' is corrupt or truncated: " + error.what());
    } catch (const std::exception& error) {
        throw ImageError("card image '" + source + "' is corrupt: " + error.what());
    }
}

} // namespace vcard

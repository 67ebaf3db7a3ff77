// Components a card put before a known one of a SEQUENCE: found by setting
// aside what stands where a known component must come, and written back
// before the same known component.
#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/CodecDetail.hpp"

#include <boost/exception/get_error_info.hpp>

#include <cstring>
#include <map>

namespace app::pkcs15::oss {

namespace {

struct Component {
    Tlv tlv;
    bool aside = false;
    std::size_t keptOffset = 0; // where it starts in the bytes read without those set aside
};

std::vector<Component> componentsOf(DerReader reader) {
    std::vector<Component> components;
    while (!reader.atEnd()) {
        components.push_back({reader.next()});
    }
    return components;
}

Bytes keptBytes(std::vector<Component>& components) {
    Bytes kept;
    for (Component& component : components) {
        if (!component.aside) {
            component.keptOffset = kept.size();
            kept.insert(kept.end(), component.tlv.begin,
                        component.tlv.begin + component.tlv.totalSize);
        }
    }
    return kept;
}

// The offset of a failure that setting the component there aside may cure:
// a known component expected and another found.
bool curableAt(const app::InvalidDataException& error, const char* outOfOrder,
               std::size_t& offset) {
    const char* const* text = boost::get_error_info<app::ErrorText>(error);
    const unsigned int* at = boost::get_error_info<app::ErrorData>(error);
    if (text == nullptr || at == nullptr ||
        (std::strcmp(*text, kTextUnexpectedTag) != 0 && std::strcmp(*text, outOfOrder) != 0)) {
        return false;
    }
    offset = *at;
    return true;
}

bool setAsideAt(std::vector<Component>& components, std::size_t keptOffset) {
    for (Component& component : components) {
        if (!component.aside && component.keptOffset == keptOffset) {
            component.aside = true;
            return true;
        }
    }
    return false;
}

// After a read that took the last `tailSize` kept components as its tail:
// those set aside before the last known component are misplaced, each
// before the next known one; everything after the last known one is tail.
void sortOut(const std::vector<Component>& components, std::size_t tailSize,
             MisplacedComponents& misplaced, UnknownComponents& tail) {
    std::size_t knownLeft = 0;
    for (const Component& component : components) {
        knownLeft += component.aside ? 0 : 1;
    }
    knownLeft -= tailSize;
    misplaced.clear();
    tail.clear();
    std::map<std::uint32_t, std::size_t> knownSoFar; // per tag
    std::vector<Bytes> pending;
    for (const Component& component : components) {
        if (knownLeft == 0) {
            tail.push_back(component.tlv.bytes());
        } else if (component.aside) {
            pending.push_back(component.tlv.bytes());
        } else {
            const std::size_t ordinal = knownSoFar[component.tlv.tag]++;
            for (Bytes& tlv : pending) {
                misplaced.push_back({std::move(tlv), component.tlv.tag, ordinal});
            }
            pending.clear();
            --knownLeft;
        }
    }
}

void append(Bytes& content, const Bytes& tlv) {
    content.insert(content.end(), tlv.begin(), tlv.end());
}

} // namespace

bool readAroundMisplaced(DerReader& reader, const char* outOfOrder,
                         const std::function<void(DerReader&)>& readKnown,
                         MisplacedComponents& misplaced, UnknownComponents& tail) {
    std::vector<Component> components;
    try {
        components = componentsOf(reader);
    } catch (const app::InvalidDataException&) {
        return false;
    }
    for (unsigned setAside = 0;; ++setAside) {
        const Bytes kept = keptBytes(components);
        DerReader attempt = reader.over(kept);
        try {
            readKnown(attempt);
            break;
        } catch (const app::InvalidDataException& error) {
            std::size_t offset = 0;
            if (setAside == kMaxMisplaced || !curableAt(error, outOfOrder, offset) ||
                !setAsideAt(components, offset)) {
                return false;
            }
        }
    }
    sortOut(components, tail.size(), misplaced, tail);
    reader.skipToEnd();
    return true;
}

Bytes placeComponents(const Bytes& known, const MisplacedComponents& misplaced,
                      const UnknownComponents& tail) {
    Bytes content;
    std::vector<bool> placed(misplaced.size(), false);
    std::map<std::uint32_t, std::size_t> knownSoFar; // per tag
    DerReader reader(known.data(), known.size());
    while (!reader.atEnd()) {
        const Tlv tlv = reader.next();
        const std::size_t ordinal = knownSoFar[tlv.tag]++;
        for (std::size_t i = 0; i < misplaced.size(); ++i) {
            if (!placed[i] && misplaced[i].beforeTag == tlv.tag &&
                misplaced[i].beforeOrdinal == ordinal) {
                append(content, misplaced[i].tlv);
                placed[i] = true;
            }
        }
        append(content, tlv.bytes());
    }
    for (bool done : placed) {
        if (!done) {
            APP_THROW(app::InvalidDataException, kTextCannotPlace);
        }
    }
    for (const Bytes& tlv : tail) {
        append(content, tlv);
    }
    return content;
}

} // namespace app::pkcs15::oss

#include "tools/p15tool/CardEntry.hpp"

#include "app/object/IEncodedEntry.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/DerReader.hpp"

namespace p15tool {

namespace {

namespace oss = app::pkcs15::oss;

// Component `index` of the object entry (0 the common object attributes, 1
// the class attributes), decoded as `Part`.
template <class Part>
std::optional<Part> entryPart(const app::object::ICardObject& object, int index) {
    const auto* entry = dynamic_cast<const app::object::IEncodedEntry*>(&object);
    if (!entry || entry->getEncoding().empty()) {
        return std::nullopt;
    }
    const mw::ByteBuffer& der = entry->getEncoding();
    try {
        oss::DerReader reader(der.data(), der.size());
        oss::DerReader components = reader.enter(reader.next());
        oss::Tlv component = components.next();
        for (; index > 0; --index) {
            component = components.next();
        }
        Part part;
        oss::decode(component.begin, component.totalSize, part);
        return part;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace

std::optional<oss::CommonObjectAttributes>
entryCommonAttributes(const app::object::ICardObject& object) {
    return entryPart<oss::CommonObjectAttributes>(object, 0);
}

std::optional<oss::CommonKeyAttributes> entryKeyAttributes(const app::object::IKey& key) {
    return entryPart<oss::CommonKeyAttributes>(key, 1);
}

} // namespace p15tool

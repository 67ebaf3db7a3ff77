#include "app/pkcs15/fs/NamedFiles.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/DerReader.hpp"

#include <algorithm>

namespace app {
namespace pkcs15 {
namespace fs {

namespace {

namespace tag = oss::tag;

bool isConstructed(const oss::Tlv& tlv) {
    return (tlv.begin[0] & 0x20) != 0;
}

// The path of a SEQUENCE laid out as a Path, if it is one.
boost::optional<mw::ByteBuffer> pathOf(oss::DerReader content) {
    if (!content.nextIs(tag::octetString)) {
        return boost::none;
    }
    const oss::Tlv path = content.next();
    const bool wholeIds = path.contentSize >= 2 && path.contentSize % 2 == 0;
    const bool pathTail =
        content.atEnd() || content.nextIs(tag::integer) || content.nextIs(tag::context(0));
    if (!wholeIds || !pathTail) {
        return boost::none;
    }
    return mw::ByteBuffer(path.content, path.contentSize);
}

void collectPaths(oss::DerReader reader, std::vector<mw::ByteBuffer>& paths) {
    try {
        while (!reader.atEnd()) {
            const oss::Tlv tlv = reader.next();
            if (!isConstructed(tlv)) {
                continue;
            }
            const oss::DerReader content = reader.enter(tlv);
            if (tlv.tag == tag::sequence) {
                if (boost::optional<mw::ByteBuffer> path = pathOf(content)) {
                    paths.push_back(std::move(*path));
                    continue;
                }
            }
            collectPaths(content, paths);
        }
    } catch (const app::InvalidDataException&) {
        // Not DER from here on: nothing more to find in this value.
    }
}

bool startsWith(const mw::ByteBuffer& path, unsigned char high, unsigned char low) {
    return path.size() >= 2 && path.get(0) == high && path.get(1) == low;
}

bool endsWith(const mw::ByteBuffer& path, const mw::ByteBuffer& tail) {
    return path.size() >= tail.size() &&
           std::equal(tail.begin(), tail.end(), path.end() - tail.size());
}

} // namespace

std::vector<mw::ByteBuffer> pathsIn(const mw::ByteBuffer& entry) {
    std::vector<mw::ByteBuffer> paths;
    collectPaths(oss::DerReader(entry.data(), entry.size()), paths);
    return paths;
}

boost::optional<unsigned char> keyReferenceIn(const mw::ByteBuffer& keyEntry) {
    try {
        oss::DerReader reader(keyEntry.data(), keyEntry.size());
        const oss::Tlv object = reader.next();
        if (!isConstructed(object)) {
            return boost::none;
        }
        oss::DerReader components = reader.enter(object);
        components.next(); // CommonObjectAttributes
        if (!components.nextIs(tag::sequence)) {
            return boost::none;
        }
        const oss::Tlv keyAttributes = components.next();
        oss::CommonKeyAttributes attributes;
        oss::decode(keyAttributes.begin, keyAttributes.totalSize, attributes);
        const std::optional<unsigned char> reference =
            attributes.keyReference ? oss::oneByteReference(*attributes.keyReference)
                                    : std::nullopt;
        return reference ? boost::make_optional(*reference) : boost::none;
    } catch (const app::InvalidDataException&) {
        return boost::none;
    }
}

bool designates(const mw::ByteBuffer& named, const mw::ByteBuffer& file) {
    if (startsWith(named, 0x3F, 0x00)) {
        return named.size() >= file.size() + 4 && endsWith(named, file);
    }
    if (startsWith(named, 0x3F, 0xFF)) {
        return named.size() == file.size() + 2 && endsWith(named, file);
    }
    return named == file;
}

} // namespace fs
} // namespace pkcs15
} // namespace app

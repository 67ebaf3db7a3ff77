#include "host/iso7816/Fcp.hpp"

#include "card/CardException.hpp"
#include "host/iso7816/Tlv.hpp"

#include <cstdio>

namespace host {
namespace iso7816 {

namespace {

enum Tag : unsigned int {
    fcpTemplate = 0x62,
    sizeTag = 0x80,
    descriptorTag = 0x82,
    fileIdTag = 0x83,
    dfNameTag = 0x84,
    lifeCycleTag = 0x8A,
};
constexpr unsigned char lifeCycleOperational = 0x05;

[[noreturn]] void throwMalformed(const char* text) {
    CARD_THROW(card::InvalidDataException() << card::ErrorText(text));
}

std::size_t bigEndian(const mw::ByteBuffer& data, const Tlv& tlv) {
    std::size_t value = 0;
    for (std::size_t i = tlv.valueOffset; i < tlv.end(); ++i) {
        value = (value << 8) | data.get(i);
    }
    return value;
}

} // namespace

FilePath filePath(const mw::ByteBuffer& absolutePath) {
    std::string text = "3F00";
    char hex[8];
    for (std::size_t i = 0; i + 1 < absolutePath.size(); i += 2) {
        std::snprintf(hex, sizeof hex, "/%02X%02X", absolutePath.get(i), absolutePath.get(i + 1));
        text += hex;
    }
    return FilePath(text);
}

Fcp Fcp::parse(const mw::ByteBuffer& answer) {
    const Tlv fcp = expectTlv(answer, fcpTemplate);
    Fcp result;
    bool hasDescriptor = false;
    for (TlvReader reader(answer, fcp); !reader.atEnd();) {
        const Tlv item = reader.next();
        switch (item.tag) {
        case sizeTag:
            if (item.length == 0 || item.length > 2) {
                throwMalformed("FCP with a malformed file size");
            }
            result.size = bigEndian(answer, item);
            break;
        case descriptorTag:
            if (item.length == 0) {
                throwMalformed("FCP with an empty file descriptor");
            }
            result.descriptor = answer.get(item.valueOffset);
            hasDescriptor = true;
            break;
        case fileIdTag:
            if (item.length != 2) {
                throwMalformed("FCP with a malformed file identifier");
            }
            result.fileId = tlvValue(answer, item);
            break;
        case dfNameTag:
            result.dfName = tlvValue(answer, item);
            break;
        default:
            break; // life cycle, security attributes: not the host's business
        }
    }
    if (fcp.end() != answer.size()) {
        throwMalformed("FCP followed by other data");
    }
    if (!hasDescriptor) {
        throwMalformed("FCP without a file descriptor");
    }
    return result;
}

mw::ByteBuffer Fcp::encode(const mw::ByteBuffer& securityAttributes) const {
    mw::ByteBuffer content;
    appendTlv(
        content, sizeTag,
        mw::ByteBuffer{static_cast<unsigned char>(size >> 8), static_cast<unsigned char>(size)});
    appendTlv(content, descriptorTag, mw::ByteBuffer{descriptor});
    appendTlv(content, fileIdTag, fileId);
    appendTlv(content, lifeCycleTag, mw::ByteBuffer{lifeCycleOperational});
    content.append(securityAttributes);
    mw::ByteBuffer fcp;
    appendTlv(fcp, fcpTemplate, content);
    return fcp;
}

} // namespace iso7816
} // namespace host

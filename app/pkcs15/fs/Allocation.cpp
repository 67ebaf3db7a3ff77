#include "app/pkcs15/fs/Allocation.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/DirectoryFile.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/oss/DerReader.hpp"

#include <boost/exception/get_error_info.hpp>
#include <cstring>

namespace app {
namespace pkcs15 {
namespace fs {

namespace {

bool hasText(const ApplicationException& e, const char* text) {
    const char* const* attached = boost::get_error_info<ErrorText>(e);
    return attached && std::strcmp(*attached, text) == 0;
}

AppObjectType keyType(unsigned short modulusBits, bool privateKey) {
    const unsigned int first = modulusBits == 1024 ? 3 : modulusBits == 1536 ? 5 : 7;
    return static_cast<AppObjectType>(privateKey ? first : first + 1);
}

} // namespace

mw::ByteBuffer freeValueFileId(ODF& odf, const card::IChannel& channel, AppObjectType type,
                               const char* exhaustedText) {
    odf.getCDF()->entries(channel);
    odf.getDODF()->entries(channel);
    const boost::shared_ptr<const P15Application> application = odf.application();
    const P15Application::ChannelScope bound(*application, channel);
    try {
        return odf.getFreeFileId(type);
    } catch (const ApplicationException& e) {
        if (hasText(e, "unable to find free file id")) {
            APP_THROW(OutOfMemoryException, exhaustedText);
        }
        throw;
    }
}

card::service::KeyRef freeKeyReference(const P15File& file, const card::IChannel& channel,
                                       unsigned short modulusBits, bool privateKey,
                                       const char* exhaustedText) {
    if (modulusBits != 1024 && modulusBits != 1536 && modulusBits != 2048) {
        APP_THROW_DATA(InvalidDataException, "invalid modulus size", modulusBits);
    }
    file.entries(channel);
    const boost::shared_ptr<const P15Application> application = file.application();
    const P15Application::ChannelScope bound(*application, channel);
    try {
        return file.odf()->getFreeKeyReference(keyType(modulusBits, privateKey));
    } catch (const ApplicationException& e) {
        if (hasText(e, "unable to find free key reference")) {
            APP_THROW(ApplicationException, exhaustedText);
        }
        throw;
    }
}

bool rsaKeyRef(const oss::CommonKeyAttributes& common, const oss::ObjectValue& value,
               oss::Integer modulusLength, card::service::KeyRef& ref) {
    const std::optional<unsigned char> reference =
        common.keyReference ? oss::oneByteReference(*common.keyReference) : std::nullopt;
    if (!reference) {
        return false;
    }
    ref.keyReference = *reference;
    ref.modulusBits = static_cast<unsigned short>(modulusLength);
    const oss::Path* path = indirectPath(value);
    ref.fileId = path ? mw::ByteBuffer(path->path) : mw::ByteBuffer();
    ref.flag = false;
    return true;
}

} // namespace fs
} // namespace pkcs15
} // namespace app

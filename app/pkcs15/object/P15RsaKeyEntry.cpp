#include "app/pkcs15/object/P15RsaKeyEntry.hpp"

#include "app/ApplicationException.hpp"
#include "app/TransformSecurityCondition.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/detail/util.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/P15File.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "app/pkcs15/fs/TokenInfo.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/OssHelper.hpp"
#include "card/CardException.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"

#include <algorithm>
#include <boost/exception/get_error_info.hpp>
#include <boost/make_shared.hpp>
#include <cstring>
#include <limits>

namespace app {
namespace pkcs15 {
namespace object {

mw::ByteBuffer decodeValuePath(const oss::ObjectValue& value) {
    if (value.choice != oss::ObjectValue::indirect ||
        value.indirectValue.choice != oss::ReferencedValue::path) {
        return mw::ByteBuffer();
    }
    return mw::ByteBuffer(value.indirectValue.pathValue.path);
}

void storeValuePath(const mw::ByteBuffer& path, oss::ObjectValue& value) {
    if (value.choice != oss::ObjectValue::indirect ||
        value.indirectValue.choice != oss::ReferencedValue::path) {
        value = oss::ObjectValue();
    }
    value.indirectValue.pathValue.path.assign(path.begin(), path.end());
}

std::uint16_t decodeModulusLength(oss::Integer bits) {
    if (bits < 0 || bits > std::numeric_limits<std::uint16_t>::max()) {
        APP_THROW_DATA(InvalidDataException, "PrivateKey::AccessFlags not PKCS#15 conform", bits);
    }
    return static_cast<std::uint16_t>(bits);
}

void loadKeyAttributes(const oss::CommonObjectAttributes& common,
                       const oss::CommonKeyAttributes& keyAttributes,
                       app::object::AbstractKey& key) {
    loadCommonObjectAttributes(common, key);
    loadCommonKeyAttributes(keyAttributes, key);
}

void storeKeyAttributes(const app::object::AbstractKey& key, Store which,
                        oss::CommonObjectAttributes& common,
                        oss::CommonKeyAttributes& keyAttributes) {
    storeObjectAttributes(key, which, common,
                          "access control rules of a key on the card cannot be changed");
    storeCommonKeyAttributes(key, which, keyAttributes);
}

card::service::AccessConditions cardConditions(const boost::optional<AccessControlRules>& rules) {
    card::service::AccessConditions conditions;
    if (!rules) {
        return conditions;
    }
    for (const AccessControlRule& rule : *rules) {
        if (!rule.getSecurityCondition()) {
            continue; // grants nothing
        }
        card::service::AccessCondition condition;
        condition.accessModes = rule.getAccessMode();
        condition.condition = transform(*rule.getSecurityCondition());
        conditions.push_back(std::move(condition));
    }
    return conditions;
}

card::service::AccessConditions publicPartConditions(card::service::AccessConditions conditions) {
    for (card::service::AccessCondition& condition : conditions) {
        condition.accessModes &= card::service::AccessUpdate;
    }
    conditions.erase(std::remove_if(conditions.begin(), conditions.end(),
                                    [](const auto& c) { return c.accessModes == 0; }),
                     conditions.end());
    conditions.push_back(
        {card::service::AccessRead, boost::make_shared<card::service::AlwaysSecurityCondition>()});
    return conditions;
}

void checkRoom(const fs::P15File& file, const card::IChannel& channel,
               const mw::ByteBuffer& oldEncoding, const mw::ByteBuffer& newEncoding,
               const char* outOfMemoryText) {
    if (newEncoding.size() > oldEncoding.size() &&
        file.entriesLength(channel) + (newEncoding.size() - oldEncoding.size()) >
            file.fileSize(channel)) {
        APP_THROW(OutOfMemoryException, outOfMemoryText);
    }
}

template <class Entry> mw::ByteBuffer encodeKeyEntry(const Entry& entry, const char* tooLongText) {
    try {
        return mw::ByteBuffer(oss::encode(entry));
    } catch (const InvalidDataException& e) {
        const char* const* text = boost::get_error_info<ErrorText>(e);
        if (text && std::strcmp(*text, oss::kTextTooLong) == 0) {
            APP_THROW(InvalidDataException, tooLongText);
        }
        throw;
    }
}

template mw::ByteBuffer encodeKeyEntry(const oss::PrivateKeyType&, const char*);
template mw::ByteBuffer encodeKeyEntry(const oss::PublicKeyType&, const char*);
template mw::ByteBuffer encodeKeyEntry(const oss::CertificateType&, const char*);
template mw::ByteBuffer encodeKeyEntry(const oss::DataType&, const char*);
template mw::ByteBuffer encodeKeyEntry(const oss::TokenInfo&, const char*);

template <class File>
boost::shared_ptr<const File> lockFile(const boost::weak_ptr<const File>& file) {
    boost::shared_ptr<const File> locked = file.lock();
    if (!locked) {
        APP_THROW(ApplicationException, "failed to get shared ptr from weak ptr");
    }
    return locked;
}

template boost::shared_ptr<const fs::PrKDF> lockFile(const boost::weak_ptr<const fs::PrKDF>&);
template boost::shared_ptr<const fs::PuKDF> lockFile(const boost::weak_ptr<const fs::PuKDF>&);
template boost::shared_ptr<const fs::CDF> lockFile(const boost::weak_ptr<const fs::CDF>&);
template boost::shared_ptr<const fs::DODF> lockFile(const boost::weak_ptr<const fs::DODF>&);
template boost::shared_ptr<const fs::TokenInfo>
lockFile(const boost::weak_ptr<const fs::TokenInfo>&);

card::service::KeyRef cardKeyRef(std::uint8_t keyReference, std::uint16_t bits,
                                 const mw::ByteBuffer& path) {
    card::service::KeyRef ref;
    ref.keyReference = keyReference;
    ref.modulusBits = bits;
    ref.fileId = path;
    ref.flag = false;
    return ref;
}

namespace {

// Deletes one key file of the application's, unless an entry still names it.
void removeUnlessNamed(const card::IChannel& channel, const P15Application& application,
                       const card::service::KeyRef& own, bool privateKey) {
    if (application.keyFileNamed(channel, own, privateKey)) {
        return;
    }
    const auto& keys = *application.getAsymmetricKeyManagementService();
    try {
        privateKey ? keys.removePrivateKey(channel, own) : keys.removePublicKey(channel, own);
    } catch (const card::CardException& e) {
        if (!util::isFileNotFound(e)) {
            throw;
        }
    }
}

} // namespace

void removeKeyFiles(const card::IChannel& channel, const P15Application& application,
                    const card::service::KeyRef& key, bool privateKey) {
    if (key.keyReference == 0) {
        return;
    }
    card::service::KeyRef own = key;
    if (application.keyFilesRefusal(own, privateKey)) {
        return;
    }
    removeUnlessNamed(channel, application, own, privateKey);
    if (privateKey) {
        card::service::KeyRef publicHalf;
        publicHalf.keyReference = key.keyReference;
        if (!application.keyFilesRefusal(publicHalf, false)) {
            removeUnlessNamed(channel, application, publicHalf, false);
        }
    }
}

} // namespace object
} // namespace pkcs15
} // namespace app

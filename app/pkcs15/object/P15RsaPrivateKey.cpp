#include "app/pkcs15/object/P15RsaPrivateKey.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/detail/util.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/object/P15RsaKeyEntry.hpp"
#include "card/CardException.hpp"
#include "card/crypto/spec/RsaPrivateCrtKeySpec.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "card/service/IFileSystemService.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>

namespace app {
namespace pkcs15 {
namespace object {

namespace {

// The public key container of the key pair under `privateKey`'s reference.
card::service::KeyRef publicPartOf(const card::service::KeyRef& privateKey) {
    card::service::KeyRef publicKey = privateKey;
    publicKey.fileId.clear();
    return publicKey;
}

} // namespace

P15RsaPrivateKey::P15RsaPrivateKey(boost::weak_ptr<const fs::PrKDF> prkdf)
    : prkdf_(std::move(prkdf)) {}

P15RsaPrivateKey::P15RsaPrivateKey(boost::weak_ptr<const fs::PrKDF> prkdf,
                                   const oss::PrivateKeyType& entry, mw::ByteBuffer encoding)
    : P15RsaPrivateKey(std::move(prkdf)) {
    decodePrivateKeyType(entry);
    entry_ = entry;
    encoding_ = std::move(encoding);
}

void P15RsaPrivateKey::decodePrivateKeyType(const oss::PrivateKeyType& entry) {
    if (entry.choice != oss::PrivateKeyType::privateRSAKey) {
        APP_THROW(ApplicationException, "PKCS#15 RSA Private Key of unknown type found");
    }
    card::service::KeyRef ref;
    if (loadRsaKeyObject(entry.privateRSAKeyValue, *this, holders(), ref)) {
        setP15KeyReference(std::move(ref));
    }
}

oss::PrivateKeyType P15RsaPrivateKey::encodePrivateKeyType() const {
    oss::PrivateKeyType entry = entry_ ? *entry_ : oss::PrivateKeyType();
    storeRsaKeyObject(*this, holders(), p15KeyReference().keyReference,
                      entry_ ? Store::Touched : Store::All, entry.privateRSAKeyValue);
    return entry;
}

RsaKeyHolders P15RsaPrivateKey::holders() {
    return {subjectName_, keyValueReference_, modulusLength_};
}

ConstRsaKeyHolders P15RsaPrivateKey::holders() const {
    return {subjectName_, keyValueReference_, modulusLength_};
}

void P15RsaPrivateKey::assignKeyReference(const card::IChannel& channel,
                                          const P15Application& application) const {
    card::service::KeyRef ref = lockFile(prkdf_)->getFreeKeyReference(
        channel, *application.getFileAccessService(), getModulusLength());
    keyValueReference_.set(ref.fileId);
    setP15KeyReference(std::move(ref));
}

// Brings the key pair's containers and the CRT components to the card; a
// refusal leaves no container behind.
void P15RsaPrivateKey::importKey(const card::IChannel& channel,
                                 const P15Application& application) const {
    const card::service::KeyRef& ref = p15KeyReference();
    const card::crypto::spec::RsaPrivateCrtKeySpec spec(ref.modulusBits, getPublicExponent(),
                                                        getP(), getQ(), getDp(), getDq(), getPInv(),
                                                        getQInv());
    const card::service::AccessConditions conditions = cardConditions(getAccessControlRules());
    const card::service::IFileSystemService& files = *application.getFileSystemService();
    files.createFile(channel, card::service::PrivateKeyCreateParams(ref, conditions));
    bool publicPartCreated = false;
    try {
        files.createFile(channel, card::service::PublicKeyCreateParams(
                                      publicPartOf(ref), publicPartConditions(conditions)));
        publicPartCreated = true;
        application.getAsymmetricKeyManagementService()->importPrivateKey(channel, ref, spec);
    } catch (...) {
        undoImport(channel, application, publicPartCreated);
        throw;
    }
}

void P15RsaPrivateKey::undoImport(const card::IChannel& channel, const P15Application& application,
                                  bool withPublicPart) const {
    try {
        removeKeyFromCard(channel, application, withPublicPart);
    } catch (...) {
        // The failure that made the import undone is the one to report.
    }
}

void P15RsaPrivateKey::write(const card::IChannel& channel,
                             const P15Application& application) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (!isTouched()) {
        return;
    }
    const bool isNew = encoding_.empty();
    if (!isNew && isKeyMaterialTouched()) {
        APP_THROW(OperationNotSupportedException,
                  "key material of a key on the card cannot be replaced");
    }
    // A new key with a reference is one the card generates: no import.
    const bool imports = isNew && p15KeyReference().keyReference == 0;
    if (imports && getP().empty()) {
        APP_THROW(ApplicationException, "crt components not set");
    }
    const boost::shared_ptr<const fs::PrKDF> file = lockFile(prkdf_);
    const P15Application::ChannelScope bound(application, channel);
    const card::service::KeyRef before = p15KeyReference();
    if (imports) {
        assignKeyReference(channel, application);
    }
    try {
        const oss::PrivateKeyType entry = encodePrivateKeyType();
        mw::ByteBuffer encoding =
            encodeKeyEntry(entry, "encoded private key size exceeds 65535 bytes");
        checkRoom(*file, channel, encoding_, encoding, "EF(PrKDF) out of memory");
        if (imports) {
            importKey(channel, application);
        }
        try {
            file->updateEncodedAttributes(encoding_, encoding);
        } catch (...) {
            if (imports) {
                undoImport(channel, application, true);
            }
            throw;
        }
        encoding_ = std::move(encoding);
        entry_ = entry;
    } catch (...) {
        if (imports) {
            setP15KeyReference(before);
        }
        throw;
    }
    clearTouched();
}

void P15RsaPrivateKey::removeKeyFromCard(const card::IChannel& channel,
                                         const P15Application& application,
                                         bool withPublicPart) const {
    const auto& keys = application.getAsymmetricKeyManagementService();
    keys->removePrivateKey(channel, p15KeyReference());
    if (!withPublicPart) {
        return;
    }
    try {
        keys->removePublicKey(channel, publicPartOf(p15KeyReference()));
    } catch (const card::CardException& e) {
        if (!util::isFileNotFound(e)) {
            throw;
        }
    }
}

// The entry goes first: a card that fails or loses power in between keeps
// an unlisted key file, never an entry that names a missing key.
void P15RsaPrivateKey::remove(const card::IChannel& channel,
                              const P15Application& application) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (encoding_.empty()) {
        APP_THROW(ApplicationException, "private key is not on the card");
    }
    const P15Application::ChannelScope bound(application, channel);
    removeEntry(channel, application);
    removeKeyFiles(channel, application, p15KeyReference(), true);
}

void P15RsaPrivateKey::setGeneratedKeyReference(card::service::KeyRef keyRef) const {
    if (!encoding_.empty()) {
        APP_THROW(ApplicationException, "private key is already on the card");
    }
    keyValueReference_.set(keyRef.fileId);
    setP15KeyReference(std::move(keyRef));
}

void P15RsaPrivateKey::removeEntry(const card::IChannel& channel,
                                   const P15Application& application) const {
    if (encoding_.empty()) {
        return;
    }
    const boost::shared_ptr<const fs::PrKDF> file = lockFile(prkdf_);
    const P15Application::ChannelScope bound(application, channel);
    file->updateEncodedAttributes(encoding_, mw::ByteBuffer());
    encoding_.clear();
    entry_ = boost::none;
}

void P15RsaPrivateKey::read(const card::IChannel&, const P15Application&) {
    APP_THROW(OperationNotSupportedException, "read not supported");
}

} // namespace object
} // namespace pkcs15
} // namespace app

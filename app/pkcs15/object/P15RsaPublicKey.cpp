#include "app/pkcs15/object/P15RsaPublicKey.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "app/pkcs15/object/P15RsaKeyEntry.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>

namespace app {
namespace pkcs15 {
namespace object {

P15RsaPublicKey::P15RsaPublicKey(boost::weak_ptr<const fs::PuKDF> pukdf)
    : pukdf_(std::move(pukdf)) {}

P15RsaPublicKey::P15RsaPublicKey(boost::weak_ptr<const fs::PuKDF> pukdf,
                                 const oss::PublicKeyType& entry, mw::ByteBuffer encoding)
    : P15RsaPublicKey(std::move(pukdf)) {
    decodePublicKeyType(entry);
    entry_ = entry;
    encoding_ = std::move(encoding);
}

void P15RsaPublicKey::decodePublicKeyType(const oss::PublicKeyType& entry) {
    if (entry.choice != oss::PublicKeyType::publicRSAKey) {
        APP_THROW(ApplicationException, "PKCS#15 RSA Public Key of unknown type found");
    }
    card::service::KeyRef ref;
    if (loadRsaKeyObject(entry.publicRSAKeyValue, *this, holders(), ref)) {
        setP15KeyReference(std::move(ref));
    }
}

oss::PublicKeyType P15RsaPublicKey::encodePublicKeyType() const {
    oss::PublicKeyType entry = entry_ ? *entry_ : oss::PublicKeyType();
    storeRsaKeyObject(*this, holders(), p15KeyReference().keyReference,
                      entry_ ? Store::Touched : Store::All, entry.publicRSAKeyValue);
    return entry;
}

RsaKeyHolders P15RsaPublicKey::holders() {
    return {subjectName_, keyValueReference_, modulusLength_};
}

ConstRsaKeyHolders P15RsaPublicKey::holders() const {
    return {subjectName_, keyValueReference_, modulusLength_};
}

void P15RsaPublicKey::read(const card::IChannel& channel, const P15Application& application) {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    loadKeyValue(application.getAsymmetricKeyManagementService()->readPublicKey(
        channel,
        cardKeyRef(p15KeyReference().keyReference, getModulusLength(), getKeyValueReference())));
}

void P15RsaPublicKey::loadKeyValue(const card::crypto::spec::RsaPublicKeySpec& value) {
    modulus_.load(value.getModulus());
    publicExponent_.load(value.getPublicExponent());
}

void P15RsaPublicKey::write(const card::IChannel& channel,
                            const P15Application& application) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const bool isNew = encoding_.empty();
    if (isNew && !modulusLength_.isTouched()) {
        APP_THROW(ApplicationException, "modulus length not set");
    }
    if (!isTouched()) {
        return;
    }
    const boost::shared_ptr<const fs::PuKDF> file = lockFile(pukdf_);
    const P15Application::ChannelScope bound(application, channel);
    const card::service::KeyRef before = p15KeyReference();
    if (isKeyMaterialTouched() && before.keyReference == 0) {
        card::service::KeyRef ref = file->getFreeKeyReference(
            channel, *application.getFileAccessService(), getModulusLength());
        keyValueReference_.set(ref.fileId);
        setP15KeyReference(std::move(ref));
    }
    try {
        const oss::PublicKeyType entry = encodePublicKeyType();
        mw::ByteBuffer encoding =
            encodeKeyEntry(entry, "encoded public key size exceeds 65535 bytes");
        checkRoom(*file, channel, encoding_, encoding, "EF(PuKDF) out of memory");
        file->updateEncodedAttributes(encoding_, encoding);
        encoding_ = std::move(encoding);
        entry_ = entry;
    } catch (...) {
        setP15KeyReference(before);
        throw;
    }
    clearTouched();
}

// The entry goes first: a card that fails or loses power in between keeps
// an unlisted key file, never an entry that names a missing key.
void P15RsaPublicKey::remove(const card::IChannel& channel,
                             const P15Application& application) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (encoding_.empty()) {
        APP_THROW(ApplicationException, "public key is not on the card");
    }
    const P15Application::ChannelScope bound(application, channel);
    removeEntry(channel, application);
    removeKeyFiles(channel, application, p15KeyReference(), false);
}

void P15RsaPublicKey::setGeneratedKeyReference(card::service::KeyRef keyRef) const {
    if (!encoding_.empty()) {
        APP_THROW(ApplicationException, "public key is already on the card");
    }
    keyValueReference_.set(keyRef.fileId);
    setP15KeyReference(std::move(keyRef));
}

void P15RsaPublicKey::removeEntry(const card::IChannel& channel,
                                  const P15Application& application) const {
    if (encoding_.empty()) {
        return;
    }
    const boost::shared_ptr<const fs::PuKDF> file = lockFile(pukdf_);
    const P15Application::ChannelScope bound(application, channel);
    file->updateEncodedAttributes(encoding_, mw::ByteBuffer());
    encoding_.clear();
    entry_ = boost::none;
}

} // namespace object
} // namespace pkcs15
} // namespace app

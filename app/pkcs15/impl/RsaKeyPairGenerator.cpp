#include "app/pkcs15/impl/RsaKeyPairGenerator.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/object/P15RsaKeyEntry.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "card/service/IFileSystemService.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>
#include <string.h>
#include <utility>

namespace app {
namespace pkcs15 {
namespace impl {

namespace {

using card::service::KeyRef;
using object::P15RsaPrivateKey;
using object::P15RsaPublicKey;

void checkModulusSizes(std::uint16_t privateBits, std::uint16_t publicBits) {
    if (privateBits == 0) {
        APP_THROW(InvalidDataException, "private key modulus sizes must be specified");
    }
    if (publicBits == 0) {
        APP_THROW(InvalidDataException, "public key modulus sizes must be specified");
    }
    if (privateBits != publicBits) {
        APP_THROW(InvalidDataException, "modulus sizes of keys must be equal");
    }
    if (privateBits != 1024 && privateBits != 1536 && privateBits != 2048) {
        APP_THROW_DATA(InvalidDataException, "modulus size not supported", privateBits);
    }
}

// A key reference zeroed when it goes (its file identifier wipes itself).
struct WipedKeyRef : KeyRef {
    explicit WipedKeyRef(KeyRef ref)
        : KeyRef(std::move(ref)) {}
    ~WipedKeyRef() {
        explicit_bzero(&keyReference, sizeof keyReference);
        explicit_bzero(&modulusBits, sizeof modulusBits);
    }
    WipedKeyRef(const WipedKeyRef&) = delete;
    WipedKeyRef& operator=(const WipedKeyRef&) = delete;
};

// One generation on the card: entries first, then the containers, then the
// key pair. A refusal is reported as the card gave it; what was written
// before it stays, so that the entries name the references in use.
class Generation {
public:
    Generation(const card::IChannel& channel, const P15Application& application,
               const P15RsaPrivateKey& privateKey, P15RsaPublicKey& publicKey)
        : channel_(channel)
        , application_(application)
        , privateKey_(privateKey)
        , publicKey_(publicKey) {}

    void run(const KeyRef& privateRef, const KeyRef& publicRef) {
        writeEntries(privateRef, publicRef);
        createContainers(privateRef, publicRef);
        publicKey_.loadKeyValue(application_.getAsymmetricKeyManagementService()->generateKeyPair(
            channel_, privateRef, publicRef));
    }

private:
    void writeEntries(const KeyRef& privateRef, const KeyRef& publicRef) {
        privateKey_.setGeneratedKeyReference(privateRef);
        publicKey_.setGeneratedKeyReference(publicRef);
        privateKey_.write(channel_, application_);
        publicKey_.write(channel_, application_);
    }

    // The public key's own rules guard its container; a public key without
    // rules gets those of the public part of an imported key.
    void createContainers(const KeyRef& privateRef, const KeyRef& publicRef) {
        const card::service::AccessConditions privateConditions =
            object::cardConditions(privateKey_.getAccessControlRules());
        card::service::AccessConditions publicConditions =
            object::cardConditions(publicKey_.getAccessControlRules());
        if (publicConditions.empty()) {
            publicConditions = object::publicPartConditions(privateConditions);
        }
        const card::service::IFileSystemService& files = *application_.getFileSystemService();
        files.createFile(channel_,
                         card::service::PrivateKeyCreateParams(privateRef, privateConditions));
        files.createFile(channel_,
                         card::service::PublicKeyCreateParams(publicRef, publicConditions));
    }

    const card::IChannel& channel_;
    const P15Application& application_;
    const P15RsaPrivateKey& privateKey_;
    P15RsaPublicKey& publicKey_;
};

} // namespace

RsaKeyPairGenerator::RsaKeyPairGenerator(boost::weak_ptr<const P15Application> application)
    : application_(std::move(application)) {}

void RsaKeyPairGenerator::generate(
    const card::IChannel& channel, const boost::shared_ptr<app::object::IPrivateKey>& privateKey,
    const boost::shared_ptr<app::object::IPublicKey>& publicKey) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const boost::shared_ptr<const P15Application> application = application_.lock();
    if (!application) {
        APP_THROW(ApplicationException, "failed to get shared ptr from weak ptr");
    }
    const auto* p15PrivateKey = dynamic_cast<const P15RsaPrivateKey*>(privateKey.get());
    if (p15PrivateKey == nullptr) {
        APP_THROW(ApplicationException, "failed to cast from IPrivateKey to P15RsaPrivateKey");
    }
    auto* p15PublicKey = dynamic_cast<P15RsaPublicKey*>(publicKey.get());
    if (p15PublicKey == nullptr) {
        APP_THROW(ApplicationException, "failed to cast from IPublicKey to P15RsaPublicKey");
    }
    const std::uint16_t bits = p15PrivateKey->getModulusLength();
    checkModulusSizes(bits, p15PublicKey->getModulusLength());

    std::pair<KeyRef, KeyRef> refs = application->getFreeKeyPairReference(channel, bits);
    const WipedKeyRef privateRef(std::exchange(refs.first, KeyRef()));
    const WipedKeyRef publicRef(std::exchange(refs.second, KeyRef()));
    Generation(channel, *application, *p15PrivateKey, *p15PublicKey).run(privateRef, publicRef);
}

} // namespace impl
} // namespace pkcs15
} // namespace app

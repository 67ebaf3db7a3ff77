#ifndef HOST_ISO7816_ASYMMETRICKEYMANAGEMENTSERVICE_HPP
#define HOST_ISO7816_ASYMMETRICKEYMANAGEMENTSERVICE_HPP

#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "host/iso7816/FileSelection.hpp"
#include "host/iso7816/FileSystemService.hpp"

#include <boost/shared_ptr.hpp>

namespace host {
namespace iso7816 {

// RSA key pairs in the key files of the application DF: GENERATE
// ASYMMETRIC KEY PAIR (also to read a public key), PUT DATA to import a
// private key in CRT form, DELETE FILE to remove one.
class AsymmetricKeyManagementService : public card::service::IAsymmetricKeyManagementService {
public:
    AsymmetricKeyManagementService(boost::shared_ptr<FileSelection> selection,
                                   boost::shared_ptr<const FileSystemService> fileSystem);

    card::crypto::spec::RsaPublicKeySpec
    generateKeyPair(const card::IChannel& channel, const card::service::KeyRef& privateKey,
                    const card::service::KeyRef& publicKey) const override;
    void removePrivateKey(const card::IChannel& channel,
                          const card::service::KeyRef& key) const override;
    void removePublicKey(const card::IChannel& channel,
                         const card::service::KeyRef& key) const override;
    card::crypto::spec::RsaPublicKeySpec
    readPublicKey(const card::IChannel& channel, const card::service::KeyRef& key) const override;
    void importPrivateKey(const card::IChannel& channel, const card::service::KeyRef& key,
                          const card::crypto::spec::RsaPrivateCrtKeySpec& spec) const override;

private:
    boost::shared_ptr<FileSelection> selection_;
    boost::shared_ptr<const FileSystemService> fileSystem_;
};

} // namespace iso7816
} // namespace host

#endif

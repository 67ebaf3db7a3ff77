#ifndef PKCS11_OBJECTLIST_HPP
#define PKCS11_OBJECTLIST_HPP

#include "pkcs11/Object.hpp"

#include <memory>
#include <vector>

namespace app::object {
class ICardObjectRepository;
class ICertificate;
class IDataObject;
class IPrivateRSAKey;
class IPublicRSAKey;
} // namespace app::object
namespace card {
class IChannel;
}

namespace pkcs11 {

using Objects = std::vector<std::unique_ptr<Object>>;

// The PKCS#11 objects of a card application: its RSA private and public
// keys (other kinds of key are not offered), its certificates, a public key
// for each certificate whose key has no public key entry, and its data
// objects, each with the next handle of `nextHandle`. Values that take card commands are read on
// first use, as long as `repository` and `channel` live.
Objects listObjects(const app::object::ICardObjectRepository& repository,
                    const card::IChannel& channel, CK_OBJECT_HANDLE& nextHandle);

// The object of one key; a private key takes its modulus from `publicKey`
// when there is one.
std::unique_ptr<Object> publicKeyObject(const boost::shared_ptr<app::object::IPublicRSAKey>& key,
                                        CK_OBJECT_HANDLE handle,
                                        const app::object::ICardObjectRepository& repository,
                                        const card::IChannel& channel);
std::unique_ptr<Object>
privateKeyObject(const boost::shared_ptr<app::object::IPrivateRSAKey>& key,
                 const boost::shared_ptr<app::object::IPublicRSAKey>& publicKey,
                 CK_OBJECT_HANDLE handle, const app::object::ICardObjectRepository& repository,
                 const card::IChannel& channel);

std::unique_ptr<Object>
certificateObject(const boost::shared_ptr<app::object::ICertificate>& certificate,
                  CK_OBJECT_HANDLE handle, const app::object::ICardObjectRepository& repository,
                  const card::IChannel& channel);
/// The public key a certificate holds, for a certificate whose key has no
/// public key entry.
std::unique_ptr<Object>
certifiedKeyObject(const boost::shared_ptr<app::object::ICertificate>& certificate,
                   CK_OBJECT_HANDLE handle, const app::object::ICardObjectRepository& repository,
                   const card::IChannel& channel);
/// True for the public key object listObjects makes of a certificate: it
/// has no entry of its own to change or remove.
bool isCertifiedKey(const Object& object);

std::unique_ptr<Object> dataObject(const boost::shared_ptr<app::object::IDataObject>& data,
                                   CK_OBJECT_HANDLE handle,
                                   const app::object::ICardObjectRepository& repository,
                                   const card::IChannel& channel);

} // namespace pkcs11

#endif

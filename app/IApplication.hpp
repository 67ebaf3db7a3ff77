#ifndef APP_IAPPLICATION_HPP
#define APP_IAPPLICATION_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

namespace card {
class IChannel;
}

namespace app {
namespace crypto {
class ICipher;
class IKeyPairGenerator;
class IMessageDigest;
class IRandom;
class ISignature;
} // namespace crypto
} // namespace app

namespace app {

// One row of an application's algorithm table: signature algorithm, its
// hash algorithm, and the hash algorithm identifier's DER content in hex.
struct AlgorithmRow {
    std::string signatureOid;
    std::string hashOid;
    std::string hashOidHex;
};

using AlgorithmRows = std::vector<AlgorithmRow>;

// A card application as the host sees it.
class MW_EXPORT_TYPE IApplication {
public:
    virtual ~IApplication() = default;
    virtual const std::string& getLabel() const = 0;
    // Forgets what was read from the card, so that the next access reads again.
    virtual void clearCache() = 0;
    virtual const mw::ByteBuffer& getAid() const = 0;
    virtual void select(const card::IChannel& channel) const = 0;
    // Removes every object the application holds from the card.
    virtual void wipe(const card::IChannel& channel) = 0;
    // Host notifications this application has no use for.
    virtual void onCardReset() = 0;
    virtual void onTransactionBegin() = 0;
    virtual void onTransactionEnd() = 0;
    // The algorithm rows filed under `key` (1: signature algorithms, 2: raw
    // RSA); empty when there are none.
    virtual const AlgorithmRows& getAlgorithmRows(unsigned int key) const = 0;
    // Engines, by the dotted identifier of their algorithm. An algorithm the
    // application cannot offer is an application exception, never null.
    virtual boost::shared_ptr<crypto::IMessageDigest>
    getMessageDigest(const std::string& oid) const = 0;
    virtual boost::shared_ptr<crypto::ISignature> getSignature(const std::string& oid) const = 0;
    virtual boost::shared_ptr<crypto::ICipher> getCipher(const std::string& oid) const = 0;
    virtual boost::shared_ptr<crypto::IRandom> getRandom() const = 0;
    virtual boost::shared_ptr<crypto::IKeyPairGenerator>
    getKeyPairGenerator(const std::string& oid) const = 0;
};

} // namespace app

#endif

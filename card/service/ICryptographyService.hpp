#ifndef CARD_SERVICE_ICRYPTOGRAPHYSERVICE_HPP
#define CARD_SERVICE_ICRYPTOGRAPHYSERVICE_HPP

#include "card/IBaseInterface.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <string>

namespace card {
class IChannel;
namespace service {

// A private-key operation on the card, bound to one key by init.
class MW_EXPORT_TYPE ICardKeyOperation {
public:
    enum Mode { Sign = 0, Decipher = 1 };

    virtual ~ICardKeyOperation() = default;
    // Sets the card's security environment for the key; `mode` is a Mode.
    virtual void init(const IChannel& channel, const KeyRef& key, int mode) = 0;
    // Dotted identifier of the algorithm this operation performs.
    virtual const std::string& getAlgorithm() const = 0;
};

// PKCS#1 v1.5 signature: the card pads the given bytes (block type 1) and
// applies the private key.
class MW_EXPORT_TYPE ICardSignature : public virtual ICardKeyOperation {
public:
    virtual mw::ByteBuffer sign(const IChannel& channel, const mw::ByteBuffer& data) = 0;
};

// PKCS#1 v1.5 deciphering: the card applies the private key and removes the
// block type 2 padding.
class MW_EXPORT_TYPE ICardCipher : public virtual ICardKeyOperation {
public:
    virtual mw::ByteBuffer decipher(const IChannel& channel, const mw::ByteBuffer& data) = 0;
};

class MW_EXPORT_TYPE ICardRandom {
public:
    virtual ~ICardRandom() = default;
    virtual mw::ByteBuffer generate(const IChannel& channel, std::size_t count) = 0;
};

class MW_EXPORT_TYPE ICryptographyService : public virtual IInterface {
public:
    // Null when the card does not perform the algorithm.
    virtual boost::shared_ptr<ICardSignature> getSignature(const std::string& oid) const = 0;
    virtual boost::shared_ptr<ICardCipher> getCipher(const std::string& oid) const = 0;
    virtual boost::shared_ptr<ICardRandom> getRandom() const = 0;
};

} // namespace service
} // namespace card

#endif

#ifndef HOST_ISO7816_CRYPTOGRAPHYSERVICE_HPP
#define HOST_ISO7816_CRYPTOGRAPHYSERVICE_HPP

#include "card/service/ICryptographyService.hpp"
#include "host/iso7816/FileSelection.hpp"

namespace host {
namespace iso7816 {

// Hands out the card's private-key operations (rsaEncryption only; every
// caller gets its own, bound by its own init) and its random source.
class CryptographyService : public card::service::ICryptographyService {
public:
    explicit CryptographyService(boost::shared_ptr<FileSelection> selection);

    boost::shared_ptr<card::service::ICardSignature>
    getSignature(const std::string& oid) const override;
    boost::shared_ptr<card::service::ICardCipher> getCipher(const std::string& oid) const override;
    boost::shared_ptr<card::service::ICardRandom> getRandom() const override;

private:
    boost::shared_ptr<FileSelection> selection_;
};

} // namespace iso7816
} // namespace host

#endif

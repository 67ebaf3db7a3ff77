#ifndef HOST_ISO7816_CRYPTOGRAPHYSERVICE_HPP
#define HOST_ISO7816_CRYPTOGRAPHYSERVICE_HPP

#include "card/service/ICryptographyService.hpp"
#include "host/iso7816/AlgorithmList.hpp"
#include "host/iso7816/FileSelection.hpp"

namespace host {
namespace iso7816 {

struct RsaAlgorithm;

/// Hands out the card's private-key operations (signatures: rsaEncryption,
/// and the hash-and-sign and RSA-PSS algorithms of the profile that the card
/// lists; deciphering: rsaEncryption, and RSAES-OAEP when the card lists it;
/// every caller gets its own, bound by its own init) and its random source. The profile's algorithm
/// references go to a card that lists its algorithms; to any other, only the references the
/// caller's KeyRef carries.
class CryptographyService : public card::service::ICryptographyService {
public:
    CryptographyService(boost::shared_ptr<FileSelection> selection,
                        boost::shared_ptr<const AlgorithmList> algorithms);

    boost::shared_ptr<card::service::ICardSignature>
    getSignature(const std::string& oid) const override;
    boost::shared_ptr<card::service::ICardCipher> getCipher(const std::string& oid) const override;
    boost::shared_ptr<card::service::ICardRandom> getRandom() const override;

private:
    bool listsAlgorithms() const;
    bool performs(const RsaAlgorithm* algorithm) const;

    boost::shared_ptr<FileSelection> selection_;
    boost::shared_ptr<const AlgorithmList> algorithms_;
};

} // namespace iso7816
} // namespace host

#endif

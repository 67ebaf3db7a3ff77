#include "host/iso7816/CryptographyService.hpp"

#include "host/iso7816/CardRandom.hpp"
#include "host/iso7816/RsaAlgorithm.hpp"
#include "host/iso7816/RsaCardOperation.hpp"

#include <boost/make_shared.hpp>

namespace host {
namespace iso7816 {

CryptographyService::CryptographyService(boost::shared_ptr<FileSelection> selection,
                                         boost::shared_ptr<const AlgorithmList> algorithms)
    : selection_(std::move(selection))
    , algorithms_(std::move(algorithms)) {}

boost::shared_ptr<card::service::ICardSignature>
CryptographyService::getSignature(const std::string& oid) const {
    const RsaAlgorithm* algorithm = findSignatureAlgorithm(oid);
    if (!performs(algorithm)) {
        return nullptr;
    }
    return boost::make_shared<RsaCardOperation>(selection_, *algorithm, listsAlgorithms());
}

boost::shared_ptr<card::service::ICardCipher>
CryptographyService::getCipher(const std::string& oid) const {
    const RsaAlgorithm* algorithm = findCipherAlgorithm(oid);
    if (!performs(algorithm)) {
        return nullptr;
    }
    return boost::make_shared<RsaCardOperation>(selection_, *algorithm, listsAlgorithms());
}

// Plain RSA is taken for granted: a card without a list of its own still
// signs DigestInfos and deciphers PKCS#1 v1.5.
bool CryptographyService::performs(const RsaAlgorithm* algorithm) const {
    return algorithm != nullptr && (algorithm->oid == rsaEncryptionOid ||
                                    algorithms_->contains(listedIdentifier(algorithm->oid)));
}

bool CryptographyService::listsAlgorithms() const {
    return !algorithms_->get().empty();
}

boost::shared_ptr<card::service::ICardRandom> CryptographyService::getRandom() const {
    return boost::make_shared<CardRandom>();
}

} // namespace iso7816
} // namespace host

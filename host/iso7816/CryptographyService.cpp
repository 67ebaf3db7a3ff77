#include "host/iso7816/CryptographyService.hpp"

#include "host/iso7816/CardRandom.hpp"
#include "host/iso7816/RsaAlgorithm.hpp"
#include "host/iso7816/RsaCardOperation.hpp"

#include <boost/make_shared.hpp>

namespace host {
namespace iso7816 {

const std::string rsaEncryptionOid = "1.2.840.113549.1.1.1";

CryptographyService::CryptographyService(boost::shared_ptr<FileSelection> selection)
    : selection_(std::move(selection)) {}

boost::shared_ptr<card::service::ICardSignature>
CryptographyService::getSignature(const std::string& oid) const {
    if (oid != rsaEncryptionOid) {
        return nullptr;
    }
    return boost::make_shared<RsaCardOperation>(selection_);
}

boost::shared_ptr<card::service::ICardCipher>
CryptographyService::getCipher(const std::string& oid) const {
    if (oid != rsaEncryptionOid) {
        return nullptr;
    }
    return boost::make_shared<RsaCardOperation>(selection_);
}

boost::shared_ptr<card::service::ICardRandom> CryptographyService::getRandom() const {
    return boost::make_shared<CardRandom>();
}

} // namespace iso7816
} // namespace host

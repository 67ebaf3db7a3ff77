// The application's algorithm factories: which engine serves an algorithm,
// from the card's algorithm list and the algorithm table.
#include "app/pkcs15/P15Application.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/impl/RandomGenerator.hpp"
#include "app/pkcs15/impl/RsaCipherEngine.hpp"
#include "app/pkcs15/impl/RsaKeyPairGenerator.hpp"
#include "app/pkcs15/impl/RsaSignatureEngine.hpp"
#include "card/IApplet.hpp"
#include "card/ICard.hpp"
#include "card/service/ICryptographyService.hpp"
#include "mw/Log.hpp"

#include <algorithm>
#include <boost/current_function.hpp>
#include <boost/make_shared.hpp>

namespace app {
namespace pkcs15 {

namespace {

const std::string rsaEncryption = "1.2.840.113549.1.1.1";
constexpr unsigned int signatureAlgorithms = 1;

bool contains(const std::vector<std::string>& list, const std::string& oid) {
    return std::find(list.begin(), list.end(), oid) != list.end();
}

} // namespace

std::vector<std::string> P15Application::cardAlgorithms() const {
    return appletMode_ ? applet_->getAlgorithms() : card_->getAlgorithms();
}

boost::shared_ptr<crypto::IMessageDigest>
P15Application::getMessageDigest(const std::string&) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    APP_THROW(OperationNotSupportedException, "getMessageDigest not supported");
}

// The card performs what it lists, and for the rest of the table the engine
// hashes and the card signs the DigestInfo with raw RSA; a message that a
// card which hashes cannot take goes the second way too.
boost::shared_ptr<crypto::ISignature> P15Application::getSignature(const std::string& oid) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const std::vector<std::string> algorithms = cardAlgorithms();
    const AlgorithmRows& rows = getAlgorithmRows(signatureAlgorithms);
    const auto row = std::find_if(rows.begin(), rows.end(),
                                  [&](const AlgorithmRow& r) { return r.signatureOid == oid; });
    auto rawRsa = contains(algorithms, rsaEncryption)
                      ? cryptographyService_->getSignature(rsaEncryption)
                      : nullptr;
    if (contains(algorithms, oid)) {
        auto cardSignature = cryptographyService_->getSignature(oid);
        if (!cardSignature) {
            APP_THROW(ApplicationException,
                      "failed to get signature algorithm implementation for oid");
        }
        if (row == rows.end() || row->hashOid.empty() || !rawRsa) {
            return boost::make_shared<impl::RsaSignatureEngine>(std::move(cardSignature));
        }
        return boost::make_shared<impl::RsaSignatureEngine>(std::move(cardSignature), *row,
                                                            std::move(rawRsa));
    }
    if (row == rows.end()) {
        APP_THROW(ApplicationException, "unsupported signature algorithm");
    }
    if (!rawRsa) {
        APP_THROW(ApplicationException,
                  "failed to get signature algorithm implementation for rsaEncryption");
    }
    return boost::make_shared<impl::RsaSignatureEngine>(std::move(rawRsa), *row);
}

// Deciphering needs the card: there is no software fallback.
boost::shared_ptr<crypto::ICipher> P15Application::getCipher(const std::string& oid) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    auto cardCipher =
        contains(cardAlgorithms(), oid) ? cryptographyService_->getCipher(oid) : nullptr;
    if (!cardCipher) {
        APP_THROW(ApplicationException, "failed to get cipher algorithm implementation for oid");
    }
    return boost::make_shared<impl::RsaCipherEngine>(std::move(cardCipher));
}

boost::shared_ptr<crypto::IRandom> P15Application::getRandom() const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    auto cardRandom = cryptographyService_->getRandom();
    if (!cardRandom) {
        APP_THROW(OperationNotSupportedException, "the card offers no random generator");
    }
    return boost::make_shared<impl::RandomGenerator>(std::move(cardRandom));
}

boost::shared_ptr<crypto::IKeyPairGenerator>
P15Application::getKeyPairGenerator(const std::string& oid) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (oid != rsaEncryption) {
        APP_THROW(ApplicationException, "KeyPairGenerator for given oid not supported");
    }
    return boost::make_shared<impl::RsaKeyPairGenerator>(shared_from_this());
}

} // namespace pkcs15
} // namespace app

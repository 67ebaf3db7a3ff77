// The application's algorithm factories: which engine serves an algorithm,
// from the card's algorithm list and the algorithm table. A card without a
// list of its own is taken to sign DigestInfos and decipher with
// rsaEncryption, under the algorithm references its PKCS#15 application
// states (see detail/AlgorithmReference.hpp).
#include "app/pkcs15/P15Application.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/IKey.hpp"
#include "app/pkcs15/detail/AlgorithmReference.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/TokenInfo.hpp"
#include "app/pkcs15/impl/RandomGenerator.hpp"
#include "app/pkcs15/impl/RsaCipherEngine.hpp"
#include "app/pkcs15/impl/RsaKeyPairGenerator.hpp"
#include "app/pkcs15/impl/RsaSignatureEngine.hpp"
#include "app/pkcs15/object/P15ApplicationInfo.hpp"
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

// An algorithm with a hash parameter, "<algorithm>/<hash>" (RSA-PSS,
// RSAES-OAEP), is the card's when the card lists the algorithm; whether the
// card takes that hash is the card layer's to say.
bool cardPerforms(const std::vector<std::string>& list, const std::string& oid) {
    return contains(list, oid) || contains(list, oid.substr(0, oid.find('/')));
}

} // namespace

std::vector<std::string> P15Application::listedAlgorithms() const {
    return appletMode_ ? applet_->getAlgorithms() : card_->getAlgorithms();
}

std::vector<std::string> P15Application::cardAlgorithms() const {
    const std::vector<std::string> listed = listedAlgorithms();
    return listed.empty() ? std::vector<std::string>{rsaEncryption} : listed;
}

impl::AlgorithmReferenceLookup P15Application::algorithmReferences(bool decipher) const {
    if (!listedAlgorithms().empty()) {
        return {};
    }
    const auto operation = decipher ? detail::KeyOperation::decipher : detail::KeyOperation::sign;
    const boost::shared_ptr<const P15Application> self = shared_from_this();
    return [self, operation](const card::IChannel& channel, const app::object::IKey& key) {
        const auto& info = self->getODF()->getTokenInfo()->applicationInfo(channel);
        // A card without a TokenInfo states nothing, whatever a new one would.
        const auto stated =
            info->getEncoding().empty() ? boost::none : info->encodeTokenInfo().supportedAlgorithms;
        return detail::cardAlgorithmReference(stated.value_or(std::vector<oss::AlgorithmInfo>()),
                                              key.getAlgorithmReferences(), operation);
    };
}

boost::shared_ptr<crypto::IMessageDigest>
P15Application::getMessageDigest(const std::string&) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    APP_THROW(OperationNotSupportedException, "getMessageDigest not supported");
}

// The card performs what it lists (RSA-PSS of a hash the caller made among
// them), and for the rest of the table the engine
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
    if (cardPerforms(algorithms, oid)) {
        auto cardSignature = cryptographyService_->getSignature(oid);
        if (!cardSignature) {
            APP_THROW(ApplicationException,
                      "failed to get signature algorithm implementation for oid");
        }
        if (row == rows.end() || row->hashOid.empty() || !rawRsa) {
            return boost::make_shared<impl::RsaSignatureEngine>(std::move(cardSignature),
                                                                algorithmReferences(false));
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
    return boost::make_shared<impl::RsaSignatureEngine>(std::move(rawRsa), *row,
                                                        algorithmReferences(false));
}

// Deciphering needs the card: there is no software fallback.
boost::shared_ptr<crypto::ICipher> P15Application::getCipher(const std::string& oid) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    auto cardCipher =
        cardPerforms(cardAlgorithms(), oid) ? cryptographyService_->getCipher(oid) : nullptr;
    if (!cardCipher) {
        APP_THROW(ApplicationException, "failed to get cipher algorithm implementation for oid");
    }
    return boost::make_shared<impl::RsaCipherEngine>(std::move(cardCipher),
                                                     algorithmReferences(true));
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

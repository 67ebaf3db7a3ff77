#ifndef HOST_ISO7816_RSACARDOPERATION_HPP
#define HOST_ISO7816_RSACARDOPERATION_HPP

#include "card/service/ICryptographyService.hpp"
#include "host/iso7816/FileSelection.hpp"
#include "host/iso7816/RsaAlgorithm.hpp"

#include <boost/shared_ptr.hpp>

namespace host {
namespace iso7816 {

/// RSA PKCS#1 v1.5 with a private key on the card: MANAGE SECURITY
/// ENVIRONMENT binds the key and the algorithm, PSO COMPUTE DIGITAL
/// SIGNATURE or PSO DECIPHER uses it. The card does the padding in both
/// directions, and the hashing for a hash-and-sign algorithm.
/// The algorithm reference (tag 80) is the key's own when its KeyRef carries
/// one, else the profile's when `profileReferences` (the card listed its
/// algorithms), else left out: the card then uses its default.
class RsaCardOperation : public card::service::ICardSignature, public card::service::ICardCipher {
public:
    RsaCardOperation(boost::shared_ptr<FileSelection> selection, RsaAlgorithm algorithm,
                     bool profileReferences);

    void init(const card::IChannel& channel, const card::service::KeyRef& key, int mode) override;
    const std::string& getAlgorithm() const override;
    mw::ByteBuffer sign(const card::IChannel& channel, const mw::ByteBuffer& data) override;
    mw::ByteBuffer decipher(const card::IChannel& channel, const mw::ByteBuffer& data) override;

private:
    boost::shared_ptr<FileSelection> selection_;
    RsaAlgorithm algorithm_;
    bool profileReferences_;
};

} // namespace iso7816
} // namespace host

#endif

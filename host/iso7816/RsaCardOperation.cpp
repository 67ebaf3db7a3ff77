#include "host/iso7816/RsaCardOperation.hpp"

#include "card/IChannel.hpp"
#include "host/iso7816/IsoCommand.hpp"
#include "host/iso7816/RsaAlgorithm.hpp"
#include "mw/Exception.hpp"

namespace host {
namespace iso7816 {

namespace {

constexpr unsigned char signatureTemplate = 0xB6;
constexpr unsigned char decipherTemplate = 0xB8;
constexpr unsigned char keyReferenceTag = 0x84;
constexpr unsigned char algorithmTag = 0x80;
constexpr unsigned char paddingIndicator = 0x00;
constexpr std::size_t fullAnswer = 256;

} // namespace

RsaCardOperation::RsaCardOperation(boost::shared_ptr<FileSelection> selection,
                                   RsaAlgorithm algorithm, bool profileReferences)
    : selection_(std::move(selection))
    , algorithm_(std::move(algorithm))
    , profileReferences_(profileReferences) {}

void RsaCardOperation::init(const card::IChannel& channel, const card::service::KeyRef& key,
                            int mode) {
    if (mode != Sign && mode != Decipher) {
        MW_THROW(mw::IllegalArgumentException, "mode is neither sign nor decipher");
    }
    mw::ByteBuffer environment{keyReferenceTag, 0x01, key.keyReference};
    std::optional<unsigned char> reference = key.algorithmReference;
    if (!reference && profileReferences_) {
        reference = algorithm_.reference;
    }
    if (reference) {
        environment.append({algorithmTag, 0x01, *reference});
    }
    const auto held = card::Transaction::join(channel);
    selection_->enterApplication(held);
    IsoCommand("Manage Security Environment", 0x22, 0x41,
               mode == Sign ? signatureTemplate : decipherTemplate)
        .withData(std::move(environment))
        .execute(held);
}

const std::string& RsaCardOperation::getAlgorithm() const {
    return algorithm_.oid;
}

mw::ByteBuffer RsaCardOperation::sign(const card::IChannel& channel, const mw::ByteBuffer& data) {
    const auto held = card::Transaction::join(channel);
    return IsoCommand("Compute Digital Signature", 0x2A, 0x9E, 0x9A)
        .withData(data)
        .expecting(fullAnswer)
        .execute(held);
}

mw::ByteBuffer RsaCardOperation::decipher(const card::IChannel& channel,
                                          const mw::ByteBuffer& data) {
    mw::ByteBuffer cryptogram{paddingIndicator};
    cryptogram.append(data);
    const auto held = card::Transaction::join(channel);
    return IsoCommand("Decipher", 0x2A, 0x80, 0x86)
        .withData(std::move(cryptogram))
        .extendedLength(selection_->extendedLength(held.transport()))
        .expecting(fullAnswer)
        .execute(held);
}

} // namespace iso7816
} // namespace host

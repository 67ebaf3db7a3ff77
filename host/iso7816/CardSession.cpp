#include "host/iso7816/CardSession.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "card/CardException.hpp"
#include "card/IChannel.hpp"
#include "host/iso7816/AsymmetricKeyManagementService.hpp"
#include "host/iso7816/CryptographyService.hpp"
#include "host/iso7816/FileAccessService.hpp"
#include "host/iso7816/FileSystemService.hpp"
#include "host/iso7816/IsoCommand.hpp"
#include "host/iso7816/PinManagementService.hpp"
#include "host/iso7816/Tlv.hpp"
#include "mw/Exception.hpp"

#include <boost/make_shared.hpp>

namespace host {
namespace iso7816 {

namespace {

const char* const getDataName = "Get Data";
constexpr unsigned int algorithmListTag = 0xA0;
constexpr unsigned int oidTag = 0x06;
constexpr unsigned short referencedDataNotFound = 0x6A88;
constexpr unsigned short insNotSupported = 0x6D00;

[[noreturn]] void throwMalformedOid() {
    CARD_THROW(card::InvalidDataException()
               << card::ErrorText("malformed object identifier from the card"));
}

// The dotted form of an object identifier the card sent (content octets).
std::string dottedOid(const mw::ByteBuffer& der) {
    try {
        return app::pkcs15::oss::oidToText(app::pkcs15::oss::Bytes(der.begin(), der.end()));
    } catch (const app::InvalidDataException&) {
        throwMalformedOid();
    }
}

std::vector<std::string> parseAlgorithms(const mw::ByteBuffer& answer) {
    std::vector<std::string> algorithms;
    const Tlv list = expectTlv(answer, algorithmListTag);
    for (TlvReader reader(answer, list); !reader.atEnd();) {
        const Tlv item = reader.next();
        if (item.tag == oidTag) {
            algorithms.push_back(dottedOid(tlvValue(answer, item)));
        }
    }
    return algorithms;
}

} // namespace

CardSession::CardSession(boost::shared_ptr<const card::IChannel> channel)
    : channel_(std::move(channel))
    , selection_(boost::make_shared<FileSelection>()) {
    if (!channel_) {
        MW_THROW(mw::NullPointerException, "card session without a channel");
    }
    const auto fileSystem = boost::make_shared<FileSystemService>(selection_);
    services_["PinManagementService"] = boost::make_shared<PinManagementService>(selection_);
    services_["FileAccessService"] = boost::make_shared<FileAccessService>(selection_);
    services_["FileSystemService"] = fileSystem;
    services_["CryptographyService"] = boost::make_shared<CryptographyService>(selection_);
    services_["AsymmetricKeyManagementService"] =
        boost::make_shared<AsymmetricKeyManagementService>(selection_, fileSystem);
}

void CardSession::selectApplication(const card::IChannel& channel,
                                    const mw::ByteBuffer& aid) const {
    card::Transaction transaction(channel);
    selection_->selectApplication(channel, aid);
}

const std::vector<std::string>& CardSession::algorithms() const {
    if (!algorithms_) {
        card::Transaction transaction(*channel_);
        const Response answer =
            IsoCommand(getDataName, 0xCA, 0x01, 0xA0).expecting(256).send(*channel_);
        if (answer.sw == 0x9000) {
            algorithms_ = parseAnswerOf(getDataName, [&] { return parseAlgorithms(answer.data); });
        } else if (answer.sw == referencedDataNotFound || answer.sw == insNotSupported) {
            algorithms_.emplace(); // a card without the list performs nothing on its own
        } else {
            throwStatus(getDataName, answer.sw);
        }
    }
    return *algorithms_;
}

bool CardSession::hasService(const std::string& name) const {
    return services_.count(name) != 0;
}

boost::shared_ptr<card::IInterface> CardSession::service(const std::string& name) const {
    const auto found = services_.find(name);
    return found == services_.end() ? nullptr : found->second;
}

} // namespace iso7816
} // namespace host

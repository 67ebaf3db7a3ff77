#include "host/iso7816/AlgorithmList.hpp"

#include "card/CardException.hpp"
#include "card/IChannel.hpp"
#include "host/iso7816/IsoCommand.hpp"
#include "host/iso7816/Tlv.hpp"
#include "mw/ObjectIdentifier.hpp"

#include <algorithm>

namespace host {
namespace iso7816 {

namespace {

const char* const getDataName = "Get Data";
constexpr unsigned int algorithmListTag = 0xA0;
constexpr unsigned int oidTag = 0x06;

[[noreturn]] void throwMalformedOid() {
    CARD_THROW(card::InvalidDataException()
               << card::ErrorText("malformed object identifier from the card"));
}

// The dotted form of an object identifier the card sent (content octets).
std::string dottedOid(const mw::ByteBuffer& der) {
    try {
        return mw::objectIdentifierText(der.data(), der.size());
    } catch (const mw::IllegalArgumentException&) {
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

AlgorithmList::AlgorithmList(boost::shared_ptr<const card::IChannel> channel)
    : channel_(std::move(channel)) {}

const std::vector<std::string>& AlgorithmList::get() const {
    if (!algorithms_) {
        const auto held = card::Transaction::join(*channel_);
        const Response answer = IsoCommand(getDataName, 0xCA, 0x01, 0xA0).expecting(256).send(held);
        if (answer.sw == 0x9000) {
            algorithms_ = parseAnswerOf(getDataName, [&] { return parseAlgorithms(answer.data); });
        } else {
            // Cards of other makes refuse the object in their own ways (6A81,
            // 6A86, 6A88, 6D00...): none lists what it performs on its own.
            algorithms_.emplace();
        }
    }
    return *algorithms_;
}

bool AlgorithmList::contains(const std::string& oid) const {
    const std::vector<std::string>& algorithms = get();
    return std::find(algorithms.begin(), algorithms.end(), oid) != algorithms.end();
}

} // namespace iso7816
} // namespace host

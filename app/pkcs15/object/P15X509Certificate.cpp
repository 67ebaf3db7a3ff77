#include "app/pkcs15/object/P15X509Certificate.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/object/CommonAttributes.hpp"
#include "app/pkcs15/oss/DerReader.hpp"
#include "app/pkcs15/oss/DerWriter.hpp"

#include <cryptopp/filters.h>

namespace app {
namespace pkcs15 {
namespace object {

namespace {

using oss::tag::contextConstructed;

constexpr std::size_t keyUsageBits = 9;
constexpr unsigned trustedUsageTag = 1;

const ValueObjectTexts certificateTexts{"certificate value size exceeds 65535 bytes",
                                        "encoded certificate size exceeds 65535 bytes",
                                        "EF(CDF) out of memory", "certificate is not on the card"};

boost::optional<mw::ByteBuffer> toBuffer(const boost::optional<oss::Bytes>& bytes) {
    return bytes ? boost::optional<mw::ByteBuffer>(mw::ByteBuffer(*bytes)) : boost::none;
}

oss::Bytes toBytes(const mw::ByteBuffer& buffer) {
    return oss::Bytes(buffer.begin(), buffer.end());
}

// The keyUsage of a trustedUsage [1] Usage, and what follows it as read.
struct TrustedUsage {
    boost::optional<oss::BitString> keyUsage;
    oss::UnknownComponents rest;
};

TrustedUsage parseTrustedUsage(const oss::Bytes& tlv) {
    oss::DerReader outer(tlv.data(), tlv.size());
    oss::DerReader inner = outer.enter(outer.expect(contextConstructed(trustedUsageTag)));
    TrustedUsage usage;
    if (inner.nextIs(oss::tag::bitString)) {
        usage.keyUsage = oss::readBitString(inner);
    }
    while (!inner.atEnd()) {
        usage.rest.push_back(inner.next().bytes());
    }
    return usage;
}

boost::optional<std::uint16_t> decodeKeyUsage(const boost::optional<oss::Bytes>& trustedUsage) {
    if (!trustedUsage) {
        return boost::none;
    }
    const TrustedUsage usage = parseTrustedUsage(*trustedUsage);
    if (!usage.keyUsage) {
        return boost::none;
    }
    const oss::BitString& bits = *usage.keyUsage;
    if (bits.bitCount > keyUsageBits) {
        APP_THROW(InvalidDataException, "Certificate::KeyUsageFlags not PKCS#15 conform");
    }
    if (bits.bitCount == 0 || bits.octets.empty()) {
        return std::uint16_t{0};
    }
    unsigned int value = static_cast<unsigned int>(bits.octets[0]) << 1;
    if (bits.bitCount == keyUsageBits && bits.octets.size() > 1) {
        value |= bits.octets[1] >> 7;
    }
    return static_cast<std::uint16_t>(value);
}

// `trustedUsage` with its keyUsage replaced by `value`; an extKeyUsage the
// card wrote stays as it was.
oss::Bytes encodeKeyUsage(std::uint16_t value, const boost::optional<oss::Bytes>& trustedUsage) {
    if (value > 0x1FF) {
        APP_THROW_DATA(InvalidDataException, "Certificate key usage flags not PKCS#15 conform.",
                       value);
    }
    oss::BitString bits;
    bits.bitCount = keyUsageBits;
    bits.octets = {static_cast<std::uint8_t>(value >> 1), static_cast<std::uint8_t>(value << 7)};
    const oss::UnknownComponents rest =
        trustedUsage ? parseTrustedUsage(*trustedUsage).rest : oss::UnknownComponents();
    std::string encoded;
    CryptoPP::StringSink sink(encoded);
    oss::writeConstructed(sink, contextConstructed(trustedUsageTag), [&](oss::Sink& content) {
        oss::writeBitString(content, bits);
        for (const oss::Bytes& component : rest) {
            oss::writeRaw(content, component);
        }
    });
    return oss::Bytes(encoded.begin(), encoded.end());
}

struct CertificateNames {
    oss::Bytes serialNumber, issuer, subject;
};

// The names of a DER X.509 certificate; false for a value that is not one.
bool namesOf(const mw::ByteBuffer& value, CertificateNames& names) {
    try {
        oss::DerReader outer(value.data(), value.size());
        oss::DerReader certificate = outer.enter(outer.expect(oss::tag::sequence));
        oss::DerReader tbs = certificate.enter(certificate.expect(oss::tag::sequence));
        if (tbs.nextIs(contextConstructed(0))) {
            tbs.next(); // version
        }
        names.serialNumber = tbs.expect(oss::tag::integer).contentBytes();
        tbs.expect(oss::tag::sequence); // signature algorithm
        names.issuer = tbs.expect(oss::tag::sequence).bytes();
        tbs.expect(oss::tag::sequence); // validity
        names.subject = tbs.expect(oss::tag::sequence).bytes();
        return true;
    } catch (const InvalidDataException&) {
        return false;
    }
}

void setUnlessSet(app::object::OptionalValue<mw::ByteBuffer>& holder, const oss::Bytes& bytes) {
    if (!holder.isTouched()) {
        holder.set(mw::ByteBuffer(bytes));
    }
}

template <class Holder>
void storeName(const Holder& holder, Store which, boost::optional<oss::Bytes>& field) {
    if (isStored(holder, which)) {
        field = toBytes(*holder.get());
    }
}

} // namespace

P15X509Certificate::P15X509Certificate(boost::weak_ptr<const fs::CDF> cdf)
    : P15ValueObject(std::move(cdf), certificateTexts) {}

P15X509Certificate::P15X509Certificate(boost::weak_ptr<const fs::CDF> cdf,
                                       const oss::CertificateType& entry, mw::ByteBuffer encoding)
    : P15X509Certificate(std::move(cdf)) {
    ValueLocation location = decodeCertificateType(entry);
    keepEntry(entry, std::move(encoding), std::move(location));
}

void P15X509Certificate::setValue(const mw::ByteBuffer& value) {
    AbstractX509Certificate::setValue(value);
    CertificateNames names;
    if (namesOf(value, names)) {
        setUnlessSet(subject_, names.subject);
        setUnlessSet(issuer_, names.issuer);
        setUnlessSet(serialNumber_, names.serialNumber);
    }
}

ValueLocation P15X509Certificate::decodeCertificateType(const oss::CertificateType& entry) {
    if (!isListed(entry)) {
        APP_THROW(InvalidDataException, "PKCS#15 Certificate of unknown type found");
    }
    const oss::X509CertificateObject& object = entry.x509CertificateValue;
    loadCommonObjectAttributes(object.commonObjectAttributes, *this, valueObjectFlags);
    certificateId_.load(mw::ByteBuffer(object.classAttributes.iD));
    authority_.load(object.classAttributes.authority.value_or(false));
    keyUsage_.load(decodeKeyUsage(object.classAttributes.trustedUsage));
    subject_.load(toBuffer(object.typeAttributes.subject));
    issuer_.load(toBuffer(object.typeAttributes.issuer));
    serialNumber_.load(toBuffer(object.typeAttributes.serialNumber));
    return decodeValueLocation(object.typeAttributes.value);
}

oss::CertificateType
P15X509Certificate::encodeCertificateType(const ValueLocation& location) const {
    oss::CertificateType entry = this->entry() ? *this->entry() : oss::CertificateType();
    const Store which = this->entry() ? Store::Touched : Store::All;
    oss::X509CertificateObject& object = entry.x509CertificateValue;
    storeObjectAttributes(*this, which, object.commonObjectAttributes,
                          "access control rules of a certificate on the card cannot be changed",
                          valueObjectFlags);
    oss::CommonCertificateAttributes& common = object.classAttributes;
    if (which == Store::All || certificateId_.isTouched()) {
        common.iD = toBytes(getCertificateId());
    }
    if (common.authority.value_or(false) != getAuthority()) {
        common.authority = getAuthority() ? boost::optional<bool>(true) : boost::none;
    }
    if (getKeyUsage() && decodeKeyUsage(common.trustedUsage) != getKeyUsage()) {
        common.trustedUsage = encodeKeyUsage(*getKeyUsage(), common.trustedUsage);
    }
    storeName(subject_, which, object.typeAttributes.subject);
    storeName(issuer_, which, object.typeAttributes.issuer);
    storeName(serialNumber_, which, object.typeAttributes.serialNumber);
    storeValueLocation(location, object.typeAttributes.value);
    return entry;
}

} // namespace object
} // namespace pkcs15
} // namespace app

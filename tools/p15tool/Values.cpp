#include "tools/p15tool/Values.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/IX509Certificate.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/CertificateText.hpp"
#include "tools/p15tool/FlagNames.hpp"
#include "tools/p15tool/KeyFile.hpp"
#include "tools/p15tool/Text.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <cryptopp/asn.h>
#include <cryptopp/rsa.h>

namespace p15tool {

namespace {

const Names tokenFlags = {"readonly", "loginRequired", "prnGeneration", "eidCompliant"};
// Certificates have the key usages up to derive: nine bits.
constexpr unsigned certificateUsageBits = 9;

// Skips one TLV of `in`.
void skipElement(CryptoPP::BufferedTransformation& in) {
    CryptoPP::byte tag = 0;
    std::size_t length = 0;
    if (!in.Get(tag) || !CryptoPP::BERLengthDecode(in, length) || in.Skip(length) != length) {
        CryptoPP::BERDecodeError();
    }
}

void putIdentifierText(Json& out, const char* key, const mw::ByteBuffer& id) {
    out[key] = mw::toHex(id);
    if (isPrintableAscii(Bytes(id.begin(), id.end()))) {
        out[std::string(key) + "Text"] = std::string(id.begin(), id.end());
    }
}

template <class Value> void putOptional(Json& out, const char* key, const Value& value) {
    if (value) {
        out[key] = *value;
    }
}

} // namespace

mw::ByteBuffer certificateDer(const mw::ByteBuffer& content, const std::string& path) {
    mw::ByteBuffer der = derFromPem(content, "CERTIFICATE", path);
    try {
        CryptoPP::ArraySource source(der.data(), der.size(), true);
        CryptoPP::BERSequenceDecoder certificate(source);
        CryptoPP::BERSequenceDecoder toBeSigned(certificate);
        toBeSigned.SkipAll();
        toBeSigned.MessageEnd();
        certificate.SkipAll();
        certificate.MessageEnd();
        if (source.MaxRetrievable() == 0) {
            return der;
        }
    } catch (const CryptoPP::Exception&) {
    }
    throw ToolError(ExitCode::failure, path + " is not an X.509 certificate in DER or PEM");
}

mw::ByteBuffer certificateModulus(const mw::ByteBuffer& certificate, const std::string& path) {
    try {
        CryptoPP::ArraySource source(certificate.data(), certificate.size(), true);
        CryptoPP::BERSequenceDecoder outer(source);
        CryptoPP::BERSequenceDecoder toBeSigned(outer);
        CryptoPP::byte first = 0;
        if (toBeSigned.Peek(first) && first == 0xA0) {
            skipElement(toBeSigned); // version
        }
        // serialNumber, signature, issuer, validity, subject
        for (int element = 0; element < 5; ++element) {
            skipElement(toBeSigned);
        }
        CryptoPP::RSA::PublicKey key;
        key.BERDecode(toBeSigned);
        mw::ByteBuffer modulus(key.GetModulus().MinEncodedSize());
        key.GetModulus().Encode(modulus.data(), modulus.size());
        return modulus;
    } catch (const CryptoPP::Exception&) {
        throw ToolError(ExitCode::usage, "the certificate in " + path +
                                             " has no RSA key to name it by; give its --id");
    }
}

namespace {

// The subject, issuer and serial number the directory entry states, for a
// certificate whose value is not read; the certificate's own replace them.
void putEntryNames(Json& out, const app::object::IX509Certificate& certificate) {
    for (const auto& [key, value] : {std::pair{"subject", &certificate.getSubject()},
                                     std::pair{"issuer", &certificate.getIssuer()}}) {
        if (*value) {
            try {
                out[key] = certificates::nameText(**value);
            } catch (const std::runtime_error&) {
                out[key] = mw::toHex(**value);
            }
        }
    }
    if (certificate.getSerialNumber()) {
        out["serialNumber"] = mw::toHex(*certificate.getSerialNumber());
    }
}

} // namespace

Json certificateJson(const app::object::ICertificate& certificate, const PinList& pins,
                     bool withDer) {
    Json out = cardObjectJson(certificate, pins);
    putIdentifierText(out, "id", certificate.getCertificateId());
    out["authority"] = certificate.getAuthority();
    if (certificate.getKeyUsage()) {
        out["keyUsage"] = flagNames(*certificate.getKeyUsage(), certificateUsageBits, keyUsages);
    }
    if (const auto* x509 = dynamic_cast<const app::object::IX509Certificate*>(&certificate)) {
        putEntryNames(out, *x509);
    }
    if (!certificate.getValue().empty()) {
        try {
            out.update(certificates::describe(certificate.getValue(), withDer));
        } catch (const std::runtime_error& error) {
            out["problem"] = error.what();
        }
    }
    return out;
}

Json dataObjectJson(const app::object::IDataObject& object, const PinList& pins) {
    Json out = cardObjectJson(object, pins);
    if (object.getApplicationName()) {
        out["applicationName"] = displayText(*object.getApplicationName());
    }
    if (const auto& oid = object.getApplicationOid()) {
        // Dotted, or the card's octets in hex when they are no identifier.
        try {
            out["applicationOID"] = app::pkcs15::oss::oidToText({oid->begin(), oid->end()});
        } catch (const app::InvalidDataException&) {
            out["applicationOID"] = mw::toHex(*oid);
        }
    }
    return out;
}

Json tokenInfoJson(const app::object::IApplicationInfo& info) {
    Json out;
    out["version"] = info.getVersion();
    if (info.getSerialNumber()) {
        putIdentifierText(out, "serialNumber", *info.getSerialNumber());
    }
    if (info.getManufacturerId()) {
        out["manufacturerID"] = displayText(*info.getManufacturerId());
    }
    if (info.getLabel()) {
        out["label"] = displayText(*info.getLabel());
    }
    out["tokenFlags"] = flagNames(info.getTokenFlags(), 4, tokenFlags);
    putOptional(out, "supportedAlgorithms", info.getSupportedAlgorithms());
    putOptional(out, "issuerId", info.getIssuerId());
    putOptional(out, "holderId", info.getHolderId());
    putOptional(out, "lastUpdate", info.getLastUpdate());
    putOptional(out, "preferredLanguage", info.getPreferredLanguage());
    return out;
}

} // namespace p15tool

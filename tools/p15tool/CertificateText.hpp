#ifndef TOOLS_P15TOOL_CERTIFICATETEXT_HPP
#define TOOLS_P15TOOL_CERTIFICATETEXT_HPP

#include "mw/ByteBuffer.hpp"
#include "tools/p15tool/Output.hpp"

#include <string>

// X.509 certificates and names as a person reads them. Certificates come from
// the card and are decoded as hostile input: anything malformed is a
// std::runtime_error, never a partial answer.
namespace p15tool::certificates {

// The DER Name `der` as RFC 4514 text, last RDN first ("CN=Alice,O=Example,
// C=DE"). Attribute types are named as `enrol --subject` takes them, others
// dotted with the value as #hex of its DER. Special characters are escaped
// with a backslash, control characters and undecodable bytes as \XX, so the
// text is safe to print.
std::string nameText(const mw::ByteBuffer& der);

// What `list` shows of a certificate: "subject", "issuer" (text),
// "notBefore", "notAfter" (ISO 8601 UTC), "sha256Fingerprint" (AB:CD:…)
// and, with `withDer`, "subjectDer" and "issuerDer" in hex.
Json describe(const mw::ByteBuffer& certificate, bool withDer);

} // namespace p15tool::certificates

#endif

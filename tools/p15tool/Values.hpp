#ifndef TOOLS_P15TOOL_VALUES_HPP
#define TOOLS_P15TOOL_VALUES_HPP

#include "app/object/IApplicationInfo.hpp"
#include "app/object/ICertificate.hpp"
#include "app/object/IDataObject.hpp"
#include "mw/ByteBuffer.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/Pins.hpp"

#include <string>

namespace p15tool {

// The DER of the X.509 certificate in `content` (DER, or PEM
// "CERTIFICATE"); anything that is not one is a ToolError naming `path`.
mw::ByteBuffer certificateDer(const mw::ByteBuffer& content, const std::string& path);

// The RSA modulus of the certificate's subject public key; a key of another
// algorithm is a ToolError that asks for --id.
mw::ByteBuffer certificateModulus(const mw::ByteBuffer& certificate, const std::string& path);

// Objects as `list` shows them: what every object has, then the
// certificate's identifier, authority, key usage, subject, issuer and serial
// number (with validity and fingerprint once its value is read; `withDer`
// adds the names' DER), or the data object's application.
Json certificateJson(const app::object::ICertificate& certificate, const PinList& pins,
                     bool withDer);
Json dataObjectJson(const app::object::IDataObject& object, const PinList& pins);

// The token information as `info` shows it.
Json tokenInfoJson(const app::object::IApplicationInfo& info);

} // namespace p15tool

#endif

#ifndef TOOLS_P15TOOL_DOCUMENTS_HPP
#define TOOLS_P15TOOL_DOCUMENTS_HPP

#include "tools/p15tool/Output.hpp"

namespace p15tool {

class Session;

// What `info` prints: the card, its application and the algorithms.
Json cardInfoJson(const Session& session);

// What `list` prints: the PINs, keys, certificates and data objects. With
// `publicValues` the public keys carry their modulus and exponent, read
// from the card; certificates always carry their names, validity and
// fingerprint, and with `withDer` the names' DER as well.
Json objectsJson(const Session& session, bool publicValues, bool withDer);

} // namespace p15tool

#endif

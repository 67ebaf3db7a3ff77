#ifndef HOST_ISO7816_SECURITYATTRIBUTES_HPP
#define HOST_ISO7816_SECURITYATTRIBUTES_HPP

#include "card/service/FileCreationParams.hpp"
#include "mw/ByteBuffer.hpp"

namespace host {
namespace iso7816 {

// Template A1 of CREATE FILE: one entry per access mode (A0 read, A1
// update, A2 delete, A3 use), each holding one condition expression. Update
// rights include deletion. Several conditions for one mode are
// alternatives (OR); a mode without a condition gets no entry, which the
// card reads as "never".
mw::ByteBuffer encodeSecurityAttributes(const card::service::AccessConditions& conditions);

// One condition tree as a card condition expression: 90 00 always, 97 00
// never, 88 01 rr PIN verified, AF AND, AE OR, A7 NOT.
mw::ByteBuffer encodeCondition(const card::service::ISecurityCondition& condition);

} // namespace iso7816
} // namespace host

#endif

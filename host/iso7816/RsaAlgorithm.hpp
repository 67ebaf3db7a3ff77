#ifndef HOST_ISO7816_RSAALGORITHM_HPP
#define HOST_ISO7816_RSAALGORITHM_HPP

#include <string>

namespace host {
namespace iso7816 {

// rsaEncryption: the one algorithm the card performs (PKCS#1 v1.5 padding,
// no hashing).
extern const std::string rsaEncryptionOid;

} // namespace iso7816
} // namespace host

#endif

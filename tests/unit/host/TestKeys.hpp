#ifndef TESTS_UNIT_HOST_TESTKEYS_HPP
#define TESTS_UNIT_HOST_TESTKEYS_HPP

#include "card/crypto/spec/KeySpec.hpp"
#include "card/service/FileCreationParams.hpp"

#include <cryptopp/integer.h>

namespace hosttest {

card::service::SecurityConditionPtr always();
card::service::SecurityConditionPtr pinVerified(unsigned char reference);
card::service::AccessConditions grant(unsigned short modes,
                                      card::service::SecurityConditionPtr condition);

card::service::KeyRef keyRef(unsigned char kid, unsigned short bits, unsigned char filePrefix);

CryptoPP::Integer toInteger(const mw::ByteBuffer& bytes);
// `message` enciphered with PKCS#1 v1.5 (block type 2) under the public key.
mw::ByteBuffer encipher(const card::crypto::spec::RsaPublicKeySpec& key,
                        const mw::ByteBuffer& message);

} // namespace hosttest

#endif

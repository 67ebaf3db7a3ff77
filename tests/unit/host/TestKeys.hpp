#ifndef TESTS_UNIT_HOST_TESTKEYS_HPP
#define TESTS_UNIT_HOST_TESTKEYS_HPP

// What the card layer's tests build and check besides CardFixture's card: access conditions, key
// references, a cryptogram made in software, the details of card exceptions.

#include "card/CardException.hpp"
#include "card/crypto/spec/KeySpec.hpp"
#include "card/service/FileCreationParams.hpp"

#include <boost/exception/get_error_info.hpp>
#include <string>

namespace hosttest {

card::service::SecurityConditionPtr always();
card::service::SecurityConditionPtr pinVerified(unsigned char reference);
card::service::AccessConditions grant(unsigned short modes,
                                      card::service::SecurityConditionPtr condition);

card::service::KeyRef keyRef(unsigned char kid, unsigned short bits, unsigned char filePrefix);

// `message` enciphered with PKCS#1 v1.5 (block type 2) under the public key.
mw::ByteBuffer encipher(const card::crypto::spec::RsaPublicKeySpec& key,
                        const mw::ByteBuffer& message);

// What the card exception that `work` throws carries as `Info`: "(none)" when it carries none,
// "" when `work` throws none.
template <class Info, class Work> std::string errorInfo(const Work& work) {
    try {
        work();
    } catch (const card::CardException& e) {
        const auto* value = boost::get_error_info<Info>(e);
        return value ? std::string(*value) : "(none)";
    }
    return "";
}

} // namespace hosttest

#endif

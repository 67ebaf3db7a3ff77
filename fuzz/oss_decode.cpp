// Feeds arbitrary bytes to every decoder of the codec. What decodes must
// re-encode unchanged (components not understood included), and the
// re-encoding must decode to an equal value; a decoder may only fail with
// app::InvalidDataException.
#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <boost/exception/get_error_info.hpp>

#include <cstdlib>
#include <string>

namespace oss = app::pkcs15::oss;

namespace {

template <class T> void roundTrip(const T& value) {
    oss::Bytes encoded;
    try {
        encoded = oss::encode(value);
    } catch (const app::InvalidDataException& e) {
        // A liberal input may re-encode to more than an entry may hold; any
        // other refusal of a value as it was read is a fault.
        const char* const* text = boost::get_error_info<app::ErrorText>(e);
        if (text == nullptr || std::string(*text) != oss::kTextTooLong) {
            std::abort();
        }
        return;
    }
    T again;
    if (oss::decode(encoded.data(), encoded.size(), again) != encoded.size() || !(again == value)) {
        std::abort();
    }
}

// Walks the input as a directory file of T, like the directory files do.
template <class T> void walk(const std::uint8_t* data, std::size_t size) {
    std::size_t position = 0;
    try {
        while (position < size && data[position] != 0x00 && data[position] != 0xFF) {
            T value;
            const std::size_t used = oss::decode(data + position, size - position, value);
            if (used == 0 || used > size - position) {
                std::abort();
            }
            roundTrip(value);
            position += used;
        }
    } catch (const app::InvalidDataException&) {
    }
}

template <class... T> void walkAll(const std::uint8_t* data, std::size_t size) {
    (walk<T>(data, size), ...);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    walkAll<oss::PKCS15Objects, oss::PrivateKeyType, oss::PublicKeyType, oss::CertificateType,
            oss::DataType, oss::AuthenticationType, oss::TokenInfo, oss::DIRRecord,
            oss::PathOrObjects, oss::Path, oss::ObjectValue, oss::SecurityCondition,
            oss::AccessControlRule, oss::CommonObjectAttributes, oss::CommonKeyAttributes,
            oss::CommonPrivateKeyAttributes, oss::CommonPublicKeyAttributes,
            oss::CommonCertificateAttributes, oss::CommonDataObjectAttributes,
            oss::CommonAuthenticationObjectAttributes, oss::PrivateRSAKeyAttributes,
            oss::PublicRSAKeyAttributes, oss::X509CertificateAttributes, oss::PinAttributes>(data,
                                                                                             size);
    return 0;
}

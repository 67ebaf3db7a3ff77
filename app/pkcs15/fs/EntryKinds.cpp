// The kinds of directory-file entries in words, for the notes on entries the
// lists leave out.
#include "app/pkcs15/fs/DirectoryFile.hpp"

#include <boost/exception/get_error_info.hpp>

#include <iterator>

namespace app {
namespace pkcs15 {
namespace fs {

namespace {

// `names` in the order of the CHOICE's alternatives, numbered from 1.
template <std::size_t N> const char* nameOf(int choice, const char* const (&names)[N]) {
    return choice >= 1 && static_cast<std::size_t>(choice) <= N ? names[choice - 1] : names[N - 1];
}

} // namespace

const char* entryKind(const oss::PrivateKeyType& value) {
    static const char* const names[] = {"RSA private key", "EC private key",
                                        "DH private key",  "DSA private key",
                                        "KEA private key", "private key of an unknown kind"};
    return nameOf(value.choice, names);
}

const char* entryKind(const oss::PublicKeyType& value) {
    static const char* const names[] = {"RSA public key", "EC public key",
                                        "DH public key",  "DSA public key",
                                        "KEA public key", "public key of an unknown kind"};
    return nameOf(value.choice, names);
}

const char* entryKind(const oss::CertificateType& value) {
    static const char* const names[] = {"X.509 certificate",
                                        "X.509 attribute certificate",
                                        "SPKI certificate",
                                        "PGP certificate",
                                        "WTLS certificate",
                                        "X9.68 certificate",
                                        "card-verifiable certificate",
                                        "certificate of an unknown kind"};
    return nameOf(value.choice, names);
}

const char* entryKind(const oss::DataType& value) {
    static const char* const names[] = {"opaque data object", "external data object",
                                        "OID data object", "data object of an unknown kind"};
    return nameOf(value.choice, names);
}

const char* entryKind(const oss::AuthenticationType& value) {
    static const char* const names[] = {"PIN", "biometric template", "authentication key",
                                        "external authentication object",
                                        "authentication object of an unknown kind"};
    return nameOf(value.choice, names);
}

const char* entryKind(const oss::TokenInfo&) {
    return "token information";
}

std::string failureText(const ApplicationException& error) {
    const char* const* text = boost::get_error_info<ErrorText>(error);
    return text ? *text : error.what();
}

} // namespace fs
} // namespace pkcs15
} // namespace app

#include "tools/p15tool/Schemes.hpp"

#include "app/ApplicationException.hpp"
#include "app/IApplication.hpp"
#include "app/crypto/ICipher.hpp"
#include "app/crypto/ISignature.hpp"
#include "tools/p15tool/Digest.hpp"
#include "tools/p15tool/ToolError.hpp"

namespace p15tool {

const Scheme rsaPss{
    "RSA-PSS", "1.2.840.113549.1.1.10", "--pss", true, {"sha256", "sha384", "sha512"}};
const Scheme rsaOaep{"RSAES-OAEP", "1.2.840.113549.1.1.7", "--oaep", false, {"sha1", "sha256"}};

std::string algorithmOf(const Scheme& scheme, const std::string& hash) {
    return std::string(scheme.oid) + "/" + hashOid(hash);
}

bool performs(const app::IApplication& application, const Scheme& scheme, const std::string& hash) {
    const std::string algorithm = algorithmOf(scheme, hash);
    try {
        if (scheme.signs) {
            application.getSignature(algorithm);
        } else {
            application.getCipher(algorithm);
        }
        return true;
    } catch (const app::ApplicationException&) {
        return false;
    }
}

void requirePerformed(const app::IApplication& application, const Scheme& scheme,
                      const std::string& hash) {
    if (!performs(application, scheme, hash)) {
        throw ToolError(ExitCode::card, "the card does not perform " + std::string(scheme.name) +
                                            " with " + hash + " (see p15tool info); without " +
                                            scheme.option + " the command uses PKCS#1 v1.5");
    }
}

} // namespace p15tool

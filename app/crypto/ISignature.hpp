#ifndef APP_CRYPTO_ISIGNATURE_HPP
#define APP_CRYPTO_ISIGNATURE_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <string>

namespace card {
class IChannel;
}

namespace app {
namespace object {
class IKey;
}

namespace crypto {

// Signing with a private key on the card, verifying with a public key in
// software. `init` binds the key and must come first.
class MW_EXPORT_TYPE ISignature {
public:
    // Sign (0) binds a private key; any other value binds a public key for
    // verifying.
    enum OperationMode { Sign = 0, Verify = 1 };

    virtual ~ISignature() = default;
    virtual const std::string& getAlgorithm() const = 0;
    virtual mw::ByteBuffer sign(const card::IChannel& channel,
                                const mw::ByteBuffer& data) const = 0;
    virtual bool verify(const card::IChannel& channel, const mw::ByteBuffer& data,
                        const mw::ByteBuffer& signature) const = 0;
    virtual void init(const card::IChannel& channel, OperationMode mode,
                      const app::object::IKey& key) = 0;
};

} // namespace crypto
} // namespace app

#endif

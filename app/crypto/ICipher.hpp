#ifndef APP_CRYPTO_ICIPHER_HPP
#define APP_CRYPTO_ICIPHER_HPP

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

// Deciphering with a private key on the card, enciphering with a public key
// in software. `init` binds the key and must come first.
class MW_EXPORT_TYPE ICipher {
public:
    // Decipher (1) binds a private key; any other value binds a public key
    // for enciphering.
    enum OperationMode { Encipher = 0, Decipher = 1 };

    virtual ~ICipher() = default;
    virtual const std::string& getAlgorithm() const = 0;
    virtual mw::ByteBuffer decipher(const card::IChannel& channel,
                                    const mw::ByteBuffer& data) const = 0;
    virtual mw::ByteBuffer encipher(const card::IChannel& channel,
                                    const mw::ByteBuffer& data) const = 0;
    virtual void init(const card::IChannel& channel, OperationMode mode,
                      const app::object::IKey& key) = 0;
};

} // namespace crypto
} // namespace app

#endif

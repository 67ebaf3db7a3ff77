// A private key file as `p15tool key import` reads it: PEM blocks of any
// label (encrypted, cut short, bad base64) or DER, PKCS#8 or PKCS#1. Only a
// ToolError may refuse it; a key accepted comes as the card takes it, every
// component at its full size.
#include "tools/p15tool/KeyFile.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const p15tool::RsaKeyMaterial key =
            p15tool::privateKeyMaterial(mw::ByteBuffer(data, size), "key.pem");
        const std::size_t half = key.bits / 16;
        for (const mw::ByteBuffer* part :
             {&key.p, &key.q, &key.dp, &key.dq, &key.pInv, &key.qInv}) {
            if (part->size() != half) {
                std::abort();
            }
        }
        if (key.modulus.size() != key.bits / 8 || key.exponent.size() != 3) {
            std::abort();
        }
    } catch (const p15tool::ToolError&) {
    }
    return 0;
}

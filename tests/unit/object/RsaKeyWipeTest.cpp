// The CRT components a private key holds are wiped before their memory goes
// back to the runtime, whichever of the six it is.
#include "FreeHook.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>

namespace {

TEST(RsaKeyWipe, EveryHeldCrtComponentIsReleasedAsZeros) {
    mw::ByteBuffer prime(64);
    std::fill(prime.begin(), prime.end(), 0xC1);
    const mw::ByteBuffer other{0x05, 0x06};
    for (int component = 0; component < 6; ++component) {
        SCOPED_TRACE(component);
        auto key = std::make_unique<app::pkcs15::object::P15RsaPrivateKey>(
            boost::weak_ptr<const app::pkcs15::fs::PrKDF>());
        key->setCrtComponents(prime, prime, other, other, other, other);
        const mw::ByteBuffer* held[] = {&key->getP(),  &key->getQ(),    &key->getDp(),
                                        &key->getDq(), &key->getPInv(), &key->getQInv()};
        freehook::watch(const_cast<mw::ByteBuffer&>(*held[component]));
        key.reset();
        EXPECT_TRUE(freehook::releasedAsZeros());
    }
}

} // namespace

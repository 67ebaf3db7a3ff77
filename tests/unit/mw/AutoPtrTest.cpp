#include "mw/AutoPtr.hpp"

#include <gtest/gtest.h>

namespace {

struct Counted {
    static int alive;
    Counted() { ++alive; }
    ~Counted() { --alive; }
    int value = 7;
};
int Counted::alive = 0;

} // namespace

// The exception's text and site are pinned where ByteBuffer throws.
TEST(AutoPtr, DereferencingNullThrows) {
    EXPECT_THROW(static_cast<void>(mw::AutoPtr<Counted>()->value), mw::NullPointerException);
    EXPECT_THROW(*mw::AutoPtr<Counted>(nullptr), mw::NullPointerException);
}

// Self-assignment and reset of a shared object keep the count right; the
// last owner releases.
TEST(AutoPtr, TheLastOwnerReleasesEvenAfterSelfAssignment) {
    {
        mw::AutoPtr<Counted> owner(new Counted);
        mw::AutoPtr<Counted>& alias = owner;
        owner = alias;
        owner = std::move(alias);
        EXPECT_EQ(owner->value, 7);
        mw::AutoPtr<Counted> sharer(owner);
        owner.reset(new Counted);
        EXPECT_EQ(Counted::alive, 2);
        sharer.reset();
        EXPECT_EQ(Counted::alive, 1);
    }
    EXPECT_EQ(Counted::alive, 0);
}

// T[] and byte arrays, which the crypto provider hands out, are released
// with delete[] (under the address sanitizer a scalar delete fails here).
TEST(AutoPtr, ArraysAreReleasedWithDeleteArrayByDefault) {
    {
        mw::AutoPtr<Counted[]> array(new Counted[3]);
        const mw::AutoPtr<Counted[]> copy = array;
        array.reset(new Counted[2]);
        EXPECT_EQ(Counted::alive, 5);
    }
    EXPECT_EQ(Counted::alive, 0);
    mw::AutoPtr<unsigned char> bytes(new unsigned char[16]());
    bytes.reset(new unsigned char[32]());
    EXPECT_EQ(*bytes, 0);
}

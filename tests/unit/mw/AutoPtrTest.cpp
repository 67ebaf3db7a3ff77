#include "mw/AutoPtr.hpp"

#include <gtest/gtest.h>
#include <string>

namespace {

struct Counted {
    static int alive;
    Counted() { ++alive; }
    ~Counted() { --alive; }
    int value = 7;
};
int Counted::alive = 0;

} // namespace

TEST(AutoPtr, DereferencingNullThrowsWithTheThrowSite) {
    mw::AutoPtr<Counted> empty;
    EXPECT_EQ(empty.get(), nullptr);
    try {
        static_cast<void>(empty->value);
        FAIL() << "no mw::NullPointerException";
    } catch (const mw::NullPointerException& e) {
        EXPECT_NE(e.file().find("mw/AutoPtr.hpp"), std::string::npos);
        const std::string what = e.what();
        const std::string description = "Description: Wrapped pointer is a NULL pointer.";
        EXPECT_EQ(what.substr(what.size() - description.size()), description);
    }
    EXPECT_THROW(*mw::AutoPtr<Counted>(nullptr), mw::NullPointerException);
}

TEST(AutoPtr, CopiesShareOneObjectReleasedByTheLastOwner) {
    {
        mw::AutoPtr<Counted> first(new Counted);
        {
            mw::AutoPtr<Counted> second(first);
            mw::AutoPtr<Counted> third;
            third = second;
            EXPECT_EQ(third.get(), first.get());
            EXPECT_EQ((*third).value, 7);
        }
        EXPECT_EQ(Counted::alive, 1);
        mw::AutoPtr<Counted> moved(std::move(first));
        EXPECT_EQ(first.get(), nullptr);
        EXPECT_EQ(Counted::alive, 1);
        moved = mw::AutoPtr<Counted>(new Counted);
        EXPECT_EQ(Counted::alive, 1);
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST(AutoPtr, SelfAssignmentAndResetKeepTheCountRight) {
    mw::AutoPtr<Counted> owner(new Counted);
    mw::AutoPtr<Counted>& alias = owner;
    owner = alias;
    owner = std::move(alias);
    EXPECT_EQ(owner->value, 7);
    mw::AutoPtr<Counted> sharer(owner);
    owner.reset(new Counted);
    EXPECT_EQ(Counted::alive, 2);
    sharer.reset();
    EXPECT_EQ(sharer.get(), nullptr);
    EXPECT_EQ(Counted::alive, 1);
    owner.reset();
    EXPECT_EQ(Counted::alive, 0);
}

// Arrays are released with delete[] without asking: T[] always, and byte
// arrays, which the crypto provider hands out (under the address sanitizer a
// scalar delete of the bytes fails this test).
TEST(AutoPtr, ArraysAreReleasedWithDeleteArrayByDefault) {
    {
        mw::AutoPtr<Counted[]> array(new Counted[3]);
        EXPECT_EQ(Counted::alive, 3);
        mw::AutoPtr<Counted[]> copy = array;
        array.reset(new Counted[2]);
        EXPECT_EQ(Counted::alive, 5);
        EXPECT_EQ(copy.get()[2].value, 7);
    }
    EXPECT_EQ(Counted::alive, 0);
    static_assert(std::is_same_v<mw::DefaultDeallocator<unsigned char>, mw::ArrayDeallocator>);
    mw::AutoPtr<unsigned char> bytes(new unsigned char[16]());
    bytes.reset(new unsigned char[32]());
    EXPECT_EQ(*bytes, 0);
}

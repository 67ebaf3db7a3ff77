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
        EXPECT_EQ(e.line(), 100);
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

TEST(AutoPtr, ArrayDeallocatorReleasesEveryElement) {
    {
        Counted* elements = new Counted[3];
        mw::AutoPtr<Counted, mw::ArrayDeallocator> array(elements);
        EXPECT_EQ(Counted::alive, 3);
        EXPECT_EQ(array->value, 7);
    }
    EXPECT_EQ(Counted::alive, 0);
}

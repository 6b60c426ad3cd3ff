// SPDX-License-Identifier: MIT
#include <sup++/KAutoPtr.h>

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

namespace KTEST {
namespace {

using KSUP::KAutoPtr;

/// Counts how many of it are alive.
class Counted {
  public:
    explicit Counted(int& counter) : alive(counter) { ++alive; }
    virtual ~Counted() { --alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

  private:
    int& alive;
};

class Derived : public Counted {
    using Counted::Counted;
};

static_assert(!std::is_copy_constructible_v<KAutoPtr<int>>, "one owner");
static_assert(sizeof(KAutoPtr<int>) == sizeof(int*), "no more than a pointer");

TEST(KAutoPtrTest, DeletesAtItsEnd) {
    int alive = 0;
    {
        const KAutoPtr<Counted> owner(new Derived(alive));
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(KAutoPtrTest, DeletesTheFormerWhenItTakesAnother) {
    int alive = 0;
    KAutoPtr<Counted> owner(new Counted(alive));
    owner.reset(new Derived(alive));
    EXPECT_EQ(alive, 1);
    owner = nullptr;
    EXPECT_EQ(alive, 0);
}

TEST(KAutoPtrTest, HandsOnWhatItOwns) {
    int alive = 0;
    KAutoPtr<Derived> first(new Derived(alive));
    const Derived* const owned = first.get();
    const KAutoPtr<Counted> second(std::move(first));
    EXPECT_EQ(second.get(), owned);
    EXPECT_EQ(first.get(), nullptr); // NOLINT(bugprone-use-after-move): empty is what it promises
    EXPECT_EQ(alive, 1);
}

TEST(KAutoPtrTest, LetsGoWithoutDeleting) {
    int alive = 0;
    KAutoPtr<Counted> owner(new Counted(alive));
    Counted* const released = owner.release();
    owner.reset();
    EXPECT_EQ(alive, 1);
    delete released;
}

TEST(KAutoPtrTest, OwnsArrays) {
    const KAutoPtr<int[]> numbers(new int[2]{1, 2});
    EXPECT_EQ(numbers[1], 2);
}

} // namespace
} // namespace KTEST

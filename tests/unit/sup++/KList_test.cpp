// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/KList.h>

#include <type_traits>

namespace KTEST {
namespace {

struct Item {
    Item(int itemNumber, std::vector<int>* endedItems) : number(itemNumber), ended(endedItems) {}
    ~Item() { ended->push_back(number); }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;
    int number;
    std::vector<int>* ended;
};

class KListTest : public testing::Test {
  protected:
    Item* Append(KSUP::KList<Item>& list, int number) {
        auto item = std::make_unique<Item>(number, &ended);
        Item* plain = item.get();
        list.Append(item);
        EXPECT_EQ(item, nullptr);
        return plain;
    }

    std::vector<int> ended;
};

TEST_F(KListTest, KeepsTheOrderOfAppending) {
    KSUP::KList<Item> list(true);
    Item* first = Append(list, 1);
    Item* second = Append(list, 2);
    ASSERT_EQ(list.GetCount(), 2U);
    EXPECT_EQ(list[0], first);
    EXPECT_EQ(list[1], second);
}

TEST_F(KListTest, DeletesWhatItOwnsFirstToLast) {
    {
        KSUP::KList<Item> list(true);
        Append(list, 1);
        Append(list, 2);
        Append(list, 3);
        EXPECT_TRUE(ended.empty());
    }
    EXPECT_THAT(ended, testing::ElementsAre(1, 2, 3));
}

TEST_F(KListTest, ReleaseEmptiesItOnce) {
    KSUP::KList<Item> list(true);
    Append(list, 1);
    list.Release();
    EXPECT_EQ(list.GetCount(), 0U);
    list.Release();
    EXPECT_THAT(ended, testing::ElementsAre(1));
}

TEST_F(KListTest, CanBeFilledAgainAfterRelease) {
    KSUP::KList<Item> list(true);
    Append(list, 1);
    list.Release();
    Append(list, 2);
    ASSERT_EQ(list.GetCount(), 1U);
    EXPECT_EQ(list[0]->number, 2);
}

TEST_F(KListTest, DeletesNothingItDoesNotOwn) {
    Item* plain = nullptr;
    {
        KSUP::KList<Item> list(false);
        plain = Append(list, 1);
    }
    EXPECT_TRUE(ended.empty());
    delete plain;
}

TEST_F(KListTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<KSUP::KList<Item>>);
    EXPECT_FALSE(std::is_copy_assignable_v<KSUP::KList<Item>>);
}

} // namespace
} // namespace KTEST

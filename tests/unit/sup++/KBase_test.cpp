// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/KBase.h>

#include <memory>
#include <new>
#include <type_traits>

namespace KTEST {
namespace {

using KSUP::KBase;

class Sample : public KBase {
  public:
    explicit Sample(
        int* endedCount = nullptr, const char* classTag = "Sample", bool keepsTag = true
    )
        : KBase(classTag, keepsTag),
          ended(endedCount) {}
    Sample(const Sample&) = default;
    Sample& operator=(const Sample&) = default;
    ~Sample() override {
        if (ended != nullptr) {
            ++*ended;
        }
    }
    virtual void FirstOfItsOwn() {}

    int* ended;
};

struct alignas(128) Aligned : KBase {
    Aligned() : KBase("Aligned", true) {}
};

TEST(KBaseTest, AnswersTheTagItWasGiven) {
    EXPECT_STREQ(Sample().GetClassTag(), "Sample");
}

TEST(KBaseTest, AnswersAnEmptyTagWithoutTheFlagOrWithoutAText) {
    EXPECT_STREQ(Sample(nullptr, "Sample", false).GetClassTag(), "");
    EXPECT_STREQ(Sample(nullptr, nullptr, true).GetClassTag(), "");
}

TEST(KBaseTest, IsDeletedThroughItsBase) {
    int ended = 0;
    std::unique_ptr<KBase>(new Sample(&ended)).reset();
    EXPECT_EQ(ended, 1);
}

TEST(KBaseTest, HasOnlyItsDestructorInTheTableOfVirtualFunctions) {
    // A destructor takes two slots, one of them for delete.
    EXPECT_EQ(SlotOf(&Sample::FirstOfItsOwn), 2);
    EXPECT_TRUE(std::has_virtual_destructor_v<KBase>);
}

TEST(KBaseTest, BringsItsOwnAllocation) {
    void* memory = KBase::operator new(100);
    ASSERT_NE(memory, nullptr);
    std::memset(memory, 0xab, 100);
    KBase::operator delete(memory);
}

TEST(KBaseTest, HonoursAlignmentBeyondTheUsual) {
    const std::unique_ptr<Aligned> object(new Aligned);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(object.get()) % 128, 0U);
}

TEST(KBaseTest, ReportsMissingMemoryAsTheStandardDoes) {
    if (isSanitized) {
        GTEST_SKIP() << "NOT TESTED here: a sanitizer's operator new ends the process instead";
    }
    EXPECT_THROW(KBase::operator new(SIZE_MAX - 64), std::bad_alloc);
    EXPECT_THROW(KBase::operator new(SIZE_MAX / 4 * 3), std::bad_alloc);
}

TEST(KBaseTest, CanBeMadeInAPlaceThatIsGiven) {
    alignas(Sample) unsigned char place[sizeof(Sample)];
    int ended = 0;
    Sample* object = new (static_cast<void*>(place)) Sample(&ended);
    EXPECT_EQ(static_cast<void*>(object), static_cast<void*>(place));
    object->~Sample();
    EXPECT_EQ(ended, 1);
}

TEST(KBaseTest, CopiesKeepTheTag) {
    const Sample original;
    const Sample copy(original);
    EXPECT_STREQ(copy.GetClassTag(), "Sample");
}

} // namespace
} // namespace KTEST

#include "support/auto_ptr.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

namespace {

using ZEL::AutoPtr;

/// Counts how many of it live.
struct Counted {
  Counted() { ++living; }
  ~Counted() { --living; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  int value = 0;
  static int living;
};

int Counted::living = 0;

constexpr int kSize = 3;

/// The same tests for both forms: what is owned is one object or an array of three.
template <class T>
struct Owning;

template <>
struct Owning<Counted> {
  static Counted* make() { return new Counted; }
  static constexpr int kLiving = 1;
};

template <>
struct Owning<Counted[]> {
  static Counted* make() { return new Counted[kSize]; }
  static constexpr int kLiving = kSize;
};

template <class T>
class AutoPtrTest : public testing::Test {
 protected:
  ~AutoPtrTest() override { EXPECT_EQ(Counted::living, 0); }

  static Counted* make() { return Owning<T>::make(); }
  static constexpr int kLiving = Owning<T>::kLiving;
};

using Forms = testing::Types<Counted, Counted[]>;
TYPED_TEST_SUITE(AutoPtrTest, Forms, );

TYPED_TEST(AutoPtrTest, ownsNothingByDefault) {
  const AutoPtr<TypeParam> pointer;
  EXPECT_FALSE(pointer);
  EXPECT_EQ(pointer.get(), nullptr);
}

TYPED_TEST(AutoPtrTest, deletesAtTheEndOfItsScope) {
  {
    Counted* const object = this->make();
    const AutoPtr<TypeParam> pointer(object);
    EXPECT_TRUE(pointer);
    EXPECT_EQ(pointer.get(), object);
    EXPECT_EQ(Counted::living, this->kLiving);
  }
  EXPECT_EQ(Counted::living, 0);
}

TYPED_TEST(AutoPtrTest, isMovedAndNotCopied) {
  static_assert(!std::is_copy_constructible_v<AutoPtr<TypeParam>> && !std::is_copy_assignable_v<AutoPtr<TypeParam>>);
  static_assert(std::is_nothrow_move_constructible_v<AutoPtr<TypeParam>>);
  Counted* const object = this->make();
  AutoPtr<TypeParam> first(object);
  const AutoPtr<TypeParam> second(std::move(first));
  EXPECT_FALSE(first);
  EXPECT_EQ(second.get(), object);
  EXPECT_EQ(Counted::living, this->kLiving);
}

TYPED_TEST(AutoPtrTest, deletesWhatItOwnedWhenAnotherIsAssigned) {
  Counted* const object = this->make();
  AutoPtr<TypeParam> first(object);
  AutoPtr<TypeParam> second(this->make());
  second = std::move(first);
  EXPECT_FALSE(first);
  EXPECT_EQ(second.get(), object);
  EXPECT_EQ(Counted::living, this->kLiving);
}

TYPED_TEST(AutoPtrTest, survivesAnAssignmentToItself) {
  Counted* const object = this->make();
  AutoPtr<TypeParam> pointer(object);
  AutoPtr<TypeParam>& same = pointer;
  pointer = std::move(same);
  EXPECT_EQ(pointer.get(), object);
  EXPECT_EQ(Counted::living, this->kLiving);
}

TYPED_TEST(AutoPtrTest, resetDeletesTheOldAndTakesTheNew) {
  AutoPtr<TypeParam> pointer(this->make());
  Counted* const object = this->make();
  pointer.reset(object);
  EXPECT_EQ(pointer.get(), object);
  EXPECT_EQ(Counted::living, this->kLiving);
  pointer.reset(object);
  EXPECT_EQ(Counted::living, this->kLiving);
  pointer.reset();
  EXPECT_FALSE(pointer);
  EXPECT_EQ(Counted::living, 0);
}

TYPED_TEST(AutoPtrTest, releaseGivesUpTheOwnership) {
  Counted* const object = this->make();
  AutoPtr<TypeParam> pointer(object);
  EXPECT_EQ(pointer.release(), object);
  EXPECT_FALSE(pointer);
  EXPECT_EQ(Counted::living, this->kLiving);
  pointer.reset(object);
}

TEST(AutoPtr, reachesTheObject) {
  const AutoPtr<Counted> pointer(new Counted);
  pointer->value = 5;
  EXPECT_EQ((*pointer).value, 5);
}

TEST(AutoPtr, reachesTheElementsOfAnArray) {
  const AutoPtr<Counted[]> pointer(new Counted[kSize]);
  pointer[2].value = 7;
  EXPECT_EQ(pointer.get()[2].value, 7);
  EXPECT_EQ(&pointer[0], pointer.get());
}

}  // namespace

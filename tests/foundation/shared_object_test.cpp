#include <gtest/gtest.h>
#include <plinth/buffer.h>
#include <plinth/shared_object.h>
#include <plinth/string.h>
#include <plinth/url.h>

#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;

class Base : public CSharedObject {
 public:
  explicit Base(int* destroyed = nullptr) : destroyed_(destroyed) {}
  ~Base() override {
    if (destroyed_ != nullptr) ++*destroyed_;
  }

 private:
  int* destroyed_;
};
class Derived : public Base {
 public:
  using Base::Base;
};
class Other : public Base {};

// Two interfaces on one virtual base: one object, one count.
class Publisher : public virtual CSharedObject {};
class Subscriber : public virtual CSharedObject {};
class Storage : public Publisher, public Subscriber {};

TEST(CSharedObjectTest, BeginsWithOneReferenceThatTheHolderTakesOver) {
  Base* const object = new Base;
  EXPECT_EQ(object->GetRetainCount(), 1);
  const CSharedObjectRef<Base> holder(object);
  EXPECT_EQ(object->GetRetainCount(), 1);
}

TEST(CSharedObjectTest, IsDestroyedByTheLastRelease) {
  int destroyed = 0;
  Base* const object = new Base(&destroyed);
  object->Retain();
  object->Release();
  EXPECT_EQ(destroyed, 0);
  object->Release();
  EXPECT_EQ(destroyed, 1);
}

TEST(CSharedObjectTest, ACopyHasACountOfItsOwn) {
  Base original;
  original.Retain();
  Base copy(original);
  EXPECT_EQ(copy.GetRetainCount(), 1);
  copy.Retain();
  copy.Retain();
  copy = original;
  EXPECT_EQ(copy.GetRetainCount(), 3);
  EXPECT_EQ(original.GetRetainCount(), 2);
}

TEST(CSharedObjectTest, CountsEachReferenceOfManyThreads) {
  int destroyed = 0;
  {
    const CSharedObjectRef<Base> holder = makeShared<Base>(&destroyed);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([holder] {
        for (int round = 0; round < 10000; ++round) {
          const CSharedObjectRef<Base> copy(holder);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(holder->GetRetainCount(), 1);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(CSharedObjectRefTest, CopyingRetainsAndDestructionReleases) {
  const CSharedObjectRef<Base> holder = makeShared<Base>();
  {
    const CSharedObjectRef<Base> copy(holder);
    EXPECT_EQ(holder->GetRetainCount(), 2);
    EXPECT_TRUE(copy.isSame(holder));
  }
  EXPECT_EQ(holder->GetRetainCount(), 1);
}

TEST(CSharedObjectRefTest, ReassignmentReleasesTheOldObject) {
  int destroyed = 0;
  CSharedObjectRef<Base> holder = makeShared<Base>(&destroyed);
  holder = makeShared<Base>();
  EXPECT_EQ(destroyed, 1);
  holder = nullptr;
  EXPECT_TRUE(holder.isNull());
  EXPECT_TRUE(holder == nullptr);
  EXPECT_FALSE(holder);
}

TEST(CSharedObjectRefTest, AssigningAHolderToItselfKeepsTheObject) {
  int destroyed = 0;
  CSharedObjectRef<Base> holder = makeShared<Base>(&destroyed);
  const CSharedObjectRef<Base>& same = holder;
  holder = same;
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(holder->GetRetainCount(), 1);
}

TEST(CSharedObjectRefTest, MovingHandsTheReferenceOver) {
  CSharedObjectRef<Base> from = makeShared<Base>();
  Base* const object = from.get();
  const CSharedObjectRef<Base> to(std::move(from));
  EXPECT_EQ(to.getObjectRef(), object);
  EXPECT_EQ(object->GetRetainCount(), 1);
}

TEST(CSharedObjectRefTest, RetainingAddsAReference) {
  const CSharedObjectRef<Base> owner = makeShared<Base>();
  const CSharedObjectRef<Base> second = CSharedObjectRef<Base>::retaining(owner.get());
  EXPECT_EQ(owner->GetRetainCount(), 2);
  EXPECT_TRUE(CSharedObjectRef<Base>::retaining(nullptr).isNull());
}

TEST(CSharedObjectRefTest, ConvertsToItsBaseByItself) {
  const CSharedObjectRef<Derived> derived = makeShared<Derived>();
  const CSharedObjectRef<Base> base = derived;
  EXPECT_EQ(base.get(), derived.get());
  EXPECT_EQ(derived->GetRetainCount(), 2);
}

TEST(CSharedObjectRefTest, ADownCastToTheRightClassHoldsTheSameObject) {
  const CSharedObjectRef<Base> base = CSharedObjectRef<Derived>(makeShared<Derived>());
  const CSharedObjectRef<Derived> derived(base);
  EXPECT_EQ(derived.get(), base.get());
  EXPECT_EQ(base->GetRetainCount(), 2);
}

TEST(CSharedObjectRefTest, ADownCastToAnotherClassGivesAnEmptyHolder) {
  const CSharedObjectRef<Base> base = CSharedObjectRef<Other>(makeShared<Other>());
  EXPECT_TRUE(CSharedObjectRef<Derived>(base).isNull());
  EXPECT_EQ(base->GetRetainCount(), 1);
  EXPECT_TRUE(CSharedObjectRef<Derived>(CSharedObjectRef<Base>()).isNull());
}

TEST(CSharedObjectRefTest, ADownCastIsNeverMadeSilently) {
  EXPECT_FALSE((std::is_convertible_v<CSharedObjectRef<Base>, CSharedObjectRef<Derived>>));
  EXPECT_TRUE((std::is_constructible_v<CSharedObjectRef<Derived>, CSharedObjectRef<Base>>));
}

TEST(CSharedObjectRefTest, OneObjectBehindTwoInterfacesIsCountedOnce) {
  const CSharedObjectRef<Storage> storage = makeShared<Storage>();
  const CSharedObjectRef<Publisher> publisher = storage;
  const CSharedObjectRef<Subscriber> subscriber = storage;
  EXPECT_EQ(storage->GetRetainCount(), 3);
  EXPECT_EQ(CSharedObjectRef<Storage>(CSharedObjectRef<CSharedObject>(subscriber)).get(), storage.get());
}

TEST(CSharedObjectRefTest, DereferencingAnEmptyHolderWritesAConsoleLineAndGoesOnWithNull) {
  const CSharedObjectRef<Base> empty;
  testing::internal::CaptureStderr();
  Base* const object = empty.operator->();
  const std::string written = testing::internal::GetCapturedStderr();
  EXPECT_EQ(object, nullptr);
  EXPECT_NE(written.find("CSharedObject::LogNullRef: an empty reference was dereferenced\n"), std::string::npos)
      << "on standard error: " << written;
}

TEST(CSharedObjectRefTest, DereferencingAHolderWritesNothing) {
  const CSharedObjectRef<Base> holder = makeShared<Base>();
  testing::internal::CaptureStderr();
  EXPECT_EQ(&*holder, holder.operator->());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CDataValueTest, IsConvertedToTheConcreteTypeByADownCast) {
  const CDataValueRef value = CSTR("text");
  EXPECT_EQ(test::text(CStringRef(value)), "text");
  EXPECT_TRUE(CSharedObjectRef<CURL>(value).isNull());
  EXPECT_TRUE(CBufferRef(value).isNull());
}

TEST(CDataValueTest, ReportsAConversionThatItDoesNotOffer) {
  const CDataValueRef value = CSTR("text");
  EXPECT_EQ(test::messageOf<CParamException>([&] { value->conversionNotImplemented("CURL"); }),
            "CString can't be converted to CURL");
  const CDataValueRef buffer = CBufferRef(makeShared<CBuffer>());
  EXPECT_EQ(test::messageOf<CParamException>([&] { buffer->conversionNotImplemented("integer"); }),
            "CBuffer can't be converted to integer");
}

}  // namespace

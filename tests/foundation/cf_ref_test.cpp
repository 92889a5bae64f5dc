#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFString.h>
#include <gtest/gtest.h>
#include <plinth/shared_cf_ref.h>

namespace {

using plinth::CSharedCFRef;

// A string that is counted, unlike a constant.
CFStringRef newString() { return CFStringCreateMutableCopy(kCFAllocatorDefault, 0, CFSTR("counted")); }

TEST(CSharedCFRefTest, TakesOverTheCreatorsReferenceAndAddsNone) {
  const CFStringRef created = newString();
  const CSharedCFRef<CFStringRef> holder(created);
  EXPECT_EQ(holder.get(), created);
  EXPECT_EQ(CFGetRetainCount(created), 1);
}

TEST(CSharedCFRefTest, ReleasesWhenDestroyedOrReassigned) {
  const CFStringRef observed = newString();
  CFRetain(observed);
  {
    const CSharedCFRef<CFStringRef> holder(observed);
    EXPECT_EQ(CFGetRetainCount(observed), 2);
  }
  EXPECT_EQ(CFGetRetainCount(observed), 1);
  CSharedCFRef<CFStringRef> holder(static_cast<CFStringRef>(CFRetain(observed)));
  holder = CSharedCFRef<CFStringRef>(newString());
  EXPECT_EQ(CFGetRetainCount(observed), 1);
  holder = nullptr;
  EXPECT_TRUE(holder.isNull());
  EXPECT_TRUE(holder == nullptr);
  EXPECT_FALSE(holder);
  CFRelease(observed);
}

TEST(CSharedCFRefTest, CopyingRetains) {
  const CSharedCFRef<CFStringRef> holder(newString());
  const CSharedCFRef<CFStringRef> copy(holder);
  EXPECT_EQ(CFGetRetainCount(holder.get()), 2);
  EXPECT_EQ(copy.getObjectRef(), holder.get());
}

TEST(CSharedCFRefTest, MovingHandsTheReferenceOver) {
  CSharedCFRef<CFStringRef> from(newString());
  const CSharedCFRef<CFStringRef> to(std::move(from));
  EXPECT_EQ(CFGetRetainCount(to.get()), 1);
}

TEST(CSharedCFRefTest, RetainingAddsAReferenceForAnObjectOfSomebodyElse) {
  const CSharedCFRef<CFStringRef> owner(newString());
  const CSharedCFRef<CFStringRef> second = CSharedCFRef<CFStringRef>::retaining(owner.get());
  EXPECT_EQ(CFGetRetainCount(owner.get()), 2);
  EXPECT_TRUE(CSharedCFRef<CFStringRef>::retaining(nullptr).isNull());
}

TEST(CSharedCFRefTest, CopyAddsAReferenceForTheCallerAndTakeHandsItsOwnOver) {
  CSharedCFRef<CFStringRef> holder(newString());
  const CFStringRef copied = holder.copy();
  EXPECT_EQ(CFGetRetainCount(copied), 2);
  CFRelease(copied);
  const CFStringRef taken = holder.take();
  EXPECT_TRUE(holder.isNull());
  EXPECT_EQ(CFGetRetainCount(taken), 1);
  CFRelease(taken);
  EXPECT_EQ(CSharedCFRef<CFStringRef>().copy(), nullptr);
}

TEST(CSharedCFRefTest, AHolderOfAMutableObjectGivesOneOfItsImmutableKind) {
  const CSharedCFRef<CFMutableArrayRef> array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  const CSharedCFRef<CFArrayRef> same = array;
  EXPECT_EQ(same.get(), array.get());
  EXPECT_EQ(CFGetRetainCount(array.get()), 2);
}

}  // namespace

// The value-handle base as the store uses it, without a file.
#include "platform/storefile/vhd.h"

#include <gtest/gtest.h>

#include "platform/fundra/space.h"
#include "platform/zelkor/zelkor.h"

using namespace zelkor;
using namespace storefile;

namespace {

Word newHandle() {
  ZelkorBoot();
  Word obj = send(ZelkorLookup(kVhdSig), kNew_);
  send(obj, kSetu);
  return obj;
}

}  // namespace

TEST(ValueHandle, AdoptsTheSpaceItIsGivenAndHandsItBackOnInstall) {
  Word h = newHandle();
  fundra::ElementSpace* out = reinterpret_cast<fundra::ElementSpace*>(1);
  EXPECT_EQ(send(h, kHGtH, &out), 0);
  EXPECT_EQ(out, nullptr);  // no value yet, and no file to load one from

  auto* first = new fundra::ElementSpace(1024, 0);
  ASSERT_EQ(first->LmSetAssert(1, 28), 0);
  EXPECT_EQ(send(h, kHNew, first, 4), 0);
  EXPECT_EQ(send(h, kHGtH, &out), 0);
  EXPECT_EQ(out, first);

  // Adopting another space frees the first (the sanitizer build sees a leak otherwise).
  auto* second = new fundra::ElementSpace(1024, 0);
  EXPECT_EQ(send(h, kHNew, second, 4), 0);
  EXPECT_EQ(send(h, kHGtH, &out), 0);
  EXPECT_EQ(out, second);
  EXPECT_EQ(send(h, kHGtH, nullptr), kVhdBadArgument);

  // Without a space of the caller's, the base makes an empty one.
  EXPECT_EQ(send(h, kHNew, 0, 4), 0);
  EXPECT_EQ(send(h, kHGtH, &out), 0);
  ASSERT_NE(out, nullptr);
  EXPECT_NE(out, second);
  EXPECT_EQ(out->LmCount(), 0);
  send(h, kDspo);
}

TEST(ValueHandle, WithoutAFileHasNoRecordFileAndSavesNothing) {
  Word h = newHandle();
  EXPECT_EQ(send(h, kHTsv), kVhdNoValue);
  EXPECT_EQ(send(h, kHNew, 0, 1), 0);
  EXPECT_EQ(send(h, kHGtF), 0);
  EXPECT_EQ(send(h, kHChg), 0);
  EXPECT_EQ(send(h, kHTsv), 0);
  // The changed flag answers its previous value.
  EXPECT_EQ(send(h, kHSCh, 0), 1);
  EXPECT_EQ(send(h, kHSCh, 1), 0);
  EXPECT_EQ(send(h, kHSCh, 1), 1);
  send(h, kDspo);
}

TEST(ValueHandle, RegistryListsRegisteredHandlesUntilUnregisteredOrDisposed) {
  Word a = newHandle();
  Word b = newHandle();
  auto has = [](Word o) {
    for (const RegisteredHandle& r : registeredHandles())
      if (r.object == o) return true;
    return false;
  };
  EXPECT_EQ(send(a, kHReg, fc("@zov")), 0);
  EXPECT_EQ(send(b, kHReg, fc("@zov")), 0);
  EXPECT_EQ(send(a, kHReg, fc("@zov")), 0);  // again: still listed once
  size_t listed = 0;
  for (const RegisteredHandle& r : registeredHandles())
    if (r.object == a) {
      ++listed;
      EXPECT_EQ(r.cls, fc("@zov"));
    }
  EXPECT_EQ(listed, 1u);
  EXPECT_EQ(send(a, kHUrg, fc("@zov")), 0);
  EXPECT_FALSE(has(a));
  EXPECT_TRUE(has(b));
  send(b, kDspo);
  EXPECT_FALSE(has(b));
  send(a, kDspo);
}

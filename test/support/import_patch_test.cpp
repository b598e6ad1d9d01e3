// Patched: the import patch itself.
#include "test/support/import_patch.h"

#include <gtest/gtest.h>

namespace kova::test {
namespace {

ULONGLONG WINAPI FixedTickCount() { return 4660; }
ULONGLONG WINAPI OtherTickCount() { return 4661; }

TEST(ImportPatchTest, ReplacesAnImportForItsScope) {
  {
    const ImportPatch<decltype(GetTickCount64)> patch(nullptr, "GetTickCount64",
                                                      &FixedTickCount);
    EXPECT_EQ(::GetTickCount64(), 4660u);
    EXPECT_NE(patch.Original()(), 4660u);
  }
  EXPECT_NE(::GetTickCount64(), 4660u);
}

TEST(ImportPatchTest, NestsLikeScopes) {
  const ImportPatch<decltype(GetTickCount64)> outer(nullptr, "GetTickCount64",
                                                    &FixedTickCount);
  {
    const ImportPatch<decltype(GetTickCount64)> inner(nullptr, "GetTickCount64",
                                                      &OtherTickCount);
    EXPECT_EQ(::GetTickCount64(), 4661u);
  }
  EXPECT_EQ(::GetTickCount64(), 4660u);
}

TEST(ImportPatchTest, FindsNoSlotForAFunctionThatIsNotImported) {
  EXPECT_EQ(FindImportSlot(nullptr, "NoSuchFunction"), nullptr);
}

}  // namespace
}  // namespace kova::test

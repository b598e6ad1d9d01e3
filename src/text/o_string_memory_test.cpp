// Patched: texts when memory runs out, at each allocation of each operation.
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <ostream>
#include <string>
#include <tuple>

#include "test/support/watched_heap.h"
#include "text/o_string.h"

namespace {

using kova::test::WatchedHeap;

// All that one sees of a text. Which forms it has is not among it: a form may
// have been made before memory ran out.
using Facts =
    std::tuple<uint64_t, uint32_t, bool, bool, std::string, std::wstring>;

Facts FactsOf(const OString& text) {
  return {text.Capacity(), text.CodePage(), text.PrefersWide(),
          text.IsEmpty(),  text.Narrow(),   text.Wide()};
}

struct Operation {
  const char* name;
  OString (*make)();
  bool isShared;  // whether another handle shares the text
  void (*change)(OString& text);
};

void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.name;
}

OString Narrow() { return OString("abc\x80"); }
OString Wide() { return OString(L"abc\u4E2D"); }
OString Both() {
  OString text("abc\x80");
  (void)text.Wide();
  return text;
}
OString Utf8() { return OString::FromUtf8("\xE2\x82\xAC,b"); }

const std::string& LongNarrow() {
  static const std::string text(100, 'x');
  return text;
}
const std::wstring& LongWide() {
  static const std::wstring text(100, L'\u20AC');
  return text;
}

void MakeNarrow(OString&) { (void)OString(LongNarrow().c_str()); }
void MakeWide(OString&) {
  (void)OString(L"\u20AC");
  (void)OString(LongWide().c_str(), 90);
}
void ReadBoth(OString& text) {
  (void)text.Narrow();
  (void)text.Wide();
}
void AssignNarrow(OString& text) { text = LongNarrow().c_str(); }
void AssignWide(OString& text) { text = LongWide().c_str(); }
void AppendNarrow(OString& text) { text.Append(LongNarrow().c_str()); }
void AppendWide(OString& text) { text.Append(LongWide().c_str()); }
void MakeOwn(OString& text) { text.MakeUnique(); }
void Retag(OString& text) { text.SetCodePage(64999); }
void Delete(OString& text) { text.Delete(1, 2); }
void ReplaceByMore(OString& text) { text.Replace("b", LongNarrow().c_str()); }
void ReplaceByAsMuch(OString& text) { text.Replace("b", L"\u6587"); }
void TakePiece(OString& text) { (void)text.Mid(1, 2); }

constexpr Operation kOperations[] = {
    {"MakingNarrow", &Narrow, false, &MakeNarrow},
    {"MakingWide", &Wide, false, &MakeWide},
    {"ReadingNarrow", &Wide, false, &ReadBoth},
    {"ReadingWide", &Utf8, true, &ReadBoth},
    {"AssigningToNull", [] { return OString(); }, false, &AssignWide},
    {"AssigningNarrowToNarrow", &Narrow, false, &AssignNarrow},
    {"AssigningNarrowToWide", &Wide, false, &AssignNarrow},
    {"AssigningNarrowToBoth", &Both, false, &AssignNarrow},
    {"AssigningWideToNarrow", &Narrow, false, &AssignWide},
    {"AssigningWideToWide", &Wide, false, &AssignWide},
    {"AssigningToShared", &Both, true, &AssignWide},
    {"AppendingNarrow", &Both, false, &AppendNarrow},
    {"AppendingNarrowToWide", &Wide, false, &AppendNarrow},
    {"AppendingWide", &Both, false, &AppendWide},
    {"AppendingToShared", &Both, true, &AppendNarrow},
    {"MakingUnique", &Both, true, &MakeOwn},
    {"MakingNullUnique", [] { return OString(); }, false, &MakeOwn},
    {"TaggingAnew", &Narrow, false, &Retag},
    {"TaggingSharedAnew", &Both, true, &Retag},
    {"DeletingFromShared", &Both, true, &Delete},
    {"ReplacingByMore", &Both, false, &ReplaceByMore},
    {"ReplacingByAsMuch", &Utf8, true, &ReplaceByAsMuch},
    {"TakingANarrowPiece", &Narrow, false, &TakePiece},
    {"TakingAWidePiece", &Utf8, false, &TakePiece},
};

// What is made once and not given back: two texts, and what the C++ runtime
// needs for a thread's first exception.
void TakeWhatIsKept() {
  (void)LongNarrow();
  (void)LongWide();
  try {
    throw std::bad_alloc();
  } catch (const std::bad_alloc&) {
    // Thrown for that memory alone.
  }
}

class OStringMemoryTest : public testing::TestWithParam<Operation> {
 protected:
  // What came of the operation when its `nth` allocation was refused.
  struct Outcome {
    bool wasRefused = false;
    bool isUnchanged = true;
    int64_t lost = 0;
  };

  static Outcome Refuse(size_t nth) {
    TakeWhatIsKept();
    const WatchedHeap heap;
    Outcome outcome;
    Run(nth, outcome);
    outcome.lost = heap.LiveBlocks();
    return outcome;
  }

 private:
  static void Run(size_t nth, Outcome& outcome) {
    const Operation& operation = GetParam();
    OString text = operation.make();
    const OString other = operation.isShared ? text : operation.make();
    WatchedHeap::RefuseNth(nth);
    try {
      operation.change(text);
    } catch (const std::bad_alloc&) {
      outcome.wasRefused = true;
    }
    WatchedHeap::RefuseNth(0);
    const Facts before = FactsOf(operation.make());
    outcome.isUnchanged = FactsOf(other) == before &&
                          (!outcome.wasRefused || FactsOf(text) == before);
  }
};

TEST_P(OStringMemoryTest, ChangesNothingAndLosesNothingWhereItFails) {
  bool wasRefused = true;
  size_t nth = 0;
  while (wasRefused) {
    const Outcome outcome = Refuse(++nth);
    wasRefused = outcome.wasRefused;
    EXPECT_TRUE(outcome.isUnchanged) << "allocation " << nth;
    EXPECT_EQ(outcome.lost, 0) << "allocation " << nth;
  }
  EXPECT_GT(nth, 1u) << "nothing was allocated";
}

// How many blocks a text holds after the operation.
int64_t BlocksAfter(OString (*make)(), void (*change)(OString&)) {
  TakeWhatIsKept();
  const WatchedHeap heap;
  OString text = make();
  change(text);
  return heap.LiveBlocks();
}

TEST(OStringBuffersTest, AreFreedWithTheFormThatIsLetGoOf) {
  const auto leave = [](OString&) {};
  // The first buffer lies in the record's block and stays with it.
  EXPECT_EQ(BlocksAfter(&Narrow, leave), 1);
  EXPECT_EQ(BlocksAfter(&Both, leave), 2);
  EXPECT_EQ(BlocksAfter(&Both, &AssignNarrow), 2);
  EXPECT_EQ(BlocksAfter(&Narrow, &Retag), 2);
  // A wide text has its buffers beside the record.
  EXPECT_EQ(BlocksAfter(&Wide, leave), 2);
  EXPECT_EQ(BlocksAfter(&Wide, &ReadBoth), 3);
  EXPECT_EQ(BlocksAfter(&Wide, &AssignWide), 2);
  const auto readAndRetag = [](OString& text) {
    ReadBoth(text);
    Retag(text);
  };
  EXPECT_EQ(BlocksAfter(&Wide, readAndRetag), 2);
}

INSTANTIATE_TEST_SUITE_P(Operations, OStringMemoryTest,
                         testing::ValuesIn(kOperations), [](const auto& row) {
                           return std::string(row.param.name);
                         });

}  // namespace

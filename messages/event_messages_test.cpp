// Whole: the built message library, as an event viewer uses it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "base/handles.h"
#include "base/windows_api.h"
#include "log/sinks.h"

namespace {

using testing::ElementsAre;

constexpr DWORD kIds[] = {0x00000001, 0x00000002, 0x40FF0400, 0x4FFF0100,
                          0x80FF0500, 0x8FFF0200, 0xC0FF0600, 0xCFFF0300};

class EventMessagesTest : public testing::Test {
 protected:
  EventMessagesTest() : m_library(Load(LOAD_LIBRARY_AS_DATAFILE)) {
    EXPECT_TRUE(m_library.IsValid());
  }
  static kova::UniqueModule Load(DWORD flags) {
    wchar_t program[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring path = program;
    path.resize(path.find_last_of(L'\\'));
    path += L"\\..\\bin\\messages\\Corvane_EventMessages.dll";
    return kova::UniqueModule(::LoadLibraryExW(path.c_str(), nullptr, flags));
  }
  // The text of `id` with `insert` put in; empty if there is no such id.
  static std::wstring Format(HMODULE library, DWORD id, const wchar_t* insert) {
    wchar_t text[8192] = {};
    DWORD_PTR inserts[] = {reinterpret_cast<DWORD_PTR>(insert)};
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, library,
        id, 0, text, 8192, reinterpret_cast<va_list*>(inserts));
    return std::wstring(text, length);
  }
  // The ids of all messages in the resource, in its order.
  [[nodiscard]] std::vector<DWORD> AllIds() const;

  const kova::UniqueModule m_library;
};

std::vector<DWORD> EventMessagesTest::AllIds() const {
  std::vector<DWORD> ids;
  const HRSRC found = ::FindResourceW(m_library.Get(), MAKEINTRESOURCEW(1),
                                      reinterpret_cast<LPCWSTR>(uintptr_t{11}));
  if (found == nullptr) return ids;
  const auto* table = static_cast<const MESSAGE_RESOURCE_DATA*>(
      ::LockResource(::LoadResource(m_library.Get(), found)));
  for (DWORD i = 0; i < table->NumberOfBlocks; ++i) {
    const MESSAGE_RESOURCE_BLOCK& block = table->Blocks[i];
    for (DWORD id = block.LowId; id <= block.HighId; ++id) ids.push_back(id);
  }
  return ids;
}

TEST_F(EventMessagesTest, GivesTheReportedLineForEveryId) {
  for (const DWORD id : kIds) {
    EXPECT_EQ(Format(m_library.Get(), id, L"Info A::B: text"),
              L"Info A::B: text\r\n")
        << std::hex << id;
  }
}

TEST_F(EventMessagesTest, HasThoseIdsAndNoOthers) {
  EXPECT_THAT(AllIds(), testing::ElementsAreArray(kIds));
  EXPECT_EQ(Format(m_library.Get(), 0xEFFF0300, L"text"), L"");
  EXPECT_EQ(Format(m_library.Get(), 0x00000300, L"text"), L"");
  EXPECT_EQ(Format(m_library.Get(), 3, L"text"), L"");
}

TEST_F(EventMessagesTest, HasEveryIdThatCanBeReportedAndTwoCategories) {
  std::set<DWORD> expected = {1, 2};
  for (uint32_t kind = 0; kind < 4; ++kind) {
    for (int bit = 0; bit < 32; ++bit) {
      const auto channel = static_cast<tk::LogChannel>(uint32_t{1} << bit);
      expected.insert(kova::ClassifyEvent(kind, channel).id);
    }
  }
  EXPECT_THAT(AllIds(), testing::ElementsAreArray(expected));
}

TEST_F(EventMessagesTest, LeavesALineAsItIs) {
  const std::wstring longLine(8000, L'x');
  EXPECT_EQ(Format(m_library.Get(), 0xCFFF0300, longLine.c_str()),
            longLine + L"\r\n");
  EXPECT_EQ(Format(m_library.Get(), 0xCFFF0300, L"100%1 %0%n\n\u20ac"),
            L"100%1 %0%n\n\u20ac\r\n");
  EXPECT_EQ(Format(m_library.Get(), 0xCFFF0300, L""), L"\r\n");
}

TEST_F(EventMessagesTest, IsALibraryLikeAnyOther) {
  const kova::UniqueModule loaded = Load(0);
  ASSERT_TRUE(loaded.IsValid());
  EXPECT_EQ(Format(loaded.Get(), 0x8FFF0200, L"text"), L"text\r\n");
}

BOOL CALLBACK AddType(HMODULE, LPWSTR type, LONG_PTR types) {
  reinterpret_cast<std::vector<uintptr_t>*>(types)->push_back(
      reinterpret_cast<uintptr_t>(type));
  return TRUE;
}

TEST_F(EventMessagesTest, HoldsMessagesAndAVersionAlone) {
  std::vector<uintptr_t> types;
  ::EnumResourceTypesW(m_library.Get(), &AddType,
                       reinterpret_cast<LONG_PTR>(&types));
  EXPECT_THAT(types, ElementsAre(11u, 16u));
}

}  // namespace

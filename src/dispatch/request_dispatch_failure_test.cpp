// Patched: where the chain from a request to its answer breaks.
#include <gmock/gmock.h>

#include "test/support/dispatch_fixture.h"
#include "test/support/watched_heap.h"

namespace {

using kova::test::BadRequest;
using kova::test::DemoPrinter;
using kova::test::DispatchFixture;
using kova::test::ExtensionPrinter;
using testing::ElementsAre;

constexpr wchar_t kName[] = L"KOVA dispatch test";
constexpr char kTarget[] = "/?printer=KOVA+dispatch+test";

class RequestFailureTest : public DispatchFixture {
 protected:
  std::string Ask(const std::string& actions = "") {
    return Dispatch(Get(kTarget + ("&act=" + actions)));
  }
};

TEST_F(RequestFailureTest, APrinterWithoutAPackageHasNoInterface) {
  const DemoPrinter printer(kName);
  EXPECT_EQ(Ask(), BadRequest());
  EXPECT_THAT(
      m_capture.Lines(),
      ElementsAre(L"Error WebServerInterface::GetV3WebServerInterface: "
                  L"GetV3PrintMonitorDllFullPath failed for printer \"KOVA "
                  L"dispatch test\"",
                  Failed(L"GetV3WebServerInterface", kName), Responding()));
}

TEST_F(RequestFailureTest, AFailedLoadIsLoggedOnceAndNotTriedAgain) {
  DemoPrinter printer(kName);
  ASSERT_TRUE(printer.SetDriverPackage(L"C:\\KOVA nothing\\"));
  const std::wstring path = L"C:\\KOVA nothing\\\\Corvane_V3_NetMon.dll";
  EXPECT_EQ(Ask(), BadRequest());
  EXPECT_THAT(
      m_capture.Take(),
      ElementsAre(Found(kName, path),
                  L"Error WebServerInterface::WebServerInterface: LoadLibrary "
                  L"failed on \"" +
                      path + L" GetLastError: 0x0000007E",
                  Failed(L"WSIHandleServerRequest", kName), Responding()));
  EXPECT_EQ(Ask(), BadRequest());
  EXPECT_THAT(
      m_capture.Lines(),
      ElementsAre(Found(kName, path), Failed(L"WSIHandleServerRequest", kName),
                  Responding()));
}

struct AnswerRow {
  const char* actions;
  const wchar_t* step;
  const char* calls;
};

// Prints a row of a failed test.
void PrintTo(const AnswerRow& row, std::ostream* out) { *out << row.actions; }

class FailedAnswerTest : public RequestFailureTest,
                         public testing::WithParamInterface<AnswerRow> {};

TEST_P(FailedAnswerTest, EndsInABadRequestAndOneRelease) {
  ExtensionPrinter printer(L"scripted", kName);
  EXPECT_EQ(Ask(GetParam().actions), BadRequest());
  EXPECT_EQ(printer.Extension().Trace(), std::string("VSI") + GetParam().calls);
  EXPECT_EQ(printer.Extension().Record().live, 0);
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(Found(kName, printer.Extension().LibraryPath()),
                          Failed(GetParam().step, kName), Responding()));
}

INSTANTIATE_TEST_SUITE_P(
    All, FailedAnswerTest,
    testing::Values(AnswerRow{"null", L"WSIHandleServerRequest", "H"},
                    AnswerRow{"length0", L"WSIGetResponseLength", "HLR"},
                    AnswerRow{"nocopy", L"WSIGetResponse", "HLCR"}));

struct MissingRow {
  const wchar_t* extension;
  const wchar_t* name;
  const wchar_t* step;
  const char* calls;
};

void PrintTo(const MissingRow& row, std::ostream* out) {
  *out << testing::PrintToString(row.extension);
}

class MissingEntryTest : public RequestFailureTest,
                         public testing::WithParamInterface<MissingRow> {};

TEST_P(MissingEntryTest, CountsAsAFailedCallAndIsLoggedAtLoadOnly) {
  ExtensionPrinter printer(GetParam().extension, kName);
  EXPECT_EQ(Ask(), BadRequest());
  EXPECT_EQ(printer.Extension().Trace(), GetParam().calls);
  const std::wstring found = Found(kName, printer.Extension().LibraryPath());
  EXPECT_THAT(m_capture.Take(),
              ElementsAre(found, Missing(GetParam().name),
                          Failed(GetParam().step, kName), Responding()));
  EXPECT_EQ(Ask(), BadRequest());
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(found, Failed(GetParam().step, kName), Responding()));
}

INSTANTIATE_TEST_SUITE_P(
    All, MissingEntryTest,
    testing::Values(MissingRow{L"no_handle", L"WSIE_HandleServerRequest",
                               L"WSIHandleServerRequest", "VSI"},
                    MissingRow{L"no_length", L"WSIE_GetResponseLength",
                               L"WSIGetResponseLength", "VSIHR"},
                    MissingRow{L"no_copy", L"WSIE_GetResponse",
                               L"WSIGetResponse", "VSIHLR"}));

TEST_F(RequestFailureTest, AMissingReleaseOnlyKeepsTheResponse) {
  ExtensionPrinter printer(L"no_release", kName);
  const std::string request = Get(kTarget);
  EXPECT_EQ(Dispatch(request), Echo(request));
  EXPECT_EQ(printer.Extension().Trace(), "VSIHLC");
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(Found(kName, printer.Extension().LibraryPath()),
                          Missing(L"WSIE_ReleaseResponse")));
}

TEST_F(RequestFailureTest, WithoutARestartEntryAllElseWorks) {
  ExtensionPrinter printer(L"no_restart", kName);
  const std::string request = Get(kTarget);
  EXPECT_EQ(Dispatch(request), Echo(request));
  EXPECT_EQ(Dispatch(request), Echo(request));
  EXPECT_EQ(printer.Extension().Trace(), "VIHLCRHLCR");
  const std::wstring found = Found(kName, printer.Extension().LibraryPath());
  EXPECT_THAT(
      m_capture.Lines(),
      ElementsAre(found, Missing(L"WSIE_SetKOVAServerRestartRoutine"), found));
}

TEST_F(RequestFailureTest, WithoutAnInitialiserTheContextIsNull) {
  ExtensionPrinter printer(L"no_initialize", kName);
  const std::string request = Get(kTarget);
  EXPECT_EQ(Dispatch(request), Echo(request));
  // A context other than null would show as a question mark.
  EXPECT_EQ(printer.Extension().Trace(), "VSHLCR");
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(Found(kName, printer.Extension().LibraryPath()),
                          Missing(L"WSIE_WebServerInitialize")));
}

TEST_F(RequestFailureTest, AClaimedLengthBeyondMemoryIsAFailedCopy) {
  ExtensionPrinter printer(L"scripted", kName);
  {
    const kova::test::WatchedHeap heap;
    heap.RefuseAbove(0x3FFFFFFF);
    EXPECT_EQ(Ask("huge"), BadRequest());
    EXPECT_EQ(heap.RefusedBytes(), 0xFFFFFFFFu);
  }
  EXPECT_EQ(printer.Extension().Trace(), "VSIHLR");
  EXPECT_THAT(m_capture.Take(),
              ElementsAre(Found(kName, printer.Extension().LibraryPath()),
                          Failed(L"WSIGetResponse", kName), Responding()));
  EXPECT_EQ(Ask("bytes-10"), "abcdefghij");
}

// On a connection that is kept the buffer holds the previous answer.
TEST_F(RequestFailureTest, BytesClaimedAndNotCopiedAreZeroInEveryAnswer) {
  ExtensionPrinter printer(L"scripted", kName);
  for (const size_t size : {size_t{4096}, size_t{2} << 20}) {
    const std::string bytes = std::to_string(size);
    EXPECT_EQ(Ask("bytes-" + bytes).find('\0'), std::string::npos);
    const std::string answer = Ask("claims-" + bytes);
    ASSERT_EQ(answer.size(), size);
    const size_t copied = answer.find('\0');
    ASSERT_NE(copied, std::string::npos);
    EXPECT_EQ(answer.find_first_not_of('\0', copied), std::string::npos);
  }
}

// What the answer held when the response was released.
struct Seen {
  const kova::ByteBuffer* answer = nullptr;
  std::vector<std::string> answers;
};

void NoteAnswer(void* argument) {
  auto* const seen = static_cast<Seen*>(argument);
  seen->answers.push_back(kova::test::MaskDate(
      std::string(seen->answer->Data(), seen->answer->Size())));
}

TEST_F(RequestFailureTest, AResponseIsReleasedOnceTheAnswerIsMade) {
  ExtensionPrinter printer(L"scripted", kName);
  Seen seen{&m_response, {}};
  printer.Extension().Record().onRelease = &NoteAnswer;
  printer.Extension().Record().onReleaseArgument = &seen;
  Ask("bytes-10");
  Ask("length0");
  Ask("nocopy");
  Ask("null");
  printer.Extension().Record().onRelease = nullptr;
  EXPECT_THAT(seen.answers,
              ElementsAre("abcdefghij", BadRequest(), BadRequest()));
  EXPECT_EQ(printer.Extension().Trace(), "VSIHLCRHLRHLCRH");
}

}  // namespace

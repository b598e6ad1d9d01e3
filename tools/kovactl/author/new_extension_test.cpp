// Whole: a folder for an extension of one's own.
#include "author/new_extension.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "common/program_run.h"

namespace {

using ::kova::ctl::ExitCode;
using ::kova::ctl::Language;
using ::kova::ctl::MakeExtension;
using ::kova::ctl::test::ExpectRefusal;
using ::kova::ctl::test::ProgramResult;
using ::kova::ctl::test::RunKovactl;
using ::testing::HasSubstr;
using ::testing::Not;

class NewExtensionTest : public ::testing::Test {
 protected:
  NewExtensionTest() { std::filesystem::remove_all(kFolder); }
  ~NewExtensionTest() override { std::filesystem::remove_all(kFolder); }

  static std::set<std::string> Files() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }

  static std::string Text(const std::string& name) {
    std::ifstream file(std::filesystem::path(kFolder) / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static constexpr wchar_t kFolder[] = L"new_extension_test-1";
};

TEST_F(NewExtensionTest, HasAProjectInTheLanguageThatWasAskedFor) {
  const struct {
    const wchar_t* option;
    const char* source;
    const char* languages;
  } kRows[] = {{L"", "extension.cpp", " LANGUAGES C CXX)"},
               {L" --cpp", "extension.cpp", " LANGUAGES C CXX)"},
               {L" --c", "extension.c", " LANGUAGES C)"}};
  for (const auto& row : kRows) {
    std::filesystem::remove_all(kFolder);
    const ProgramResult result =
        RunKovactl(std::wstring(L"new-extension ") + kFolder + row.option);
    EXPECT_EQ(result.exitCode, 0u) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("README.md"));
    EXPECT_EQ(Files(), (std::set<std::string>{"CMakeLists.txt", "README.md",
                                              "clang.cmake", "mingw-w64.cmake",
                                              "request.http", row.source}));
    EXPECT_THAT(Text("CMakeLists.txt"), HasSubstr(row.languages));
    for (const std::string& name : Files()) {
      EXPECT_THAT(Text(name), Not(HasSubstr("@"))) << name;
    }
    EXPECT_THAT(Text(row.source), HasSubstr("Hello from new_extension_test-1"));
  }
}

TEST_F(NewExtensionTest, HasARequestAsItIsSent) {
  RunKovactl(std::wstring(L"new-extension ") + kFolder);
  const std::string request = Text("request.http");
  const size_t end = request.find("\r\n\r\n");
  ASSERT_NE(end, std::string::npos);
  EXPECT_THAT(request,
              HasSubstr("\r\nContent-Length: " +
                        std::to_string(request.size() - end - 4) + "\r\n"));
}

TEST_F(NewExtensionTest, LeavesWhatIsThereAlone) {
  std::filesystem::create_directory(kFolder);
  ExpectRefusal(RunKovactl(std::wstring(L"new-extension ") + kFolder), 2,
                "already; choose another name");
  EXPECT_EQ(Files(), std::set<std::string>{});
}

TEST_F(NewExtensionTest, RefusesWhatIsNoName) {
  for (const wchar_t* const name : {L"1st", L"a b", L"a.b", L"_x", L"x\\-"}) {
    const auto failure = MakeExtension(name, Language::kC);
    ASSERT_TRUE(failure.has_value()) << name;
    EXPECT_EQ(failure->code, ExitCode::kWrongUsage);
    EXPECT_FALSE(std::filesystem::exists(name));
  }
  ExpectRefusal(RunKovactl(L"new-extension 1st"), 2,
                "no name for an extension");
  ExpectRefusal(RunKovactl(L"new-extension x --c --cpp"), 2, "--c");
  ExpectRefusal(RunKovactl(L"new-extension nowhere\\x"), 1,
                "cannot make the folder");
}

}  // namespace

// Unit: the first fault that makes the server answer 400.
#include "admin/printer_diagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

using ::kova::ctl::Diagnose;
using ::kova::ctl::Diagnosis;
using ::kova::ctl::ImageForm;
using ::kova::ctl::LibraryForm;
using ::kova::ctl::PackageForm;
using ::kova::ctl::PrinterFacts;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

PrinterFacts Sound() {
  PrinterFacts facts;
  facts.package = PackageForm::kFolder;
  facts.folder = L"C:\\Pkg";
  facts.libraryPath = L"C:\\Pkg\\Corvane_V3_NetMon.dll";
  facts.library = LibraryForm::kRead;
  facts.image.form = ImageForm::kSound;
  facts.image.machine = 0x8664;
  facts.image.exports = {"WSIE_GetInterfaceVersionsSupported",
                         "WSIE_SetKOVAServerRestartRoutine",
                         "WSIE_WebServerInitialize",
                         "WSIE_HandleServerRequest",
                         "WSIE_GetResponseLength",
                         "WSIE_GetResponse",
                         "WSIE_ReleaseResponse"};
  return facts;
}

PrinterFacts Without(const char* name) {
  PrinterFacts facts = Sound();
  std::erase(facts.image.exports, name);
  return facts;
}

TEST(Diagnose, FindsNoFaultInASoundLibrary) {
  const Diagnosis diagnosis = Diagnose(Sound());
  EXPECT_FALSE(diagnosis.HasFault());
  EXPECT_EQ(diagnosis.word, L"none");
  EXPECT_THAT(diagnosis.remarks, IsEmpty());
}

TEST(Diagnose, NamesEveryFaultOfThePackage) {
  const struct {
    PackageForm form;
    const wchar_t* word;
    const wchar_t* says;
  } kRows[] = {
      {PackageForm::kNoPrinter, L"no-printer", L"knows no printer"},
      {PackageForm::kAbsent, L"no-package", L"no printer data"},
      {PackageForm::kUnreadable, L"package-unreadable", L"error 1801"},
      {PackageForm::kOtherType, L"package-type", L"REG_BINARY"},
      {PackageForm::kTooLong, L"package-too-long", L"2047"},
      {PackageForm::kEmpty, L"package-empty", L"is empty"},
  };
  for (const auto& row : kRows) {
    PrinterFacts facts;
    facts.package = row.form;
    facts.packageError = ERROR_INVALID_PRINTER_NAME;
    facts.packageType = REG_BINARY;
    const Diagnosis diagnosis = Diagnose(facts);
    EXPECT_EQ(diagnosis.word, row.word);
    EXPECT_THAT(diagnosis.fault, HasSubstr(row.says));
    EXPECT_THAT(diagnosis.remarks, IsEmpty());
  }
}

TEST(Diagnose, TellsARefusedPrinterFromAnUnknownOne) {
  PrinterFacts facts;
  facts.packageError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Diagnose(facts).word, L"no-printer");
  EXPECT_THAT(Diagnose(facts).fault, HasSubstr(L"error 5"));
}

TEST(Diagnose, NamesEveryFaultOfTheFile) {
  const struct {
    LibraryForm form;
    const wchar_t* word;
  } kRows[] = {
      {LibraryForm::kRelative, L"folder-relative"},
      {LibraryForm::kNoFolder, L"no-folder"},
      {LibraryForm::kNoFile, L"no-library"},
      {LibraryForm::kUnreadable, L"library-unreadable"},
  };
  for (const auto& row : kRows) {
    PrinterFacts facts = Sound();
    facts.image = {};
    facts.library = row.form;
    EXPECT_EQ(Diagnose(facts).word, row.word);
    EXPECT_TRUE(Diagnose(facts).HasFault());
  }
}

TEST(Diagnose, NamesEveryFaultOfTheImage) {
  const struct {
    ImageForm form;
    const wchar_t* word;
  } kRows[] = {
      {ImageForm::kNoImage, L"no-image"},
      {ImageForm::kForeign, L"other-machine"},
      {ImageForm::kCutShort, L"cut-short"},
  };
  for (const auto& row : kRows) {
    PrinterFacts facts = Sound();
    facts.image.form = row.form;
    EXPECT_EQ(Diagnose(facts).word, row.word);
    EXPECT_THAT(Diagnose(facts).remarks, IsEmpty());
  }
}

TEST(Diagnose, NamesTheExportThatFailsFirst) {
  const struct {
    const char* name;
    const wchar_t* word;
  } kRows[] = {
      {"WSIE_GetInterfaceVersionsSupported", L"no-versions-export"},
      {"WSIE_HandleServerRequest", L"no-handle-export"},
      {"WSIE_GetResponseLength", L"no-length-export"},
      {"WSIE_GetResponse", L"no-copy-export"},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(Diagnose(Without(row.name)).word, row.word);
  }
  PrinterFacts none = Sound();
  none.image.exports.clear();
  EXPECT_EQ(Diagnose(none).word, L"no-versions-export");
  EXPECT_EQ(Diagnose(none).remarks.size(), 3u);
}

TEST(Diagnose, OnlyRemarksOnWhatDoesNotFail) {
  for (const char* name : {"WSIE_WebServerInitialize", "WSIE_ReleaseResponse",
                           "WSIE_SetKOVAServerRestartRoutine"}) {
    const Diagnosis diagnosis = Diagnose(Without(name));
    EXPECT_FALSE(diagnosis.HasFault()) << name;
    EXPECT_EQ(diagnosis.remarks.size(), 1u) << name;
  }
  PrinterFacts facts = Sound();
  facts.missingImports = {"other.dll"};
  EXPECT_EQ(Diagnose(facts).word, L"missing-import");
  EXPECT_THAT(Diagnose(facts).fault, HasSubstr(L"needs other.dll"));
}

}  // namespace

// Unit: reading libraries' files, sound and damaged; nothing is loaded.
#include "admin/image_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/windows_api.h"
#include "common/memory_file.h"
#include "common/random_access_file.h"
#include "test/support/test_extension.h"

namespace {

using ::kova::ctl::DiskFile;
using ::kova::ctl::ImageFacts;
using ::kova::ctl::ImageForm;
using ::kova::ctl::MachineText;
using ::kova::ctl::ReadImage;
using ::kova::ctl::test::MemoryFile;
using ::kova::test::ExtensionFolder;
using ::testing::Contains;

std::wstring Library(const wchar_t* extension) {
  return ExtensionFolder(extension) + L"\\Corvane_V3_NetMon.dll";
}

ImageFacts Read(const std::wstring& path) {
  DiskFile file;
  EXPECT_EQ(file.Open(path), static_cast<DWORD>(ERROR_SUCCESS));
  return ReadImage(file);
}

// The whole test library, to be damaged.
std::vector<uint8_t> Bytes() {
  DiskFile file;
  EXPECT_EQ(file.Open(Library(L"scripted")), static_cast<DWORD>(ERROR_SUCCESS));
  std::vector<uint8_t> bytes(static_cast<size_t>(file.SizeBytes()));
  EXPECT_TRUE(file.Read(0, bytes));
  return bytes;
}

ImageForm FormOf(std::vector<uint8_t> bytes) {
  return ReadImage(MemoryFile(std::move(bytes))).form;
}

size_t HeadersAt(const std::vector<uint8_t>& bytes) {
  uint32_t offset = 0;
  std::memcpy(&offset, bytes.data() + 60, sizeof(offset));
  return offset;
}

TEST(ImageFile, ListsExportsAndImports) {
  const ImageFacts facts = Read(Library(L"scripted"));
  EXPECT_EQ(facts.form, ImageForm::kSound);
  EXPECT_EQ(facts.machine, 0x8664);
  for (const char* name :
       {"WSIE_GetInterfaceVersionsSupported",
        "WSIE_SetKOVAServerRestartRoutine", "WSIE_WebServerInitialize",
        "WSIE_HandleServerRequest", "WSIE_GetResponseLength",
        "WSIE_GetResponse", "WSIE_ReleaseResponse"}) {
    EXPECT_TRUE(facts.Exports(name)) << name;
  }
  EXPECT_FALSE(facts.Exports("WSIE_GetResponseLengt"));
  EXPECT_FALSE(facts.Exports("WSIE_GetResponseLengthX"));
  EXPECT_THAT(facts.imports, Contains("KERNEL32.dll"));
}

TEST(ImageFile, MissesAnExportThatIsNotThere) {
  const ImageFacts facts = Read(Library(L"no_length"));
  EXPECT_EQ(facts.form, ImageForm::kSound);
  EXPECT_FALSE(facts.Exports("WSIE_GetResponseLength"));
  EXPECT_TRUE(facts.Exports("WSIE_GetResponse"));
}

TEST(ImageFile, TellsOtherFilesFromImages) {
  EXPECT_EQ(FormOf({}), ImageForm::kNoImage);
  EXPECT_EQ(FormOf({'M'}), ImageForm::kNoImage);
  EXPECT_EQ(FormOf(std::vector<uint8_t>(4096, 0)), ImageForm::kNoImage);
  std::vector<uint8_t> bytes = Bytes();
  bytes[0] = 'X';
  EXPECT_EQ(FormOf(bytes), ImageForm::kNoImage);
  bytes[0] = 'M';
  bytes[HeadersAt(bytes) + 2] = 1;
  EXPECT_EQ(FormOf(bytes), ImageForm::kNoImage);
}

TEST(ImageFile, NamesTheMachineOfAForeignImage) {
  std::vector<uint8_t> bytes = Bytes();
  const size_t machine = HeadersAt(bytes) + 4;
  bytes[machine] = 0x4C;
  bytes[machine + 1] = 0x01;
  const ImageFacts facts = ReadImage(MemoryFile(bytes));
  EXPECT_EQ(facts.form, ImageForm::kForeign);
  EXPECT_EQ(MachineText(facts.machine), L"32-bit (x86)");
  EXPECT_EQ(MachineText(0xAA64), L"64-bit (ARM64)");
  EXPECT_EQ(MachineText(0x1C4), L"machine type 0x01c4");
}

// What stands behind the last section is not needed.
TEST(ImageFile, IsNeverSoundWhenCutShort) {
  const std::vector<uint8_t> whole = Bytes();
  ASSERT_EQ(FormOf(whole), ImageForm::kSound);
  for (size_t size = 0; size < whole.size() - 1;
       size += size < 2048 ? 1 : 4099) {
    const ImageFacts facts = ReadImage(MemoryFile(
        {whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)}));
    EXPECT_NE(facts.form, ImageForm::kSound) << size;
    EXPECT_TRUE(facts.exports.empty()) << size;
  }
}

TEST(ImageFile, SurvivesAnyByteOfItsHeadersBeingDamaged) {
  const std::vector<uint8_t> whole = Bytes();
  for (size_t at = 0; at < 1024; ++at) {
    for (const uint8_t byte : {0x00, 0x7F, 0xFF}) {
      std::vector<uint8_t> bytes = whole;
      bytes[at] = byte;
      const ImageFacts facts = ReadImage(MemoryFile(std::move(bytes)));
      EXPECT_LE(facts.exports.size(), 65536u) << at;
    }
  }
}

}  // namespace

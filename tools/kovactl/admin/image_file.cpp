#include "admin/image_file.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "base/ascii.h"
#include "base/windows_api.h"
#include "common/plain_text.h"
#include "common/utf8.h"

namespace kova::ctl {
namespace {

// More than any real library has, and still quickly read.
constexpr uint32_t kMostExports = 65536;
constexpr uint32_t kMostImports = 4096;
constexpr size_t kMostNameBytes = 256;

// What IMAGE_NT_HEADERS begins with on every machine.
struct SharedHeaders {
  DWORD signature;
  IMAGE_FILE_HEADER file;
};

class ImageReader {
 public:
  explicit ImageReader(const RandomAccessFile& file) : m_file(file) {}

  ImageFacts Read() {
    ImageFacts facts;
    facts.form = ReadHeaders();
    if (facts.form != ImageForm::kNoImage) {
      facts.machine = m_headers.FileHeader.Machine;
    }
    if (facts.form != ImageForm::kSound) return facts;
    if (!ReadSections() || !ReadExports(facts.exports) ||
        !ReadImports(facts.imports)) {
      return {ImageForm::kCutShort, facts.machine, {}, {}};
    }
    return facts;
  }

 private:
  // The parts of the headers that all machines share come first, so that an
  // image for another machine is told from no image.
  ImageForm ReadHeaders() {
    const auto dos = m_file.At<IMAGE_DOS_HEADER>(0);
    if (!dos || dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew < 0) {
      return ImageForm::kNoImage;
    }
    m_headersAt = static_cast<uint64_t>(dos->e_lfanew);
    const auto shared = m_file.At<SharedHeaders>(m_headersAt);
    if (!shared || shared->signature != IMAGE_NT_SIGNATURE) {
      return ImageForm::kNoImage;
    }
    m_headers.FileHeader = shared->file;
    if (shared->file.Machine != IMAGE_FILE_MACHINE_AMD64) {
      return ImageForm::kForeign;
    }
    const auto headers = m_file.At<IMAGE_NT_HEADERS64>(m_headersAt);
    if (!headers ||
        headers->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC) {
      return ImageForm::kCutShort;
    }
    m_headers = *headers;
    return ImageForm::kSound;
  }

  bool ReadSections() {
    uint64_t at = m_headersAt + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) +
                  m_headers.FileHeader.SizeOfOptionalHeader;
    for (int i = 0; i < m_headers.FileHeader.NumberOfSections; ++i) {
      const auto section = m_file.At<IMAGE_SECTION_HEADER>(at);
      if (!section) return false;
      const uint64_t end =
          uint64_t{section->PointerToRawData} + section->SizeOfRawData;
      if (end > m_file.SizeBytes()) return false;
      m_sections.push_back(*section);
      at += sizeof(*section);
    }
    return true;
  }

  // Where the file holds what the loaded image has at `address`.
  [[nodiscard]] std::optional<uint64_t> OffsetOf(uint32_t address) const {
    if (address < m_headers.OptionalHeader.SizeOfHeaders) return address;
    for (const IMAGE_SECTION_HEADER& section : m_sections) {
      const uint32_t within = address - section.VirtualAddress;
      if (address >= section.VirtualAddress && within < section.SizeOfRawData) {
        return uint64_t{section.PointerToRawData} + within;
      }
    }
    return std::nullopt;
  }

  template <typename T>
  [[nodiscard]] std::optional<T> AtAddress(uint64_t address) const {
    if (address > UINT32_MAX) return std::nullopt;
    const auto offset = OffsetOf(static_cast<uint32_t>(address));
    return offset ? m_file.At<T>(*offset) : std::nullopt;
  }

  // A text up to its zero, or its first kMostNameBytes.
  [[nodiscard]] bool ReadName(uint32_t address, std::string& name) const {
    const auto offset = OffsetOf(address);
    if (!offset || *offset >= m_file.SizeBytes()) return false;
    name.resize(static_cast<size_t>(
        std::min<uint64_t>(kMostNameBytes, m_file.SizeBytes() - *offset)));
    if (!m_file.Read(*offset,
                     {reinterpret_cast<uint8_t*>(name.data()), name.size()})) {
      return false;
    }
    name.resize(::strnlen(name.data(), name.size()));
    return true;
  }

  // The address of a table of the image; 0 if it has none.
  [[nodiscard]] uint32_t TableAddress(uint32_t index) const {
    return index < m_headers.OptionalHeader.NumberOfRvaAndSizes
               ? m_headers.OptionalHeader.DataDirectory[index].VirtualAddress
               : 0;
  }

  bool ReadExports(std::vector<std::string>& names) const {
    const uint32_t at = TableAddress(IMAGE_DIRECTORY_ENTRY_EXPORT);
    if (at == 0) return true;
    const auto table = AtAddress<IMAGE_EXPORT_DIRECTORY>(at);
    if (!table || table->NumberOfNames > kMostExports) return false;
    for (uint64_t i = 0; i < table->NumberOfNames; ++i) {
      const auto nameAt =
          AtAddress<uint32_t>(table->AddressOfNames + i * sizeof(uint32_t));
      if (!nameAt || !ReadName(*nameAt, names.emplace_back())) return false;
    }
    return true;
  }

  bool ReadImports(std::vector<std::string>& names) const {
    const uint32_t at = TableAddress(IMAGE_DIRECTORY_ENTRY_IMPORT);
    if (at == 0) return true;
    for (uint64_t i = 0; i < kMostImports; ++i) {
      const auto row = AtAddress<IMAGE_IMPORT_DESCRIPTOR>(
          at + i * sizeof(IMAGE_IMPORT_DESCRIPTOR));
      if (!row) return false;
      if (row->Name == 0) return true;
      if (!ReadName(row->Name, names.emplace_back())) return false;
    }
    return false;
  }

  const RandomAccessFile& m_file;
  uint64_t m_headersAt = 0;
  IMAGE_NT_HEADERS64 m_headers{};
  std::vector<IMAGE_SECTION_HEADER> m_sections;
};

// The names of contracts that the loader maps to other libraries.
bool IsApiSet(const std::string& library) {
  const std::string_view start = std::string_view(library).substr(0, 4);
  return EqualsNoCase(start, "api-") || EqualsNoCase(start, "ext-");
}

}  // namespace

bool ImageFacts::Exports(const char* name) const {
  return std::ranges::find(exports, name) != exports.end();
}

ImageFacts ReadImage(const RandomAccessFile& file) {
  return ImageReader(file).Read();
}

std::vector<std::string> MissingImports(const ImageFacts& image) {
  std::vector<std::string> missing;
  for (const std::string& library : image.imports) {
    wchar_t found[MAX_PATH] = {};
    if (!IsApiSet(library) &&
        ::SearchPathW(nullptr, ToWide(library).c_str(), L".dll", MAX_PATH,
                      found, nullptr) == 0) {
      missing.push_back(library);
    }
  }
  return missing;
}

std::wstring MachineText(uint16_t machine) {
  switch (machine) {
    case IMAGE_FILE_MACHINE_AMD64:
      return L"64-bit (x64)";
    case IMAGE_FILE_MACHINE_I386:
      return L"32-bit (x86)";
    case IMAGE_FILE_MACHINE_ARM64:
      return L"64-bit (ARM64)";
    default:
      return L"machine type " + HexText(machine, 4);
  }
}

}  // namespace kova::ctl

#include "author/new_extension.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "author/template_files.h"
#include "base/windows_api.h"
#include "common/file_path.h"
#include "common/utf8.h"

namespace kova::ctl {
namespace {

bool IsLetter(wchar_t c) {
  return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
}

// What CMake, make and C sources all take for a name.
bool IsName(std::wstring_view name) {
  return !name.empty() && IsLetter(name.front()) &&
         std::ranges::all_of(name, [](wchar_t c) {
           return IsLetter(c) || (c >= L'0' && c <= L'9') || c == L'_' ||
                  c == L'-';
         });
}

void Replace(std::string& text, std::string_view place,
             std::string_view value) {
  for (size_t at = text.find(place); at != std::string::npos;
       at = text.find(place, at + value.size())) {
    text.replace(at, place.size(), value);
  }
}

bool WriteFile(const std::wstring& path, std::string_view text) {
  std::ofstream file(std::filesystem::path(path), std::ios::binary);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  return !file.flush().fail();
}

// The text that `file` gets; what is sent has the line ends of the network.
std::string Filled(const TemplateFile& file, std::string_view name,
                   Language language) {
  std::string text = file.text;
  Replace(text, "@NAME@", name);
  Replace(text, "@SOURCE@",
          language == Language::kC ? "extension.c" : "extension.cpp");
  Replace(text, "@LANGUAGES@", language == Language::kC ? "C" : "C CXX");
  if (std::string_view(file.name).ends_with(".http")) {
    Replace(text, "\n", "\r\n");
  }
  return text;
}

}  // namespace

std::optional<Failure> MakeExtension(const std::wstring& path,
                                     Language language) {
  const std::wstring folder = FullPath(path);
  const std::wstring name = FileName(folder);
  if (!IsName(name)) {
    return Failure{ExitCode::kWrongUsage,
                   L"\"" + name +
                       L"\" is no name for an extension; begin with a letter, "
                       L"and use letters, digits, _ and - alone"};
  }
  if (!::CreateDirectoryW(folder.c_str(), nullptr)) {
    const DWORD error = ::GetLastError();
    return error == ERROR_ALREADY_EXISTS
               ? Failure{ExitCode::kWrongUsage,
                         L"there is a " + folder +
                             L" already; choose another name"}
               : SystemFailure(ExitCode::kInternalError,
                               L"cannot make the folder " + folder, error);
  }
  const char* const other =
      language == Language::kC ? "extension.cpp" : "extension.c";
  for (size_t i = 0; i < kTemplateFileCount; ++i) {
    const TemplateFile& file = kTemplateFiles[i];
    if (std::string_view(file.name) == other) continue;
    const std::wstring target = folder + L"\\" + ToWide(file.name);
    if (!WriteFile(target, Filled(file, ToUtf8(name), language))) {
      return Failure{ExitCode::kInternalError,
                     L"cannot write " + target + L"; is the disk full?"};
    }
  }
  return std::nullopt;
}

}  // namespace kova::ctl

#include "check/input_file.h"

#include <cstring>

#include "base/handles.h"
#include "common/file_path.h"
#include "http/http_request.h"
#include "kova/extension.h"

namespace kova::ctl::check {
namespace {

// Enough for the headers of any image that linkers make.
constexpr size_t kHeaderBytes = 4096;

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES &&
         (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::string ReadBytes(const std::wstring& path, size_t most) {
  const UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      0, nullptr));
  std::string bytes;
  char buffer[kHeaderBytes];
  DWORD count = 0;
  while (file.IsValid() && bytes.size() < most &&
         ::ReadFile(file.Get(), buffer, sizeof(buffer), &count, nullptr) &&
         count > 0) {
    bytes.append(buffer, count);
  }
  return bytes;
}

// The machine that an image is built for; IMAGE_FILE_MACHINE_UNKNOWN if the
// bytes begin no image.
WORD MachineOf(const std::string& bytes) {
  IMAGE_DOS_HEADER dos{};
  if (bytes.size() < sizeof(dos)) return IMAGE_FILE_MACHINE_UNKNOWN;
  std::memcpy(&dos, bytes.data(), sizeof(dos));
  DWORD signature = 0;
  IMAGE_FILE_HEADER header{};
  const auto at = static_cast<size_t>(static_cast<DWORD>(dos.e_lfanew));
  if (dos.e_magic != IMAGE_DOS_SIGNATURE ||
      at + sizeof(signature) + sizeof(header) > bytes.size()) {
    return IMAGE_FILE_MACHINE_UNKNOWN;
  }
  std::memcpy(&signature, bytes.data() + at, sizeof(signature));
  std::memcpy(&header, bytes.data() + at + sizeof(signature), sizeof(header));
  return signature == IMAGE_NT_SIGNATURE ? header.Machine
                                         : IMAGE_FILE_MACHINE_UNKNOWN;
}

}  // namespace

std::wstring LibraryPath(const std::wstring& path) {
  std::wstring full = FullPath(path);
  if (!IsFolder(full)) return full;
  return full + (full.ends_with(L'\\') ? L"" : L"\\") +
         KOVA_EXTENSION_FILE_NAME;
}

std::optional<Failure> CheckLibraryFile(const std::wstring& path) {
  if (!FileExists(path)) {
    return Failure{ExitCode::kMissingFile,
                   L"there is no library " + path +
                       L"; name the file or the package folder it is in"};
  }
  const WORD machine = MachineOf(ReadBytes(path, kHeaderBytes));
  if (machine == IMAGE_FILE_MACHINE_AMD64) return std::nullopt;
  if (machine == IMAGE_FILE_MACHINE_UNKNOWN) {
    return Failure{ExitCode::kUnsuitableLibrary,
                   path + L" is not a library; name a 64-bit DLL"};
  }
  return Failure{ExitCode::kUnsuitableLibrary,
                 path +
                     L" is built for another machine; the server loads "
                     L"64-bit x86 libraries alone, so build it for x64"};
}

std::optional<Failure> CheckRequestFile(const std::wstring& path) {
  if (!FileExists(path)) {
    return Failure{ExitCode::kMissingFile,
                   L"there is no request file " + path +
                       L"; write the request's bytes to it"};
  }
  const std::string bytes = ReadWholeFile(path);
  HTTPRequest request;
  if (request.Parse(bytes.data(), static_cast<int32_t>(bytes.size()), false)) {
    return std::nullopt;
  }
  return Failure{ExitCode::kWrongUsage,
                 path +
                     L" does not hold a whole request, so the server would "
                     L"wait for more; end its headers with an empty line and "
                     L"see that Content-Length is not more than the body"};
}

std::string ReadWholeFile(const std::wstring& path) {
  return ReadBytes(path, std::string::npos);
}

}  // namespace kova::ctl::check

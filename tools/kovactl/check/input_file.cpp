#include "check/input_file.h"

#include "admin/image_file.h"
#include "common/file_path.h"
#include "common/random_access_file.h"
#include "common/utf8.h"
#include "http/http_request.h"
#include "kova/extension.h"

namespace kova::ctl::check {

std::wstring LibraryPath(const std::wstring& path) {
  std::wstring full = FullPath(path);
  if (!FolderExists(full)) return full;
  return full + (full.ends_with(L'\\') ? L"" : L"\\") +
         KOVA_EXTENSION_FILE_NAME;
}

std::optional<Failure> CheckLibraryFile(const std::wstring& path) {
  if (!FileExists(path)) {
    return Failure{ExitCode::kMissingFile,
                   L"there is no library " + path +
                       L"; name the file or the package folder it is in"};
  }
  DiskFile file;
  const DWORD error = file.Open(path);
  if (error != ERROR_SUCCESS) {
    return SystemFailure(ExitCode::kUnsuitableLibrary, L"cannot read " + path,
                         error);
  }
  const ImageFacts image = ReadImage(file);
  switch (image.form) {
    case ImageForm::kSound:
      return std::nullopt;
    case ImageForm::kNoImage:
      return Failure{ExitCode::kUnsuitableLibrary,
                     path + L" is not a library; name a 64-bit DLL"};
    case ImageForm::kCutShort:
      return Failure{ExitCode::kUnsuitableLibrary,
                     path + L" is damaged or cut short; build it again"};
    case ImageForm::kForeign:
      break;
  }
  return Failure{ExitCode::kUnsuitableLibrary,
                 path + L" is " + MachineText(image.machine) +
                     L"; the server loads 64-bit x86 libraries alone, so build "
                     L"it for x64"};
}

Failure CannotLoad(const std::wstring& path, DWORD error) {
  const std::wstring what = L"cannot load " + path;
  if (error != ERROR_MOD_NOT_FOUND) {
    return SystemFailure(ExitCode::kUnsuitableLibrary,
                         what + L"; see that its DllMain returns TRUE", error);
  }
  std::wstring needed;
  DiskFile file;
  if (file.Open(path) == ERROR_SUCCESS) {
    for (const std::string& library : MissingImports(ReadImage(file))) {
      needed += (needed.empty() ? L"" : L", ") + ToWide(library);
    }
  }
  return {ExitCode::kUnsuitableLibrary,
          what + L": a library that it needs was not found" +
              (needed.empty() ? L"" : L", " + needed) +
              L"; link that one statically, for Windows does not look beside "
              L"the extension"};
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
  DiskFile file;
  if (file.Open(path) != ERROR_SUCCESS) return {};
  std::string bytes(static_cast<size_t>(file.SizeBytes()), '\0');
  const bool read =
      file.Read(0, {reinterpret_cast<uint8_t*>(bytes.data()), bytes.size()});
  return read ? bytes : std::string();
}

}  // namespace kova::ctl::check

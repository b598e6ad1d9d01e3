#include "author/loaded_extension.h"

#include <algorithm>
#include <iterator>

#include "common/exit_code.h"

namespace kova::ctl {
namespace {

bool SpeaksVersionOne(const check::Extension& extension) {
  uint32_t versions[10] = {};
  if (extension.versions == nullptr) return false;
  extension.versions(versions, 10);
  return std::ranges::find(versions, KOVA_INTERFACE_VERSION) !=
         std::end(versions);
}

}  // namespace

std::wstring LoadExtension(const std::wstring& path,
                           KOVA_RestartRoutine* restart,
                           check::Extension& extension) {
  extension = {};
  extension.module = ::LoadLibraryW(path.c_str());
  if (extension.module == nullptr) {
    const DWORD error = ::GetLastError();
    return L"does not load: " + SystemErrorText(error);
  }
  check::FindFunctions(extension);
  if (!SpeaksVersionOne(extension)) return L"does not speak version 1";
  if (extension.setRestart != nullptr && restart != nullptr) {
    extension.setRestart(restart);
  }
  if (extension.initialize == nullptr) return {};
  extension.context = extension.initialize();
  return extension.context == nullptr ? L"does not initialise" : L"";
}

}  // namespace kova::ctl

#include "run/forwarded_library.h"

#include <atomic>
#include <system_error>
#include <utility>

#include "author/loaded_extension.h"

namespace kova::ctl {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kCopiesName[] = L"kovactl-watch-";

// A new name for a copy; its folder is made. The library keeps its name.
fs::path NewCopyPath(const fs::path& library) {
  static std::atomic<unsigned> count{0};
  const fs::path folder =
      fs::temp_directory_path() /
      (kCopiesName + std::to_wstring(::GetCurrentProcessId())) /
      std::to_wstring(++count);
  std::error_code error;
  fs::create_directories(folder, error);
  return folder / library.filename();
}

}  // namespace

ForwardedLibrary::ForwardedLibrary(const check::Extension& extension)
    : m_current(std::make_shared<const check::Extension>(extension)) {}

ForwardedLibrary::ForwardedLibrary(std::wstring path, LinePump& pump)
    : m_path(std::move(path)), m_pump(&pump) {}

void ForwardedLibrary::SetRestart(KOVA_RestartRoutine* routine) {
  const std::lock_guard held(m_mutex);
  m_restart = routine;
  if (!IsWatched() && m_current->setRestart != nullptr) {
    m_current->setRestart(routine);
  }
}

bool ForwardedLibrary::Initialize() {
  const std::lock_guard held(m_mutex);
  if (IsWatched()) return true;
  if (m_current->initialize == nullptr) return true;
  check::Extension extension = *m_current;
  extension.context = extension.initialize();
  m_current = std::make_shared<const check::Extension>(extension);
  return extension.context != nullptr;
}

std::shared_ptr<const check::Extension> ForwardedLibrary::Current() {
  const std::lock_guard held(m_mutex);
  if (IsWatched()) LookForBuild();
  return m_current;
}

// A file that cannot be copied is being written: the next request tries again.
void ForwardedLibrary::LookForBuild() {
  std::error_code error;
  const auto time = fs::last_write_time(m_path, error);
  if (error || time == m_seen) return;
  const fs::path copy = NewCopyPath(m_path);
  if (!::CopyFileW(m_path.c_str(), copy.c_str(), TRUE)) return;
  m_seen = time;
  const bool isFirst = m_current == nullptr;
  const std::wstring failure = Load(copy.wstring());
  if (!failure.empty()) {
    m_pump->PushNotice(L"The build at " + m_path + L" " + failure +
                       (isFirst ? L"." : L"; the one before goes on."));
  } else if (!isFirst) {
    m_pump->PushNotice(L"A new build of " + m_path + L" answers from now on.");
  }
}

// Loads a build as the server would, and makes it the current one. Returns what
// is wrong with it, if anything. Builds are never unloaded: no call would end
// their threads.
std::wstring ForwardedLibrary::Load(const std::wstring& copy) {
  check::Extension extension;
  std::wstring failure = LoadExtension(copy, m_restart, extension);
  if (!failure.empty()) return failure;
  m_current = std::make_shared<const check::Extension>(extension);
  return {};
}

void RemoveOldCopies() {
  std::error_code error;
  for (const auto& entry :
       fs::directory_iterator(fs::temp_directory_path(error), error)) {
    if (!entry.path().filename().wstring().starts_with(kCopiesName)) continue;
    // What another run has loaded cannot be removed on Windows.
    fs::remove_all(entry.path(), error);
  }
}

}  // namespace kova::ctl

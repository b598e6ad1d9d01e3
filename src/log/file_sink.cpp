#include "log/sinks.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "base/handles.h"
#include "base/kernel_lock.h"
#include "base/this_computer.h"
#include "text/date_text.h"

namespace kova {
namespace {

constexpr wchar_t kLogFolder[] = L"C:\\Log Files";

// Everything a file sink was given. The text grows into a new block before it
// lets go of the old one, so a thread that stops half way leaves it whole.
struct GatheredText {
  KernelLock lock;
  std::wstring text KOVA_GUARDED_BY(lock);
};

UniqueFile CreateMissingFile(const std::wstring& path) {
  return UniqueFile(
      ::CreateFileW(path.c_str(), GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
}

void Append(GatheredText& gathered, const std::wstring& stamped) {
  // Deliberate: no line end between entries, and the text is never emptied.
  gathered.lock.Hold(
      [&]() KOVA_REQUIRES(gathered.lock) { gathered.text += stamped; });
}

std::wstring CopyOf(GatheredText& gathered) {
  std::wstring text;
  gathered.lock.Hold(
      [&]() KOVA_REQUIRES(gathered.lock) { text = gathered.text; });
  return text;
}

void WriteGathered(HANDLE file, const std::wstring& text) {
  // Deliberate: the number of characters plus one is taken as a number of
  // bytes, so the file receives the first half of the text's bytes plus one.
  const size_t most = std::numeric_limits<DWORD>::max();
  const size_t lengthBytes = std::min(text.size() + 1, most);
  DWORD written = 0;
  ::WriteFile(file, text.c_str(), static_cast<DWORD>(lengthBytes), &written,
              nullptr);
}

void LeaveInFile(const std::wstring& path, GatheredText& gathered,
                 tk::Logger* logger, const std::wstring& line) {
  if ((logger->RefreshMask() & tk::kFileSinkOn) == 0) return;
  Append(gathered, LocalTimeText(CurrentTimeSeconds()) + L" -- " + line);
  const UniqueFile file = CreateMissingFile(path);
  // Deliberate: a file that exists already is left as it is.
  if (!file.IsValid()) return;
  WriteGathered(file.Get(), CopyOf(gathered));
}

}  // namespace

std::wstring LogFilePath(const std::wstring& loggerName) {
  return std::wstring(kLogFolder) + L"\\" + loggerName + L".txt";
}

void MakeSureOfLogFolder() {
  const DWORD attributes = ::GetFileAttributesW(kLogFolder);
  if (attributes == INVALID_FILE_ATTRIBUTES ||
      (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    ::CreateDirectoryW(kLogFolder, nullptr);
  }
}

tk::LogSink MakeFileSink(tk::Logger* logger) {
  const std::wstring path = LogFilePath(logger->Name());
  const auto gathered = std::make_shared<GatheredText>();
  return [path, gathered](tk::Logger* sender, tk::LogChannel /*channel*/,
                          const std::wstring& line) {
    LeaveInFile(path, *gathered, sender, line);
  };
}

}  // namespace kova

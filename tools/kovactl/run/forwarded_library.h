// The author's library behind the functions that the server calls.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "check/extension.h"
#include "run/line_pump.h"

namespace kova::ctl {

// One library that the server has loaded, or thinks that it has. Never goes
// away: its contexts live as long as the process. Any thread.
class ForwardedLibrary {
 public:
  // What the server loaded itself, already found.
  explicit ForwardedLibrary(const check::Extension& extension);

  // The newest build at `path`, which is loaded from copies of the file, so
  // that it can be written at any time. `pump` hears of builds.
  ForwardedLibrary(std::wstring path, LinePump& pump);

  [[nodiscard]] bool IsWatched() const { return m_pump != nullptr; }

  // Hands the routine over, and to each later build.
  void SetRestart(KOVA_RestartRoutine* routine);
  // Initialises what the server loaded; false if that fails.
  [[nodiscard]] bool Initialize();

  // What is to answer the next request; null if no build works so far. Looks
  // for a newer one first, if it is watched.
  [[nodiscard]] std::shared_ptr<const check::Extension> Current();

 private:
  void LookForBuild();
  [[nodiscard]] std::wstring Load(const std::wstring& copy);

  const std::wstring m_path;  // empty unless it is watched
  LinePump* const m_pump = nullptr;
  std::mutex m_mutex;
  KOVA_RestartRoutine* m_restart = nullptr;
  std::filesystem::file_time_type m_seen{};
  std::shared_ptr<const check::Extension> m_current;
};

// Removes the copies of runs that are over. Those of this run stay loaded.
void RemoveOldCopies();

}  // namespace kova::ctl

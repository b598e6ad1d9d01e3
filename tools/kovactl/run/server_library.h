// The server's library, loaded.
#pragma once

#include <optional>
#include <string>

#include "base/handles.h"
#include "common/exit_code.h"
#include "kova/server.h"

namespace kova::ctl {

// Owns the loaded library; unloads it when destroyed, which requires that the
// server was stopped. One thread at a time.
class ServerLibrary {
 public:
  // Loads `path` and finds its two functions.
  [[nodiscard]] std::optional<Failure> Load(const std::wstring& path);

  // Only after a successful Load.
  [[nodiscard]] HMODULE Module() const { return m_module.Get(); }
  void Start() const { m_start(); }
  void Stop() const { m_stop(); }

 private:
  UniqueModule m_module;
  KOVA_StartServer* m_start = nullptr;
  KOVA_StopServer* m_stop = nullptr;
};

}  // namespace kova::ctl

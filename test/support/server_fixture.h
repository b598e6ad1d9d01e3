// The built server library, loaded and run as a host does.
#pragma once

#include <cstdint>
#include <string>

#include "base/handles.h"
#include "base/windows_api.h"
#include "kova/server.h"
#include "test/support/server_settings_scope.h"

namespace kova::test {

// A TCP port that nobody has at this moment, and that no client will be given
// as its own; 0 if none was found. Called on one thread.
[[nodiscard]] uint16_t FreePort();

// The folder of the test program, without a backslash at the end.
[[nodiscard]] std::wstring TestProgramFolder();

// ../bin/KOVAServer.dll, seen from the test program.
[[nodiscard]] std::wstring ServerLibraryPath();

// Loads the server library, with settings of its own: a free port, everything
// else absent. Nothing runs until Start(). Stops and unloads at the end, so
// that the next server starts with no state of this one; then the settings are
// what they were. For use as a member or a base of a test fixture; at most one
// may live at a time.
//
// Patches and captures for Module() must be destroyed before this object, so
// declare them after it.
class ServerFixture {
 public:
  ServerFixture();
  ~ServerFixture();

  ServerFixture(const ServerFixture&) = delete;
  ServerFixture& operator=(const ServerFixture&) = delete;

  // Whether the library was loaded; all the others need it.
  [[nodiscard]] bool IsLoaded() const { return m_stop != nullptr; }
  [[nodiscard]] HMODULE Module() const { return m_module.Get(); }
  [[nodiscard]] ServerSettingsScope& Settings() { return m_settings; }
  // The port that the settings name; what the server listens on after Start().
  [[nodiscard]] uint16_t Port() const { return m_port; }
  // Names another port in the settings; a restart or the next start uses it.
  void UsePort(uint16_t port);

  // The two exports, called on the calling thread.
  void Start();
  void Stop();
  // Gives the reference to the library back; Stop() first. The library's last
  // threads drop theirs as they end, so this waits until it is gone. False if
  // it stays loaded for long.
  bool Unload();

  // Whether a connection to the port is accepted.
  [[nodiscard]] bool IsListening() const;

 private:
  ServerSettingsScope m_settings;
  uint16_t m_port = 0;
  UniqueModule m_module;
  KOVA_StartServer* m_start = nullptr;
  KOVA_StopServer* m_stop = nullptr;
};

}  // namespace kova::test

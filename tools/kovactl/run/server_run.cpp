#include "run/server_run.h"

#include "base/handles.h"
#include "common/file_path.h"
#include "common/plain_text.h"
#include "common/server_settings.h"
#include "common/stop_signal.h"
#include "kova/extension.h"
#include "kova/server.h"
#include "log/logger.h"
#include "log/server_logger.h"
#include "run/borrowed_value.h"
#include "run/debug_output_hook.h"
#include "run/demo_printer.h"
#include "run/forwarding.h"
#include "run/line_pump.h"
#include "run/listen_check.h"
#include "server/server_settings.h"

namespace kova::ctl {
namespace {

template <typename Function>
Function* Find(HMODULE module, const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

// The server's library, loaded; unloaded when this is destroyed, which requires
// that the server was stopped.
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

std::optional<Failure> ServerLibrary::Load(const std::wstring& path) {
  const std::wstring full = FullPath(path);
  if (!FileExists(full)) {
    return Failure{ExitCode::kMissingFile,
                   L"there is no library " + full +
                       L"; build it, or name the one to run with --dll"};
  }
  UniqueModule module(::LoadLibraryW(full.c_str()));
  if (!module.IsValid()) {
    const DWORD error = ::GetLastError();
    return SystemFailure(ExitCode::kUnsuitableLibrary,
                         L"cannot load " + full +
                             L" as a 64-bit library; name another with --dll",
                         error);
  }
  m_start = Find<KOVA_StartServer>(module.Get(), "StartKOVAServer");
  m_stop = Find<KOVA_StopServer>(module.Get(), "StopKOVAServer");
  if (m_start == nullptr || m_stop == nullptr) {
    return Failure{ExitCode::kUnsuitableLibrary,
                   full +
                       L" does not export StartKOVAServer and "
                       L"StopKOVAServer; name the server with --dll"};
  }
  m_module = std::move(module);
  return std::nullopt;
}

std::wstring LibraryPath(const RunOptions& options) {
  return options.library.empty() ? ProgramFolder() + L"\\KOVAServer.dll"
                                 : options.library;
}

// The user may name the library in the folder, too.
std::wstring PackageFolder(const RunOptions& options) {
  if (options.package.empty()) return ProgramFolder() + L"\\sample-extension";
  std::wstring full = FullPath(options.package);
  const std::wstring name = FileName(full);
  if (!SameName(name, KOVA_EXTENSION_FILE_NAME)) return full;
  return full.substr(0, full.size() - name.size() - 1);
}

std::optional<Failure> SetPort(BorrowedValue& portValue, uint32_t port) {
  const LSTATUS status = portValue.Set(port);
  if (status == ERROR_SUCCESS) return std::nullopt;
  return SystemFailure(ExitCode::kInternalError,
                       L"cannot set the server's port in the registry",
                       static_cast<unsigned long>(status));
}

// Without it the run is less talkative, but still a run.
void SetLogMask(BorrowedValue& maskValue, bool verbose, LinePump& pump) {
  if (maskValue.Set(LogMaskForRun(ReadLogMask(), verbose)) != ERROR_SUCCESS) {
    pump.PushNotice(
        L"The log masks cannot be changed without administrator rights: only "
        L"errors and warnings are shown.");
  }
}

void TellWhatWasReturned(const std::vector<std::wstring>& names,
                         LinePump& pump) {
  for (const std::wstring& name : names) {
    pump.PushNotice(L"An earlier run was cut off and had not put back \"" +
                    name + L"\"; that is done now.");
  }
}

void TellWhatToTry(uint32_t port, LinePump& pump) {
  const std::wstring url = L"http://127.0.0.1:" + std::to_wstring(port) + L"/";
  pump.PushNotice(L"Try, in a browser or another terminal:");
  pump.PushNotice(L"  " + url + L"?printer=Demo+Printer");
  pump.PushNotice(L"  curl '" + url + L"?printer=Demo+Printer'");
  pump.PushNotice(L"  curl -d text=hello '" + url + L"?share=demo'");
}

void TellThatItRuns(const RunOptions& options, uint32_t port, LinePump& pump) {
  if (options.demo) TellWhatToTry(port, pump);
  std::wstring until = L"Ctrl-C stops it.";
  if (options.seconds) {
    until = L"It stops after " + std::to_wstring(*options.seconds) +
            L" s, or on Ctrl-C.";
  }
  pump.PushNotice(L"The server listens on port " + std::to_wstring(port) +
                  L". " + until);
}

void StopTimed(const ServerLibrary& library, LinePump& pump) {
  pump.PushNotice(L"Stopping ...");
  const ULONGLONG start = ::GetTickCount64();
  library.Stop();
  pump.PushNotice(L"Stopped in " + std::to_wstring(::GetTickCount64() - start) +
                  L" ms.");
}

// From start to stop, with everything prepared.
std::optional<Failure> StartAndStop(const RunOptions& options,
                                    const ServerLibrary& library,
                                    const StopSignal& stop, Traffic& traffic,
                                    LinePump& pump) {
  const bool withBodies =
      !options.traffic.recordFolder.empty() && options.traffic.withBodies;
  Forwarding forwarding(library.Module(), {withBodies, options.watch}, traffic,
                        pump);
  if (!forwarding.IsInstalled()) {
    pump.PushNotice(
        L"This library's requests cannot be shown: it does not import "
        L"LoadLibraryW and GetProcAddress.");
  }
  const DebugOutputHook hook(library.Module(), forwarding);
  if (!hook.IsInstalled()) {
    pump.PushNotice(
        L"This library's log lines cannot be shown: it does not "
        L"import OutputDebugStringW.");
  }
  library.Start();
  const ServerSettings settings = ReadServerSettings();
  std::optional<Failure> failure =
      JudgeStart(settings, pump.ErrorLines(),
                 settings.tcpEnabled && AcceptsConnections(settings.port));
  if (!failure) {
    TellThatItRuns(options, settings.port, pump);
    static_cast<void>(stop.Wait(options.seconds));
  }
  StopTimed(library, pump);
  return failure;
}

}  // namespace

// The order of the objects matters: what is put back, is put back when the
// server has stopped, and a closing console waits for all of it.
std::optional<Failure> RunServer(const RunOptions& options) {
  const StopSignal stop;
  const std::vector<std::wstring> returned = ReturnAbandonedValues();
  BorrowedValue portValue(SettingsKeyPath(), kPortSetting.name);
  BorrowedValue maskValue(kMaskKey, kServerLoggerName);
  ServerLibrary library;
  if (auto failure = library.Load(LibraryPath(options))) return failure;
  if (options.demo) {
    if (auto failure = EnsureDemoPrinter(PackageFolder(options))) {
      return failure;
    }
  }
  if (options.port) {
    if (auto failure = SetPort(portValue, *options.port)) return failure;
  }
  const Output output(STD_OUTPUT_HANDLE);
  const bool color = output.TakesColor(options.color);
  LinePump pump(output, color, !options.channels && !options.verbose);
  Traffic traffic(pump, color);
  if (auto failure = traffic.Open(options.traffic)) return failure;
  TellWhatWasReturned(returned, pump);
  SetLogMask(maskValue, options.verbose, pump);
  return StartAndStop(options, library, stop, traffic, pump);
}

}  // namespace kova::ctl

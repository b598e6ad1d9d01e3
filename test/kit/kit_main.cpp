// The test kit's program: runs the tests beside it on a machine that is not one
// of ours, and leaves the machine as it was.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>

#include "base/handles.h"
#include "common/stop_signal.h"
#include "test/kit/inventory.h"
#include "test/kit/test_run.h"

namespace kova::test {
namespace {

namespace fs = std::filesystem;

enum Exit { kAllPassed, kSomeFailed, kRefused };

constexpr unsigned long kLimitMs = 30 * 60 * 1000;

// Left out by --quick: they take half a minute each, or more.
constexpr const char* kSlow[] = {
    "crash_tests",           "failing_calls_tests",
    "kovactl_check_tests",   "kovactl_logs_tests",
    "schedules_tests",       "whole_crash_tests",
    "whole_endurance_tests", "whole_stuck_extension_tests"};

struct Options {
  bool isQuick = false;
  bool isRestoreOnly = false;
  std::vector<std::string> only;
};

struct Kit {
  fs::path folder;  // what was unpacked
  [[nodiscard]] fs::path Programs() const { return folder / "test-bin"; }
  [[nodiscard]] fs::path Results() const { return folder / "results"; }
  // What the machine had; there as long as it has not got it back.
  [[nodiscard]] fs::path Before() const { return folder / "before.txt"; }
};

Kit FindKit() {
  wchar_t path[MAX_PATH * 4] = {};
  ::GetModuleFileNameW(nullptr, path, std::size(path));
  return {fs::path(path).parent_path().parent_path()};
}

std::string Utf8(const std::wstring& text) {
  const std::u8string bytes = fs::path(text).u8string();
  return {bytes.begin(), bytes.end()};
}

std::string Read(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The names of this machine and its user, and what results say instead.
std::vector<std::pair<std::string, std::string>> PersonalNames() {
  std::vector<std::pair<std::string, std::string>> names;
  for (const wchar_t* const name :
       {L"COMPUTERNAME", L"USERNAME", L"USERDOMAIN"}) {
    wchar_t value[256] = {};
    if (::GetEnvironmentVariableW(name, value, 256) < 256) {
      names.emplace_back(Utf8(value), Utf8(name));
    }
  }
  return names;
}

using NativeVersion = LONG(WINAPI*)(OSVERSIONINFOEXW*);
using WineVersion = const char*(CDECL*)();

template <typename Function>
Function FindNative(const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), name)));
}

void WriteSystemFacts(const fs::path& file) {
  OSVERSIONINFOEXW version = {};
  version.dwOSVersionInfoSize = sizeof(version);
  if (const auto get = FindNative<NativeVersion>("RtlGetVersion"))
    get(&version);
  SYSTEM_INFO machine = {};
  ::GetNativeSystemInfo(&machine);
  MEMORYSTATUSEX memory = {};
  memory.dwLength = sizeof(memory);
  ::GlobalMemoryStatusEx(&memory);
  const auto wine = FindNative<WineVersion>("wine_get_version");
  std::ofstream(file) << "Windows " << version.dwMajorVersion << '.'
                      << version.dwMinorVersion << '.' << version.dwBuildNumber
                      << (version.wProductType == VER_NT_WORKSTATION
                              ? ", workstation\n"
                              : ", server\n")
                      << "Wine " << (wine == nullptr ? "no" : wine())
                      << "\nprocessors " << machine.dwNumberOfProcessors
                      << "\nmemory in MiB " << (memory.ullTotalPhys >> 20)
                      << "\ncode page " << ::GetACP() << "\nlanguage "
                      << ::GetUserDefaultLangID() << '\n';
}

bool IsAdministrator() {
  UniqueRegistryKey key;
  return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0,
                         KEY_READ | KEY_WRITE, key.Receive()) == ERROR_SUCCESS;
}

int Refuse(const std::string& why) {
  std::cout << "Nothing was run: " << why << std::endl;
  return kRefused;
}

std::vector<fs::path> ChoosePrograms(const Kit& kit, const Options& options) {
  std::vector<fs::path> chosen;
  for (const auto& entry : fs::directory_iterator(kit.Programs())) {
    const std::string name = entry.path().stem().string();
    if (!name.ends_with("_tests") || entry.path().extension() != ".exe") {
      continue;
    }
    const bool isSlow =
        std::find(std::begin(kSlow), std::end(kSlow), name) != std::end(kSlow);
    const bool isNamed = std::find(options.only.begin(), options.only.end(),
                                   name) != options.only.end();
    if (options.only.empty() ? !(options.isQuick && isSlow) : isNamed) {
      chosen.push_back(entry.path());
    }
  }
  std::sort(chosen.begin(), chosen.end());
  return chosen;
}

// Puts back what an earlier run, or this one, has changed. Returns how many
// things are not as they were.
int RestoreMachine(const Kit& kit) {
  const std::vector<std::wstring> faults = Restore(Load(kit.Before()));
  for (const std::wstring& fault : faults) {
    std::cout << "not as before: " << Utf8(fault) << '\n';
  }
  if (faults.empty()) fs::remove(kit.Before());
  return static_cast<int>(faults.size());
}

Counts RunOne(const fs::path& program, const Kit& kit, HANDLE stop) {
  const std::string name = program.stem().string();
  const fs::path log = kit.Results() / (name + ".txt");
  std::cout << name << std::flush;
  const unsigned code = RunProgram(program, log, stop, kLimitMs);
  const std::string said = Anonymous(Read(log), PersonalNames());
  std::ofstream(log, std::ios::binary) << said;
  const Counts counts = CountTests(said, code);
  std::cout << ": " << counts.passed << " passed, " << counts.failed
            << " failed, " << counts.skipped << " skipped" << std::endl;
  return counts;
}

// What tar.exe, which Windows 10 and later have, makes of the results; the
// folder itself where there is none.
fs::path PackResults(const Kit& kit) {
  const fs::path archive = kit.folder / "results.zip";
  fs::remove(archive);
  (void)std::system("tar.exe -a -c -f results.zip results 2>nul");
  return fs::exists(archive) ? archive : kit.Results();
}

int RunTests(const Kit& kit, const Options& options,
             const ctl::StopSignal& stop) {
  fs::remove_all(kit.Results());
  fs::create_directories(kit.Results());
  WriteSystemFacts(kit.Results() / "system.txt");
  if (!Save(TakeInventory(), kit.Before())) {
    return Refuse("this folder cannot be written");
  }
  Counts all;
  for (const fs::path& program : ChoosePrograms(kit, options)) {
    const Counts one = RunOne(program, kit, stop.Event());
    all.passed += one.passed;
    all.failed += one.failed;
    all.skipped += one.skipped;
    if (stop.Wait(0)) break;
  }
  std::cout << "Putting the machine back" << std::endl;
  all.failed += RestoreMachine(kit);
  if (stop.Wait(0)) std::cout << "Stopped before the end" << std::endl;
  std::ofstream(kit.Results() / "summary.txt")
      << all.passed << " passed, " << all.failed << " failed, " << all.skipped
      << " skipped\n";
  std::cout << "Results: " << Utf8(PackResults(kit).wstring()) << '\n'
            << all.passed << " passed, " << all.failed << " failed, "
            << all.skipped << " skipped" << std::endl;
  return all.failed == 0 && all.passed > 0 && !stop.Wait(0) ? kAllPassed
                                                            : kSomeFailed;
}

int Run(const Kit& kit, const Options& options, const ctl::StopSignal& stop) {
  if (!IsAdministrator()) return Refuse("this needs an administrator's rights");
  if (fs::exists(kit.Before())) {
    std::cout << "An earlier run was cut off: putting the machine back"
              << std::endl;
    if (RestoreMachine(kit) != 0) {
      return Refuse("not all could be put back; see above");
    }
  }
  if (options.isRestoreOnly) return kAllPassed;
  const std::vector<std::wstring> signs = SignsOfProduction();
  for (const std::wstring& sign : signs) std::cout << Utf8(sign) << '\n';
  if (!signs.empty()) {
    return Refuse("the server was installed or has run on this machine");
  }
  std::cout << "This runs the server's tests: they open ports of 127.0.0.1, "
               "add printers, registry keys\nand files, make programs crash, "
               "and take all of it away again.\n";
  return RunTests(kit, options, stop);
}

}  // namespace
}  // namespace kova::test

int main(int argc, char** argv) {
  try {
    kova::test::Options options;
    CLI::App app("Runs the tests of KOVA Server on this machine.", "run-tests");
    app.add_flag("--quick", options.isQuick, "leave out what takes long");
    app.add_option("--only", options.only, "programs to run, by name");
    app.add_flag("--restore", options.isRestoreOnly,
                 "put back what a run that was cut off has left, and no more");
    CLI11_PARSE(app, argc, argv);
    // For programs that crash, and what they start: no questions to anybody.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const kova::test::Kit kit = kova::test::FindKit();
    std::filesystem::current_path(kit.folder);
    const kova::ctl::StopSignal stop;
    return kova::test::Run(kit, options, stop);
  } catch (const std::exception& error) {
    std::printf("error: %s\n", error.what());
    return kova::test::kSomeFailed;
  }
}

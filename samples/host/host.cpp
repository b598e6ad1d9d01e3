// A host in its smallest form: starts the server, waits, stops it.
//
// sample_host [SECONDS]   stops after that time, or on Ctrl-C.
#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "kova/server.h"

namespace {

HANDLE stopAsked = nullptr;

// Runs on a thread that Windows makes for it: it only tells the first thread,
// which is the one that starts and stops the server.
BOOL WINAPI OnConsoleSignal(DWORD) {
  ::SetEvent(stopAsked);
  return TRUE;
}

// The time that the command line asks for, in milliseconds.
DWORD WaitMs(int count, char** arguments) {
  if (count < 2) return INFINITE;
  return static_cast<DWORD>(std::strtoul(arguments[1], nullptr, 10)) * 1000;
}

void Say(const char* line) {
  std::puts(line);
  std::fflush(stdout);
}

}  // namespace

int main(int count, char** arguments) {
  stopAsked = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (stopAsked == nullptr) return 1;
  ::SetConsoleCtrlHandler(&OnConsoleSignal, TRUE);
  // Says nothing of success: what went wrong is in the server's log.
  StartKOVAServer();
  Say("The server was started.");
  ::WaitForSingleObject(stopAsked, WaitMs(count, arguments));
  StopKOVAServer();
  Say("The server was stopped.");
  ::SetConsoleCtrlHandler(&OnConsoleSignal, FALSE);
  ::CloseHandle(stopAsked);
  return 0;
}

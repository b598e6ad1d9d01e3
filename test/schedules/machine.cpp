#include "test/schedules/machine.h"

#include <iterator>
#include <string_view>

#include "test/support/import_patch.h"

namespace kova::test {
namespace {

Machine* g_machine = nullptr;

// A library that begins to use one of these escapes the scheduler, or gives the
// system what only the models know.
constexpr std::string_view kEscaping[] = {
    "AcceptEx",
    "AcquireSRWLockExclusive",
    "AcquireSRWLockShared",
    "ConnectEx",
    "CreateThread",
    "CreateThreadpoolWork",
    "GetExitCodeThread",
    "GetQueuedCompletionStatus",
    "InitOnceExecuteOnce",
    "InitializeCriticalSectionAndSpinCount",
    "InitializeCriticalSectionEx",
    "LoadLibraryExW",
    "MsgWaitForMultipleObjects",
    "QueueUserAPC",
    "QueueUserWorkItem",
    "RegisterWaitForSingleObject",
    "SignalObjectAndWait",
    "SleepConditionVariableCS",
    "SleepConditionVariableSRW",
    "SleepEx",
    "WaitForMultipleObjectsEx",
    "WaitOnAddress",
    "accept",
    "connect",
    "recv",
    "select",
    "send",
    "setsockopt",
};

}  // namespace

Machine& TheMachine() { return *g_machine; }

Machine::Machine() { g_machine = this; }

Machine::~Machine() { g_machine = nullptr; }

void Machine::Complain(const std::string& text) {
  std::string line = text;
  if (scheduler.Current() != kNoThread) {
    const Scheduler::Thread& thread = scheduler[scheduler.Current()];
    line += ", in thread " + std::to_string(thread.id) + " (" + thread.name +
            ") at " + thread.at;
  }
  m_complaints.push_back(line);
}

void Machine::BeginRun() {
  m_complaints.clear();
  kernel.BeginRun();
}

void Machine::Reset() {
  m_complaints.clear();
  kernel.Reset();
  winsock.Reset();
  system.Reset();
  heap.Reset();
}

std::vector<Held> Machine::WhatIsHeld() const {
  return {{"handles", kernel.OpenHandles()},
          {"sockets", winsock.OpenSockets()},
          {"sessions", winsock.OpenSessions()},
          {"critical sections", kernel.Sections()},
          {"keys", system.OpenKeys()},
          {"printers", system.OpenPrinters()},
          {"references", system.ModuleReferences()},
          {"blocks", heap.Blocks()}};
}

std::vector<std::string> Machine::Capture(HMODULE module) {
  std::vector<std::string> escaping;
  VisitImports(module, [&escaping](const char* name, void**) {
    if (std::ranges::find(kEscaping, std::string_view(name)) !=
        std::end(kEscaping)) {
      escaping.emplace_back(name);
    }
  });
  for (const auto& thunks :
       {KernelThunks(), WinsockThunks(), SystemThunks(), HeapThunks()}) {
    for (const Thunk& thunk : thunks) {
      void** const slot = FindImportSlot(module, thunk.name);
      if (slot != nullptr) WriteImportSlot(slot, thunk.function);
    }
  }
  return escaping;
}

}  // namespace kova::test

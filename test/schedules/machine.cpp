#include "test/schedules/machine.h"

#include <algorithm>

#include "test/failing_calls/call_thunks.h"
#include "test/support/import_patch.h"

namespace kova::test {
namespace {

Machine* g_machine = nullptr;

// A library that begins to use one of these escapes the scheduler.
constexpr const char* kWaiting[] = {
    "AcceptEx",
    "ConnectEx",
    "CreateThread",
    "CreateThreadpoolWork",
    "GetQueuedCompletionStatus",
    "InitOnceExecuteOnce",
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
};

}  // namespace

Machine& TheMachine() { return *g_machine; }

Machine::Machine()
    : kernel(scheduler, [this](const std::string& text) { Complain(text); }),
      locks(scheduler),
      winsock(scheduler, kernel,
              [this](const std::string& text) { Complain(text); }),
      system([this](const std::string& text) { Complain(text); }),
      heap([this](const std::string& text) { Complain(text); }) {
  g_machine = this;
}

Machine::~Machine() { g_machine = nullptr; }

void Machine::Complain(const std::string& text) {
  std::string line = text;
  if (scheduler.Current() != kNoThread) {
    line += " in thread " + std::to_string(scheduler.Current()) + " (" +
            scheduler.NameOf(scheduler.Current()) + ")";
  }
  m_complaints.push_back(line);
}

void Machine::BeginRun() {
  m_complaints.clear();
  kernel.ForgetThreads();
  locks.ForgetWaits();
}

void Machine::Reset() {
  m_complaints.clear();
  kernel.Reset();
  locks.Reset();
  winsock.Reset();
  system.Reset();
  heap.Reset();
}

Held Machine::WhatIsHeld() const {
  Held held;
  held.handles = kernel.OpenHandles();
  held.sockets = winsock.OpenSockets();
  held.sessions = winsock.OpenSessions();
  held.locks = locks.Initialised();
  held.moduleReferences = system.ModuleReferences();
  held.keys = system.OpenKeys();
  held.printers = system.OpenPrinters();
  held.blocks = heap.Blocks();
  return held;
}

std::vector<std::string> Machine::Capture(HMODULE module) {
  std::vector<std::string> unknown;
  const std::vector<std::string> names = ImportNames(module);
  std::ranges::copy_if(
      names, std::back_inserter(unknown), [](const std::string& name) {
        return std::ranges::find(kWaiting, name) != std::end(kWaiting);
      });
  for (const auto& thunks : {KernelThunks(), LockThunks(), WinsockThunks(),
                             SystemThunks(), HeapThunks()}) {
    for (const Thunk& thunk : thunks) {
      void** const slot = FindImportSlot(module, thunk.name);
      if (slot != nullptr) WriteImportSlot(slot, thunk.function);
    }
  }
  return unknown;
}

}  // namespace kova::test

// The thread that accepts connections: how it is started and stopped.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/handles.h"
#include "base/o_critical_section.h"
#include "net/accept_loop.h"

namespace kova {

class ClientList;

// Accepts connections on a thread of its own. May be run and stopped any number
// of times, from any thread; Run() and Stop() exclude each other. A failure is
// logged, under the name WebServerBase::Run, and otherwise ignored.
class Listener {
 public:
  // `taker` serves the connections, `clients` lists their threads. Both outlive
  // the listener, which opens and releases the list.
  Listener(ConnectionTaker& taker, ClientList& clients)
      : m_clients(clients), m_loop(taker) {}

  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // Starts the accept thread, listening on `port` (its low 16 bits) of
  // `bindAddress` (IPv4 in host byte order; 0: all interfaces), and waits up
  // to 30000 ms for it to answer. Returns 1 when it answered, also when it
  // could not listen (see IsRunning()); 0 when it did not answer, could not be
  // started, or runs already.
  int Run(uint32_t port, uint32_t bindAddress);

  // Ends the accept thread (1000 ms of grace), then every connection (5000 ms
  // of grace). Returns 1 when the accept thread ended by itself, 0 when it had
  // to be terminated or nothing was running.
  int Stop();

  // Waits for an accept thread that missed its time to answer Run(), so that
  // none is left when the listener is destroyed. Not to be called while
  // IsRunning().
  void JoinAcceptThread();

  // True from the moment the accept thread listens until Stop().
  [[nodiscard]] bool IsRunning() const { return m_running.load() != 0; }

 private:
  static unsigned __stdcall _AcceptThread(void* listener);
  static unsigned GuardedAcceptThread(void* listener);
  unsigned AcceptConnections();
  void AnswerRun();

  bool StartAcceptThread() KOVA_REQUIRES(m_lifecycle);
  int AwaitAcceptThread() KOVA_REQUIRES(m_lifecycle);
  void GiveUpStartedEvent() KOVA_REQUIRES(m_lifecycle);
  bool HasStrayAcceptThread() KOVA_REQUIRES(m_lifecycle);
  int StopRunning() KOVA_REQUIRES(m_lifecycle);
  void KillAcceptThread() KOVA_REQUIRES(m_lifecycle);

  // Held while the accept thread and the connections are waited for; so none of
  // them may take it.
  OCriticalSection m_lifecycle;

  ClientList& m_clients;
  UniqueKernelHandle m_acceptThread KOVA_GUARDED_BY(m_lifecycle);
  unsigned m_acceptThreadId KOVA_GUARDED_BY(m_lifecycle) = 0;
  // Decides between two threads: the accept thread takes the started event out
  // to signal it, Run() to give it up.
  UniqueKernelHandle m_startedEvent KOVA_GUARDED_BY(m_lifecycle);
  std::atomic<HANDLE> m_startedSignal{nullptr};

  AcceptLoop m_loop;  // touched by the accept thread, or by who killed it
  uint32_t m_bindAddress = 0;
  uint32_t m_port = 0;
  std::atomic<uint32_t> m_running{0};
};

}  // namespace kova

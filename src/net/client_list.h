// The list of live connection threads, and how they are told to end.
#pragma once

#include <atomic>
#include <memory>

#include "base/o_array.h"
#include "base/o_critical_section.h"
#include "net/winsock_session.h"

namespace kova {

// A connection thread as the list knows it. All of this is called by the list
// alone, under its lock.
class ClientWorker {
 public:
  ClientWorker(const ClientWorker&) = delete;
  ClientWorker& operator=(const ClientWorker&) = delete;

  // The stop event exists and belongs to the list's signals from now on.
  virtual void AcceptStopSignals() = 0;
  // Makes the worker end soon, even where there is no stop event yet. Does not
  // wait for it.
  virtual void SignalStop() = 0;
  // Kills the thread, which Windows does behind this call.
  virtual void Kill() = 0;
  // Waits up to `timeoutMs` for the killed thread to be gone and frees this
  // record. Returns whether it was gone; if not, it runs no code any more but
  // is stuck in a call of the system.
  virtual bool FreeKilled(DWORD timeoutMs) = 0;

 protected:
  ClientWorker() = default;
  ~ClientWorker() = default;
};

// Knows every connection thread of one server. Shared by the server and by
// each of its connection threads: a thread that is late in starting can still
// ask whether it is welcome when the server object is gone.
//
// A connection thread is alive from before its thread is started until its
// record has freed everything it owns, and listed in between, from
// RegisterClient() to UnregisterClient(). ReleaseClients() waits for all that
// are alive, so that none slips through a stop: neither one that has not come
// round to registering nor one that is just closing its socket.
//
// All operations may be called from any thread unless they say otherwise.
// While the list's lock is held nothing is called that could wait for one of
// the workers: they are signalled, or they are dead.
class ClientList {
 public:
  ClientList() = default;
  ClientList(const ClientList&) = delete;
  ClientList& operator=(const ClientList&) = delete;

  // Newcomers are served from now on. Takes a Winsock session of the list's
  // own, unless it has one, and keeps it until the last worker is gone: the
  // accept thread's session ends before the connections do, and with the last
  // session of the process all its sockets are closed. Not to be called while
  // an accept thread runs, nor by two threads at once.
  void Open();

  // From BeginStart() to EndStart() the list knows the worker whose thread is
  // being started, so that it is not lost where the thread that starts it is
  // killed in between. The worker does not free itself before EndStart().
  // Called by the accept thread, or, once that was killed, by who killed it.
  void BeginStart(ClientWorker* worker) { m_starting = worker; }
  void EndStart() { m_starting = nullptr; }
  // The worker being started, or null.
  [[nodiscard]] ClientWorker* Starting() const { return m_starting; }

  // Appends the worker. False, and nothing is appended, when a release has
  // begun: the worker then ends without touching its server.
  [[nodiscard]] bool RegisterClient(ClientWorker* worker);

  // The worker's events exist: from now on a release signals its stop event.
  // Signals it at once if a release has begun since it registered.
  void Ready(ClientWorker* worker);

  // Takes the first slot that holds the worker out; the following ones move
  // down by one. An absent pointer changes nothing. Afterwards no other thread
  // touches the worker.
  void UnregisterClient(ClientWorker* worker);

  // Turns newcomers away, signals every listed worker's stop event and looks
  // every 100 ms, at most 50 times, whether all workers are gone. Those still
  // listed then are terminated and their records freed, for which Windows gets
  // 1000 ms more in all. Returns at once when no worker is alive. Never holds
  // the lock while it sleeps.
  void ReleaseClients();

  // Counts one worker alive for as long as it exists; the first member of a
  // worker's record, so that it goes last.
  class Alive {
   public:
    explicit Alive(std::shared_ptr<ClientList> list) : m_list(std::move(list)) {
      ++m_list->m_alive;
    }
    ~Alive() { --m_list->m_alive; }
    Alive(const Alive&) = delete;
    Alive& operator=(const Alive&) = delete;
    [[nodiscard]] ClientList& List() const { return *m_list; }

   private:
    const std::shared_ptr<ClientList> m_list;
  };

 private:
  [[nodiscard]] bool AllGone() KOVA_REQUIRES(m_lock);
  void SignalAll() KOVA_REQUIRES(m_lock);
  void TerminateAll() KOVA_REQUIRES(m_lock);

  OCriticalSection m_lock;
  OPointerArray<ClientWorker*> m_workers KOVA_GUARDED_BY(m_lock);
  bool m_releasing KOVA_GUARDED_BY(m_lock) = false;
  WinsockSession m_winsock;  // touched by Open() and the list's end alone
  std::atomic<ClientWorker*> m_starting{nullptr};
  std::atomic<int> m_alive{0};
};

}  // namespace kova

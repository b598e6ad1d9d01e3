#include "net/client_list.h"

namespace kova {
namespace {

constexpr DWORD kLookAgainMs = 100;
constexpr int kMostLooks = 50;
// How long all killed threads together may take to be gone.
constexpr DWORD kKilledThreadsMs = 1000;

}  // namespace

void ClientList::Open() {
  // A refusal is the accept thread's to report: it asks for the same.
  WORD granted = 0;
  if (!m_winsock.IsOpen()) (void)m_winsock.Open(&granted);
  const ScopedLock held(m_lock);
  m_releasing = false;
}

bool ClientList::RegisterClient(ClientWorker* worker) {
  const ScopedLock held(m_lock);
  if (m_releasing) return false;
  const int32_t count = m_workers.Count();
  m_workers.SetSize(count + 1);
  if (m_workers.Count() == count) return false;
  m_workers[count] = worker;
  return true;
}

void ClientList::Ready(ClientWorker* worker) {
  const ScopedLock held(m_lock);
  worker->AcceptStopSignals();
  if (m_releasing) worker->SignalStop();
}

void ClientList::UnregisterClient(ClientWorker* worker) {
  const ScopedLock held(m_lock);
  const int32_t count = m_workers.Count();
  int32_t found = 0;
  while (found < count && m_workers[found] != worker) ++found;
  if (found == count) return;
  for (int32_t i = found + 1; i < count; ++i) m_workers[i - 1] = m_workers[i];
  m_workers.SetSize(count - 1);
}

void ClientList::ReleaseClients() {
  {
    const ScopedLock held(m_lock);
    m_releasing = true;
    if (AllGone()) return;
    SignalAll();
  }
  for (int look = 0; look < kMostLooks; ++look) {
    ::Sleep(kLookAgainMs);
    const ScopedLock held(m_lock);
    if (AllGone()) return;
  }
  const ScopedLock held(m_lock);
  TerminateAll();
}

bool ClientList::AllGone() {
  return m_workers.Count() == 0 && m_alive.load() == 0;
}

void ClientList::SignalAll() {
  for (int32_t i = 0; i < m_workers.Count(); ++i) m_workers[i]->SignalStop();
}

void ClientList::TerminateAll() {
  for (int32_t i = 0; i < m_workers.Count(); ++i) m_workers[i]->Kill();
  DWORD graceMs = kKilledThreadsMs;
  for (int32_t i = 0; i < m_workers.Count(); ++i) {
    if (!m_workers[i]->FreeKilled(graceMs)) graceMs = 0;
  }
  m_workers.SetSize(0);
}

}  // namespace kova

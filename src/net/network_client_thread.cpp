#include "net/network_client_thread.h"

#include "base/module_reference.h"
#include "crash/guard.h"
#include "dispatch/request_dispatch.h"
#include "net/connection_loop.h"

Network_ClientThread::Network_ClientThread(
    kova::ConnectionHost& host, std::shared_ptr<kova::ClientList> clients,
    const std::string& address)
    : m_alive(std::move(clients)),
      m_host(host),
      m_clientAddress(address.c_str()) {}

void Network_ClientThread::Start(kova::ConnectionHost& host,
                                 std::shared_ptr<kova::ClientList> clients,
                                 kova::UniqueSocket& socket,
                                 const std::string& address) {
  auto* const record =
      new Network_ClientThread(host, std::move(clients), address);
  kova::ClientList& list = record->m_alive.List();
  list.BeginStart(record);
  record->m_socket = std::move(socket);
  const bool started = record->StartThread();
  list.EndStart();
  if (started) return;

  if (record->m_thread.IsValid()) {
    ::TerminateThread(record->m_thread.Get(), 0);
  }
  const kova::UniqueModule reference(record->m_moduleReference);
  delete record;
}

bool Network_ClientThread::StartThread() {
  m_moduleReference = kova::AddModuleReference();
  unsigned id = 0;
  m_thread.Reset(reinterpret_cast<HANDLE>(
      ::_beginthreadex(nullptr, 0, &Network_ClientThread::_ClientThread, this,
                       CREATE_SUSPENDED, &id)));
  return m_thread.IsValid() &&
         ::ResumeThread(m_thread.Get()) != static_cast<DWORD>(-1);
}

void Network_ClientThread::FinishStart(kova::ClientList& clients) {
  // What is started is always a record of this class.
  auto* const record = static_cast<Network_ClientThread*>(clients.Starting());
  if (record == nullptr) return;
  const bool hasThread = record->m_thread.IsValid();
  // Harmless where the thread runs already.
  if (hasThread) ::ResumeThread(record->m_thread.Get());
  clients.EndStart();
  if (!hasThread) delete record;
}

unsigned __stdcall Network_ClientThread::_ClientThread(void* record) {
  // Read before the record frees itself.
  const HMODULE reference =
      static_cast<Network_ClientThread*>(record)->m_moduleReference;
  kova::EndThread(reference, kova::RunGuarded(&ServeRecord, record));
}

unsigned Network_ClientThread::ServeRecord(void* record) {
  return static_cast<Network_ClientThread*>(record)->Serve();
}

unsigned Network_ClientThread::Serve() {
  unsigned result = 0;
  if (m_alive.List().RegisterClient(this)) {
    if (Prepare()) {
      m_alive.List().Ready(this);
      result = Run();
    }
    m_alive.List().UnregisterClient(this);
  }
  FreeAfterStart();
  return result;
}

// Whoever starts this thread may still look at the record, for the length of a
// few instructions, or until a stop has killed it.
void Network_ClientThread::FreeAfterStart() {
  while (m_alive.List().Starting() == this) ::Sleep(1);
  delete this;
}

bool Network_ClientThread::Prepare() {
  m_readEvent.Reset(::WSACreateEvent());
  if (!m_readEvent.IsValid()) return false;
  m_stopEvent.Reset(::WSACreateEvent());
  if (!m_stopEvent.IsValid()) return false;
  return ::WSAEventSelect(m_socket.Get(), m_readEvent.Get(),
                          FD_READ | FD_WRITE | FD_CLOSE) != SOCKET_ERROR;
}

unsigned Network_ClientThread::Run() {
  kova::ConnectionLoop run(m_host, m_socket.Get(), m_readEvent.Get(),
                           m_stopEvent.Get(), m_stopping, m_clientAddress,
                           &Network_ClientThread::ParseRequest);
  return run.Run();
}

int32_t Network_ClientThread::ParseRequest(const char* request,
                                           uint32_t lengthBytes,
                                           kova::ByteBuffer& response,
                                           uint32_t* keepOpen,
                                           const OString& clientAddress) {
  return kova::DispatchRequest(request, lengthBytes, response, keepOpen,
                               clientAddress);
}

void Network_ClientThread::SignalStop() {
  m_stopping = true;
  if (m_acceptsStopSignals) ::WSASetEvent(m_stopEvent.Get());
}

void Network_ClientThread::Kill() { ::TerminateThread(m_thread.Get(), 0); }

bool Network_ClientThread::FreeKilled(DWORD timeoutMs) {
  const bool isGone =
      ::WaitForSingleObject(m_thread.Get(), timeoutMs) == WAIT_OBJECT_0;
  // The module reference stays: a thread that was killed may have held the
  // loader's lock, and giving the reference back would wait for it for ever.
  delete this;
  return isGone;
}

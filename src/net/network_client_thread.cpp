#include "net/network_client_thread.h"

#include "base/module_pin.h"
#include "crash/guard.h"
#include "dispatch/request_dispatch.h"
#include "net/client_run.h"
#include "net/web_server_base.h"

namespace {

// How long a killed thread may take to be gone. Windows kills a thread
// asynchronously; what it uses must not be freed under it.
constexpr DWORD kKilledThreadMs = 1000;

}  // namespace

Network_ClientThread::Network_ClientThread(
    WebServerBase& server, std::shared_ptr<kova::ClientList> clients,
    kova::UniqueSocket socket, const std::string& address)
    : m_alive(std::move(clients)),
      m_server(server),
      m_socket(std::move(socket)),
      m_clientAddress(address.c_str()) {}

void Network_ClientThread::Start(WebServerBase& server,
                                 std::shared_ptr<kova::ClientList> clients,
                                 kova::UniqueSocket socket,
                                 const std::string& address) {
  auto* const record = new Network_ClientThread(server, std::move(clients),
                                                std::move(socket), address);
  record->m_modulePin = kova::PinThisModule();
  unsigned id = 0;
  record->m_thread.Reset(reinterpret_cast<HANDLE>(
      ::_beginthreadex(nullptr, 0, &Network_ClientThread::_ClientThread, record,
                       CREATE_SUSPENDED, &id)));
  const bool started =
      record->m_thread.IsValid() &&
      ::ResumeThread(record->m_thread.Get()) != static_cast<DWORD>(-1);
  if (started) return;

  if (record->m_thread.IsValid()) {
    ::TerminateThread(record->m_thread.Get(), 0);
  }
  const kova::UniqueModule pin(record->m_modulePin);
  delete record;
}

unsigned __stdcall Network_ClientThread::_ClientThread(void* record) {
  // Read before the record frees itself.
  const HMODULE pin = static_cast<Network_ClientThread*>(record)->m_modulePin;
  kova::EndThread(pin, kova::RunGuarded(&ServeRecord, record));
}

unsigned Network_ClientThread::ServeRecord(void* record) {
  return static_cast<Network_ClientThread*>(record)->Serve();
}

unsigned Network_ClientThread::Serve() {
  unsigned result = 0;
  if (m_alive.List().Register(this)) {
    if (Prepare()) {
      m_alive.List().Ready(this);
      result = Run();
    }
    m_alive.List().Unregister(this);
  }
  delete this;
  return result;
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
  kova::ClientRun run(m_server, m_socket.Get(), m_readEvent.Get(),
                      m_stopEvent.Get(), m_clientAddress,
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
  if (m_acceptsStopSignals) ::WSASetEvent(m_stopEvent.Get());
}

void Network_ClientThread::Terminate() {
  ::TerminateThread(m_thread.Get(), 0);
  ::WaitForSingleObject(m_thread.Get(), kKilledThreadMs);
  // The module reference stays: a thread that was killed may have held the
  // loader's lock, and giving the reference back would wait for it for ever.
  delete this;
}

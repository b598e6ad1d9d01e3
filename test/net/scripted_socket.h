// A socket that does what a script says, for tests of the event loop.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "base/windows_api.h"
#include "test/support/import_patch.h"

namespace kova::test {

// From construction to destruction, this program's socket waits, event
// enumerations, receives and sends follow the script; nothing real is touched.
// A call beyond its script: the wait finds the stop event, the receive finds
// nothing, the send takes everything. At most one may live at a time; used by
// one thread.
class ScriptedSocket {
 public:
  ScriptedSocket();
  ~ScriptedSocket();
  ScriptedSocket(const ScriptedSocket&) = delete;
  ScriptedSocket& operator=(const ScriptedSocket&) = delete;

  // What the waits give, in order: a wake-up with event bits, a wake-up whose
  // enumeration fails, or any other value such as WSA_WAIT_TIMEOUT.
  void Wake(long events);
  void WakeAndFail(int error);
  void WaitGives(DWORD woken);
  // What the receives give. A success leaves the last error alone.
  void Arrive(std::string bytes);
  void ReceiveFails(int error);
  // What the sends give: at most so many bytes taken, or an error. A success
  // leaves the last error alone.
  void Take(uint32_t most);
  void SendFails(int error);

  // What was called.
  [[nodiscard]] const std::vector<DWORD>& Timeouts() const;
  [[nodiscard]] const std::vector<uint32_t>& Pieces() const;
  [[nodiscard]] const std::string& Sent() const;
  // Waits that the script still holds.
  [[nodiscard]] size_t WakeUpsLeft() const;

 private:
  static DWORD WSAAPI Wait(DWORD count, const WSAEVENT* events, WINBOOL all,
                           DWORD timeoutMs, WINBOOL alertable);
  static int WSAAPI EnumEvents(SOCKET socket, WSAEVENT event,
                               LPWSANETWORKEVENTS found);
  static int WSAAPI Receive(SOCKET socket, LPWSABUF buffers, DWORD count,
                            LPDWORD received, LPDWORD flags,
                            LPWSAOVERLAPPED overlapped,
                            LPWSAOVERLAPPED_COMPLETION_ROUTINE routine);
  static int WSAAPI Send(SOCKET socket, LPWSABUF buffers, DWORD count,
                         LPDWORD sent, DWORD flags, LPWSAOVERLAPPED overlapped,
                         LPWSAOVERLAPPED_COMPLETION_ROUTINE routine);

  struct WakeUp {
    DWORD woken = WSA_WAIT_EVENT_0;
    long events = 0;
    int error = 0;
  };
  struct Arrival {
    std::string bytes;
    int error = 0;
  };
  struct Taking {
    uint32_t most = 0xFFFFFFFF;
    int error = 0;
  };
  std::deque<WakeUp> m_wakeUps;
  std::deque<Arrival> m_arrivals;
  std::deque<Taking> m_takings;
  std::vector<DWORD> m_timeouts;
  std::vector<uint32_t> m_pieces;
  std::string m_sent;

  const ImportPatch<decltype(Wait)> m_waitPatch;
  const ImportPatch<decltype(EnumEvents)> m_enumPatch;
  const ImportPatch<decltype(Receive)> m_receivePatch;
  const ImportPatch<decltype(Send)> m_sendPatch;
};

}  // namespace kova::test

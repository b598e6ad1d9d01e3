// The event loop of one connection.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/byte_buffer.h"
#include "base/o_array.h"
#include "base/windows_api.h"
#include "http/request_progress.h"
#include "text/o_string.h"

namespace kova {

// Answers one complete request: see Network_ClientThread::ParseRequest. Zero
// means that there is no response to send. A parameter of the loop, because its
// tests need answers that no dispatch gives: none, or one that leaves an error.
using RequestHandler = int32_t (*)(const char* request, uint32_t lengthBytes,
                                   ByteBuffer& response, uint32_t* keepOpen,
                                   const OString& clientAddress);

// What a connection asks and tells the server that it belongs to; called on the
// connection's thread, by all connections at once.
class ConnectionHost {
 public:
  ConnectionHost(const ConnectionHost&) = delete;
  ConnectionHost& operator=(const ConnectionHost&) = delete;

  // How long the connection may be silent; 0: without limit. The server's Run
  // decides it.
  [[nodiscard]] virtual uint32_t ClientTimeoutMs() const = 0;
  virtual void OnReceived(uint32_t byteCount) = 0;
  // Whether the bytes received so far hold a whole request. `progress` is the
  // connection's, reset whenever `received` begins anew.
  virtual bool IsRequestComplete(const OTypedArray<char>& received,
                                 RequestProgress& progress) = 0;
  // A response of `byteCount` bytes was sent whole.
  virtual void OnResponseSent(uint32_t byteCount) = 0;

 protected:
  ConnectionHost() = default;
  ~ConnectionHost() = default;
};

// Serves one connection from its first event to its end: waits for socket
// events, gathers request bytes, has each complete request answered and sends
// the answer. Lives on the connection's thread; owns none of the handles it is
// given. Log lines carry the name Network_ClientThread::Run.
class ConnectionLoop {
 public:
  // `socket` is selected for FD_READ, FD_WRITE and FD_CLOSE into `readEvent`.
  // Setting `stopping` and then `stopEvent` ends the loop: the event ends a
  // wait, the flag a loop that finds its read event set at every wait. All
  // references outlive the loop.
  ConnectionLoop(ConnectionHost& host, SOCKET socket, WSAEVENT readEvent,
                 WSAEVENT stopEvent, const std::atomic<bool>& stopping,
                 const OString& clientAddress, RequestHandler handler);

  ConnectionLoop(const ConnectionLoop&) = delete;
  ConnectionLoop& operator=(const ConnectionLoop&) = delete;

  // Returns 0 when the wait failed or a request found no answer, 1 on every
  // other end. A connection that can no longer hold its request ends with 0.
  unsigned Run();

 private:
  // What follows a step. kGoOn: the next step with the same event bits.
  // kWait: back to the wait; the remaining bits of this wake-up are skipped.
  enum class Next { kGoOn, kWait, kEndWith0, kEndWith1 };

  Next WaitForEvents(long& events);
  Next OnEvents(long events);
  Next OnReadable();
  Next Receive();
  Next Answer();
  Next SendResponse();
  Next CompleteResend();
  Next OnWritable();
  Next OnClosed();
  Next FinishResponse();
  bool Append(uint32_t receivedBytes);
  // False as soon as a call fails; makes none where nothing is left.
  bool SendRest(const wchar_t* phase);
  void LogSendResult(const wchar_t* phase, int result, uint32_t requested,
                     uint32_t sent, int error) const;

  ConnectionHost& m_host;
  const SOCKET m_socket;
  const WSAEVENT m_readEvent;
  const WSAEVENT m_stopEvent;
  const std::atomic<bool>& m_stopping;
  const OString& m_clientAddress;
  const RequestHandler m_handler;

  // Made at the first receive: a connection that stays silent needs none.
  std::unique_ptr<char[]> m_receiveBuffer;
  OTypedArray<char> m_request;  // all received since the last answer
  RequestProgress m_progress;   // in m_request
  ByteBuffer m_response;
  uint32_t m_keepOpen = 0;  // set by the extension, never reset here
  uint32_t m_sent = 0;      // bytes of m_response that the socket took
  bool m_resend = false;    // part of the response waits for FD_WRITE
};

}  // namespace kova

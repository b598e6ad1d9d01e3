// For tests: a program that listens on a port of this machine.
#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "base/handles.h"
#include "base/windows_api.h"

namespace kova::ctl::test {

// kTrickle: the answer's last byte again and again, without an end.
enum class AfterAnswer { kClose, kStayOpen, kTrickle };

// From construction to destruction, takes one connection on a free port of
// 127.0.0.1, reads a request's head, sends `answer`, and closes the connection,
// keeps it open, or sends on.
class ScriptedPeer {
 public:
  ScriptedPeer(std::string answer, AfterAnswer after);
  ~ScriptedPeer();

  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  [[nodiscard]] uint16_t Port() const { return m_port; }
  // What was received up to the end of the head; ends the peer.
  [[nodiscard]] const std::string& Request();

 private:
  void Serve();
  void Trickle() const;
  void End();

  const std::string m_answer;
  const AfterAnswer m_after;
  UniqueSocket m_listener;
  UniqueSocket m_client;
  uint16_t m_port = 0;
  std::string m_request;
  UniqueKernelHandle m_ending;
  std::thread m_thread;
};

}  // namespace kova::ctl::test

// For tests: requests dispatched in the test program, to real printers and
// test extensions, with every log line seen.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "base/byte_buffer.h"
#include "dispatch/request_dispatch.h"
#include "dispatch/web_server_interface.h"
#include "log/log_channel.h"
#include "test/extensions/extension_answers.h"
#include "test/support/bad_request.h"
#include "test/support/demo_printer.h"
#include "test/support/fake_tick_count.h"
#include "test/support/log_capture.h"
#include "test/support/test_extension.h"

namespace kova::test {

inline constexpr wchar_t kClientAddress[] = L"192.0.2.7:50123";
inline constexpr char kNarrowClientAddress[] = "192.0.2.7:50123";

inline void RestartForTests() {}

// Has a cache of its own, and shows the channels on which dispatch logs.
class DispatchFixture : public testing::Test {
 protected:
  // A clock far ahead of any other test's makes the logger read its mask.
  DispatchFixture()
      : m_mask(0xF0000000 | tk::kDebuggerShowsAll |
               tk::Bits(tk::LogChannel::DetailInfoI)),
        m_clock(s_nowMs += 100000) {
    CreateExtensionCache(&RestartForTests);
  }
  ~DispatchFixture() override { DestroyExtensionCache(); }

  // The answer to the request, its date masked.
  std::string Dispatch(const std::string& request) {
    EXPECT_EQ(
        DispatchRequest(request.data(), static_cast<uint32_t>(request.size()),
                        m_response, &m_keepOpen, OString(kNarrowClientAddress)),
        1);
    return MaskDate(std::string(m_response.Data(), m_response.Size()));
  }

  static std::string Get(const std::string& target) {
    return "GET " + target + " HTTP/1.1\r\n\r\n";
  }
  static std::string Post(const std::string& target, const std::string& body) {
    return "POST " + target +
           " HTTP/1.1\r\n"
           "Content-Type: application/x-www-form-urlencoded\r\n\r\n" +
           body;
  }
  // What the scripted extension answers when it echoes.
  std::string Echo(const std::string& request, uint32_t keepOpen = 0) const {
    return test::Echo(kNarrowClientAddress, keepOpen, request);
  }

  static std::wstring Found(const std::wstring& printer,
                            const std::wstring& path) {
    return L"DetailInfoI WebServerInterface::GetV3WebServerInterface: Getting "
           L"Network Monitor Interface for printer: \"" +
           printer + L"\" from: \"" + path + L"\"";
  }
  static std::wstring Failed(const std::wstring& step,
                             const std::wstring& printer) {
    return L"Error Network_ClientThread::ParseRequest: " + step +
           L" failed for: \"" + printer + L"\"";
  }
  static std::wstring Missing(const std::wstring& name) {
    return L"Error WebServerInterface::GetProcAddressWithLogging: "
           L"GetProcAddress failed on \"" +
           name + L" GetLastError: 0x0000007F";
  }
  static std::wstring Responding() {
    return L"DetailInfo Network_ClientThread::ParseRequest: Responding with "
           L"HTTP_BAD_REQUEST";
  }

  static inline uint64_t s_nowMs = uint64_t{1} << 41;
  const ScopedLogMask m_mask;
  FakeTickCount m_clock;
  LogCapture m_capture;
  ByteBuffer m_response;
  uint32_t m_keepOpen = 0;
};

// A printer whose package holds the test extension of that name.
class ExtensionPrinter {
 public:
  explicit ExtensionPrinter(const wchar_t* extension,
                            std::wstring name = L"KOVA dispatch test",
                            const wchar_t* share = nullptr)
      : m_extension(extension), m_printer(std::move(name), share) {
    EXPECT_TRUE(m_extension.IsLoaded());
    EXPECT_TRUE(m_printer.SetDriverPackage(m_extension.Folder()));
  }

  TestExtension& Extension() { return m_extension; }
  [[nodiscard]] const std::wstring& Name() const { return m_printer.Name(); }

 private:
  TestExtension m_extension;
  DemoPrinter m_printer;
};

}  // namespace kova::test

// Composes one log line, the last error in it, and writes it.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/handles.h"
#include "log/log_channel.h"
#include "log/logger.h"
#include "log/server_logger.h"
#include "text/text_append.h"

namespace tk {

// The calling thread's last error as log messages show it: a blank,
// "GetLastError: 0x" and eight upper-case hexadecimal digits. Keeps the last
// error.
std::wstring LastErrorText();

}  // namespace tk

namespace kova {

// A number shown in lower-case hexadecimal, without prefix or padding.
struct Hex {
  explicit Hex(uint64_t number) : value(number) {}
  uint64_t value;
};

// One log line under construction: "<method>: " and whatever is streamed into
// it, written when it goes out of scope. Used as one statement:
//
//   LogLine(tk::LogChannel::Info, "WebServerBase::Run") << L"port " << port;
//
// Numbers are shown in decimal; narrow text is widened character by character;
// a null text adds nothing. On a disabled channel, or without a logger,
// nothing is built and nothing is allocated; where the values themselves cost
// something, ask first:
//
//   if (LogLine line(channel, "X::Y"); line) line << Expensive();
//
// Keeps the thread's last error over its whole life, and after each value that
// is streamed, so GetLastError() may be one of the values. Used by one thread.
class LogLine {
 public:
  // On the server's logger. `method` is the logging function as Class::Method,
  // or its bare name; it is read at once.
  LogLine(tk::LogChannel channel, const char* method) : m_channel(channel) {
    tk::Logger* const logger = ServerLogger();
    if (logger != nullptr && logger->IsEnabled(channel)) [[unlikely]] {
      Begin(logger, method);
    }
  }
  // On `logger`, which may be null; an enabled line keeps it alive.
  LogLine(const std::shared_ptr<tk::Logger>& logger, tk::LogChannel channel,
          const char* method);
  // Writes the line. May throw what the memory it needs may throw, and lets
  // that go on to the crash guard as from any other place.
  ~LogLine() noexcept(false) {
    if (m_text) [[unlikely]]
      Write();
  }

  LogLine(const LogLine&) = delete;
  LogLine& operator=(const LogLine&) = delete;

  // Whether the line will be written.
  explicit operator bool() const { return m_text.has_value(); }

  template <typename T>
  LogLine& operator<<(const T& value) {
    if (m_text) [[unlikely]]
      Add(value);
    return *this;
  }
  LogLine& operator<<(const char* text) { return AddText(text); }
  LogLine& operator<<(const wchar_t* text) { return AddText(text); }
  LogLine& operator<<(char* text) { return AddText(text); }
  LogLine& operator<<(wchar_t* text) { return AddText(text); }

 private:
  struct Text {
    explicit Text(tk::Logger* target) : logger(target) {}

    // First, so that it outlasts the text.
    LastErrorKeeper keeper;
    tk::Logger* const logger;
    // What keeps the logger alive, if something must.
    std::shared_ptr<tk::Logger> owner;
    std::wstring text;
  };

  template <typename Character>
  LogLine& AddText(const Character* text) {
    if (m_text && text != nullptr) [[unlikely]]
      Add(text);
    return *this;
  }

  template <typename T>
  void Add(const T& value) {
    const LastErrorKeeper keeper;
    Append(m_text->text, value);
  }
  static void Append(std::wstring& text, std::wstring_view value) {
    text += value;
  }
  static void Append(std::wstring& text, const char* value) {
    AppendNarrow(text, value);
  }
  static void Append(std::wstring& text, Hex number) {
    AppendHex(text, number.value);
  }
  static void Append(std::wstring& text, wchar_t character) {
    text += character;
  }
  static void Append(std::wstring& text, char character) {
    AppendNarrow(text, std::string_view(&character, 1));
  }
  static void Append(std::wstring& text, std::signed_integral auto number) {
    AppendDecimal(text, int64_t{number});
  }
  static void Append(std::wstring& text, std::unsigned_integral auto number) {
    AppendDecimal(text, uint64_t{number});
  }

  void Begin(tk::Logger* logger, const char* method);
  void Write();

  const tk::LogChannel m_channel;
  std::optional<Text> m_text;
};

}  // namespace kova

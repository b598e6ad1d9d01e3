// Sees the requests that a server hands to extensions, and their answers.
#pragma once

#include <string>

#include "author/recording.h"
#include "run/import_replacement.h"
#include "run/line_pump.h"

namespace kova::ctl {

// Hears of each exchange, on the thread of its connection.
class ExchangeSink {
 public:
  virtual ~ExchangeSink() = default;
  virtual void OnExchange(const SeenExchange& exchange) = 0;
};

struct ForwardingOptions {
  bool withBodies = false;  // keep long requests and answers whole, too
  bool watch = false;       // let newer builds answer, see ForwardedLibrary
};

// From construction to destruction, `server` gets functions of this tool in
// place of those of the extensions that it loads; they call the extension's and
// look on. The library's imports LoadLibraryW and GetProcAddress are replaced
// for that, so that neither a printer's settings nor the extension's file need
// to change, and every printer's library is seen. There may be one at a time.
class Forwarding : public LineSink {
 public:
  // `sink` and `pump` must outlive this.
  Forwarding(HMODULE server, const ForwardingOptions& options,
             ExchangeSink& sink, LinePump& pump);
  // The server must be stopped.
  ~Forwarding() override;

  Forwarding(const Forwarding&) = delete;
  Forwarding& operator=(const Forwarding&) = delete;

  // False if the server does not import what is replaced: nothing is seen.
  [[nodiscard]] bool IsInstalled() const;

  // A log line of the server, which is passed on to the pump. It alone tells
  // that the server answered a request by itself.
  void PushLine(std::wstring line) override;

 private:
  ExchangeSink& m_sink;
  LinePump& m_pump;
  const ImportReplacement m_load;
  const ImportReplacement m_find;
};

}  // namespace kova::ctl

// One run of the server inside this process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/exit_code.h"
#include "common/output.h"
#include "run/traffic.h"

namespace kova::ctl {

struct RunOptions {
  std::wstring library;             // empty: KOVAServer.dll beside this program
  std::optional<uint32_t> seconds;  // empty: until Ctrl-C
  std::optional<uint32_t> port;     // empty: as the settings say
  bool demo = false;                // make the demonstration printer
  std::wstring package;             // its package folder; empty: the sample's
  bool verbose = false;             // show every log channel
  bool channels = false;            // show Info and DetailInfo, too
  bool watch = false;               // let newer builds of extensions answer
  TrafficOptions traffic;
  ColorMode color = ColorMode::kAuto;
};

// Loads the server, starts it, shows its requests and what its log says of
// mistakes on standard output, and stops it on Ctrl-C or after options.seconds.
// Whatever it changed in the registry is put back before it returns. Returns
// what made the run fail, if anything.
std::optional<Failure> RunServer(const RunOptions& options);

}  // namespace kova::ctl

// The places in which an extension's code runs, as a check names them.
#pragma once

#include <cstdint>

namespace kova::ctl::check {

// The numbers travel between the processes of one check, nowhere else.
enum class Entry : uint32_t {
  kNone,  // outside the extension
  kLoad,
  kVersions,
  kSetRestart,
  kInitialize,
  kHandle,
  kLength,
  kCopy,
  kRelease,
  kEnd,
  kOwnThread,  // on a thread that the extension itself started
};

// The export's name, or words for the places that are no export. Static.
const char* EntryName(Entry entry);

}  // namespace kova::ctl::check

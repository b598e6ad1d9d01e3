// What this process holds at the moment of each kind that an extension may
// leak.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "check/finding.h"
#include "check/growth.h"

namespace kova::ctl::check {

struct HoldingKind {
  const char* name;  // "handles"
  Flaw flaw;         // if it grows with each request
  GrowthLimit limit;
  int64_t (*count)();
};

inline constexpr size_t kHoldingKinds = 6;
// In the order of their worth: what is found first explains the later ones.
extern const std::array<HoldingKind, kHoldingKinds> kHoldings;

using Holdings = std::array<int64_t, kHoldingKinds>;
Holdings CountHoldings();

// The heaps of this process.
std::vector<HANDLE> ProcessHeaps();

// "12 KiB of memory", "1,000 handles".
std::string HoldingText(size_t kind, int64_t count);

}  // namespace kova::ctl::check

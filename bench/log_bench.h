// What logging costs.
#pragma once

namespace kova::bench {

// Measures and prints the cost of a line on a disabled channel beside the
// clock read, load and compare that it cannot do without. False if the
// registry enables the channel, and then nothing is printed.
bool BenchDisabledChannel();

}  // namespace kova::bench

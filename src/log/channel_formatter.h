// The line prefix that names the channel.
#pragma once

#include "log/logger.h"

namespace kova {

// The formatter gives the channel's name, or an empty text for a value that is
// not exactly one channel. It keeps nothing between calls, so threads that log
// at once cannot mix their prefixes.
tk::LogFormatter MakeChannelFormatter(tk::Logger* logger);

}  // namespace kova

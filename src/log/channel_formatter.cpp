#include "log/channel_formatter.h"

namespace kova {
namespace {

std::wstring NameOf(tk::LogChannel channel) {
  const auto row = tk::ChannelNames.find(channel);
  return row == tk::ChannelNames.end() ? std::wstring() : row->second;
}

}  // namespace

tk::LogFormatter MakeChannelFormatter(tk::Logger* /*logger*/) {
  return &NameOf;
}

}  // namespace kova

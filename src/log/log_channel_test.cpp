// Unit: the channels and their names.
#include "log/log_channel.h"

#include <gtest/gtest.h>

namespace {

using tk::LogChannel;

// A copy of its own, in the order of declaration.
struct ChannelRow {
  LogChannel channel;
  uint32_t value;
  const wchar_t* name;
};
constexpr ChannelRow kChannels[] = {
    {LogChannel::Error, 0x80000000, L"Error"},
    {LogChannel::Warning, 0x40000000, L"Warning"},
    {LogChannel::Info, 0x20000000, L"Info"},
    {LogChannel::DetailInfo, 0x10000000, L"DetailInfo"},
    {LogChannel::DetailInfoA, 0x00000001, L"DetailInfoA"},
    {LogChannel::DetailInfoB, 0x00000002, L"DetailInfoB"},
    {LogChannel::DetailInfoC, 0x00000004, L"DetailInfoC"},
    {LogChannel::DetailInfoD, 0x00000008, L"DetailInfoD"},
    {LogChannel::DetailInfoE, 0x00000010, L"DetailInfoE"},
    {LogChannel::DetailInfoF, 0x00000020, L"DetailInfoF"},
    {LogChannel::DetailInfoG, 0x00000040, L"DetailInfoG"},
    {LogChannel::DetailInfoH, 0x00000080, L"DetailInfoH"},
    {LogChannel::DetailInfoI, 0x00000100, L"DetailInfoI"},
    {LogChannel::DetailInfoJ, 0x00000200, L"DetailInfoJ"},
    {LogChannel::DetailInfoK, 0x00000400, L"DetailInfoK"},
    {LogChannel::DetailInfoL, 0x00000800, L"DetailInfoL"},
    {LogChannel::DetailInfoM, 0x00001000, L"DetailInfoM"},
    {LogChannel::DetailInfoN, 0x00002000, L"DetailInfoN"},
    {LogChannel::DetailInfoO, 0x00004000, L"DetailInfoO"},
    {LogChannel::DetailInfoP, 0x00008000, L"DetailInfoP"},
};

TEST(LogChannelTest, EachChannelIsOneBitUnderItsOwnName) {
  for (const ChannelRow& row : kChannels) {
    EXPECT_EQ(static_cast<uint32_t>(row.channel), row.value);
    ASSERT_EQ(tk::ChannelNames.count(row.channel), 1u);
    EXPECT_EQ(tk::ChannelNames.at(row.channel), row.name);
  }
  EXPECT_EQ(tk::ChannelNames.size(), 20u);
}

}  // namespace

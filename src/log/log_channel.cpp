#include "log/log_channel.h"

namespace tk {

const std::unordered_map<LogChannel, std::wstring> ChannelNames = {
    {LogChannel::Error, L"Error"},
    {LogChannel::Warning, L"Warning"},
    {LogChannel::Info, L"Info"},
    {LogChannel::DetailInfo, L"DetailInfo"},
    {LogChannel::DetailInfoA, L"DetailInfoA"},
    {LogChannel::DetailInfoB, L"DetailInfoB"},
    {LogChannel::DetailInfoC, L"DetailInfoC"},
    {LogChannel::DetailInfoD, L"DetailInfoD"},
    {LogChannel::DetailInfoE, L"DetailInfoE"},
    {LogChannel::DetailInfoF, L"DetailInfoF"},
    {LogChannel::DetailInfoG, L"DetailInfoG"},
    {LogChannel::DetailInfoH, L"DetailInfoH"},
    {LogChannel::DetailInfoI, L"DetailInfoI"},
    {LogChannel::DetailInfoJ, L"DetailInfoJ"},
    {LogChannel::DetailInfoK, L"DetailInfoK"},
    {LogChannel::DetailInfoL, L"DetailInfoL"},
    {LogChannel::DetailInfoM, L"DetailInfoM"},
    {LogChannel::DetailInfoN, L"DetailInfoN"},
    {LogChannel::DetailInfoO, L"DetailInfoO"},
    {LogChannel::DetailInfoP, L"DetailInfoP"},
};

}  // namespace tk

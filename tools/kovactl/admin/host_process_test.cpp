// Unit: which ports are asked, and what a host has not read yet.
#include "admin/host_process.h"

#include <gtest/gtest.h>

#include "admin/server_status.h"
#include "common/file_path.h"

namespace {

using ::kova::ctl::AllSettings;
using ::kova::ctl::FileVersion;
using ::kova::ctl::HostProcess;
using ::kova::ctl::Listener;
using ::kova::ctl::PortsToAsk;
using ::kova::ctl::ProgramFolder;
using ::kova::ctl::Setting;
using ::kova::ctl::SettingId;
using ::kova::ctl::SettingState;
using ::kova::ctl::StoredForm;
using ::kova::ctl::UnreadSettings;

using Ports = std::vector<uint16_t>;

std::vector<HostProcess> Hosts(const std::vector<Ports>& listeners) {
  std::vector<HostProcess> hosts;
  for (const Ports& ports : listeners) {
    HostProcess& host = hosts.emplace_back();
    for (const uint16_t port : ports) host.listeners.push_back({port, false});
  }
  return hosts;
}

TEST(PortsToAsk, BeginWithTheLikeliest) {
  EXPECT_EQ(PortsToAsk({}, 5130, {}), Ports{5130});
  EXPECT_EQ(PortsToAsk({}, 0, {}), Ports{});
  EXPECT_EQ(PortsToAsk({}, 5130, Hosts({{}})), Ports{5130});
  EXPECT_EQ(PortsToAsk({}, 8080, Hosts({{5130}})), Ports{5130});
  EXPECT_EQ(PortsToAsk({}, 5130, Hosts({{80, 81}, {80, 5130}})),
            (Ports{5130, 80, 81}));
  EXPECT_EQ(PortsToAsk(7, 5130, Hosts({{80}})), Ports{7});
  EXPECT_EQ(PortsToAsk({}, 1, Hosts({{2, 3, 4, 5, 6, 7, 8, 9, 10}})).size(),
            8u);
}

// The settings' names that disagree with the socket, one letter each.
std::string Unread(uint32_t port, uint32_t tcp, uint32_t communication,
                   const Listener& listener) {
  std::vector<SettingState> states;
  for (const Setting& setting : AllSettings()) {
    const uint32_t number = setting.id == SettingId::kPort ? port
                            : setting.id == SettingId::kTcpEnabled
                                ? tcp
                                : communication;
    states.push_back({&setting, StoredForm(setting, number)});
  }
  std::string letters;
  for (const Setting* const setting : UnreadSettings(states, listener)) {
    letters += static_cast<char>(setting->shortName[0]);
  }
  return letters;
}

TEST(UnreadSettings, AreThoseThatTheSocketContradicts) {
  EXPECT_EQ(Unread(80, 1, 1, {80, false}), "");
  EXPECT_EQ(Unread(65536 + 80, 7, 7, {80, false}), "");
  EXPECT_EQ(Unread(81, 1, 1, {80, false}), "p");
  EXPECT_EQ(Unread(0, 1, 1, {80, false}), "");
  EXPECT_EQ(Unread(80, 0, 1, {80, false}), "t");
  EXPECT_EQ(Unread(80, 1, 0, {80, false}), "c");
  EXPECT_EQ(Unread(80, 1, 0, {80, true}), "");
  EXPECT_EQ(Unread(81, 0, 1, {80, true}), "ptc");
}

TEST(FileVersion, IsEmptyWithoutOne) {
  EXPECT_EQ(FileVersion(L"C:\\nowhere.dll"), L"");
  EXPECT_EQ(FileVersion(ProgramFolder() + L"\\kovactl_probe_tests.exe"), L"");
  EXPECT_NE(FileVersion(ProgramFolder() + L"\\..\\bin\\KOVAServer.dll"), L"");
}

}  // namespace

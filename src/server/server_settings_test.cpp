// Unit: the settings, in the real registry.
#include "server/server_settings.h"

#include <gtest/gtest.h>

#include "registry/o_registry.h"
#include "test/support/server_settings_scope.h"

namespace kova {
namespace {

using test::kNetworkBidirectional;
using test::kNetworkCommunication;
using test::kServerPort;
using test::kTcpEnabled;

std::wstring ThisComputer() {
  wchar_t name[260] = {};
  DWORD units = 260;
  ::GetComputerNameW(name, &units);
  return name;
}

class ServerSettingsTest : public testing::Test {
 protected:
  test::ServerSettingsScope m_values;
  ServerSettings m_settings{ThisComputer()};
};

TEST_F(ServerSettingsTest, GivesDefaultsForAbsentValues) {
  EXPECT_TRUE(m_settings.IsTcpEnabled());
  EXPECT_EQ(m_settings.Port(), 5130u);
  EXPECT_EQ(m_settings.NetworkCommunication(), 1);
}

TEST_F(ServerSettingsTest, ReadsValuesOfTheRightSize) {
  m_values.SetByte(kTcpEnabled, 0);
  m_values.SetPort(4660);
  m_values.SetByte(kNetworkCommunication, 7);
  EXPECT_FALSE(m_settings.IsTcpEnabled());
  EXPECT_EQ(m_settings.Port(), 4660u);
  EXPECT_EQ(m_settings.NetworkCommunication(), 7);
}

TEST_F(ServerSettingsTest, DoesNotLookAtTheTypeOfAValue) {
  const uint32_t port = 4660;
  m_values.Set(kServerPort, REG_BINARY, &port, sizeof(port));
  EXPECT_EQ(m_settings.Port(), 4660u);
  m_values.Set(kServerPort, REG_SZ, &port, sizeof(port));
  EXPECT_EQ(m_settings.Port(), 4660u);
}

TEST_F(ServerSettingsTest, TakesValuesOfAnotherSizeForAbsent) {
  const uint64_t zeros = 0;
  for (const DWORD size : {0u, 1u, 2u, 3u, 5u, 8u}) {
    m_values.Set(kServerPort, REG_BINARY, &zeros, size);
    EXPECT_EQ(m_settings.Port(), 5130u) << size;
  }
  for (const DWORD size : {0u, 2u, 4u}) {
    m_values.Set(kTcpEnabled, REG_BINARY, &zeros, size);
    EXPECT_TRUE(m_settings.IsTcpEnabled()) << size;
    m_values.Set(kNetworkCommunication, REG_BINARY, &zeros, size);
    EXPECT_EQ(m_settings.NetworkCommunication(), 1) << size;
  }
}

TEST_F(ServerSettingsTest, WritesOneBinaryByte) {
  m_settings.WriteNetworkBidirectional(0);
  EXPECT_EQ(m_values.Get(kNetworkBidirectional),
            (test::SettingValue{REG_BINARY, {0}}));
  m_settings.WriteNetworkBidirectional(1);
  EXPECT_EQ(m_values.Get(kNetworkBidirectional),
            (test::SettingValue{REG_BINARY, {1}}));
}

TEST(ServerSettingsNameTest, KeepsAnyComputerNameWithinOneKey) {
  ServerSettings settings(L"A/B:C%25");
  settings.WriteNetworkBidirectional(9);
  UniqueRegistryKey key;
  EXPECT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                            L"SOFTWARE\\Corvane Tessaly\\Drivers\\Network\\"
                            L"@A/B:C%25",
                            0, KEY_READ, key.Receive()),
            ERROR_SUCCESS);
  BYTE value = 0;
  DWORD size = sizeof(value);
  EXPECT_EQ(::RegQueryValueExW(key.Get(), L"Network Bidirectional", nullptr,
                               nullptr, &value, &size),
            ERROR_SUCCESS);
  EXPECT_EQ(value, 9);
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE,
                  L"SOFTWARE\\Corvane Tessaly\\Drivers\\Network\\@A/B:C%25");
}

}  // namespace
}  // namespace kova

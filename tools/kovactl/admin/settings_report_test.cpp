// Unit: settings as people and programs read them.
#include "admin/settings_report.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using ::kova::ctl::ChangeJson;
using ::kova::ctl::ChangeText;
using ::kova::ctl::Setting;
using ::kova::ctl::SettingId;
using ::kova::ctl::SettingJson;
using ::kova::ctl::SettingOf;
using ::kova::ctl::SettingsText;
using ::kova::ctl::StoredForm;
using ::kova::ctl::UndoCommand;
using ::kova::ctl::ValueState;

const Setting& Port() { return SettingOf(SettingId::kPort); }
const Setting& Tcp() { return SettingOf(SettingId::kTcpEnabled); }

TEST(SettingsText, HasAColumnEachForNameNumberAndOrigin) {
  EXPECT_EQ(SettingsText({{&Port(), {}}, {&Tcp(), {true, 3, {0}}}}, 2),
            L"  KOVA Server Port       5130   default, nothing is stored\n"
            L"      TCP port 5130\n"
            L"  TCP Enabled            0      stored as REG_BINARY, 1 byte\n"
            L"      the server does not listen at all\n");
}

TEST(SettingsText, SaysWhatIsOddAboutAStoredValue) {
  EXPECT_EQ(SettingsText({{&Port(), {true, 1, {0x35, 0}}}}, 0),
            L"KOVA Server Port       5130   default, what is stored is passed "
            L"over\n"
            L"    stored is REG_SZ, 2 bytes; the server takes 4 bytes of any "
            L"type\n"
            L"    TCP port 5130\n");
}

TEST(SettingJson, GivesTheNumberAndWhatIsStored) {
  const auto json = SettingJson({&Port(), {true, 4, {80, 0, 0, 0}}});
  EXPECT_EQ(json["name"], "KOVA Server Port");
  EXPECT_EQ(json["value"], 80);
  EXPECT_EQ(json["origin"], "stored");
  EXPECT_EQ(json["stored"], "REG_DWORD:50000000");
  EXPECT_EQ(json["default"], 5130);
  EXPECT_EQ(SettingJson({&Port(), {}})["origin"], "absent");
  EXPECT_TRUE(SettingJson({&Port(), {}})["stored"].is_null());
  EXPECT_EQ(SettingJson({&Port(), {true, 4, {}}})["origin"], "unusable");
}

TEST(UndoCommand, BringsBackWhatWasThere) {
  EXPECT_EQ(UndoCommand(Port(), {}), L"kovactl settings reset port");
  EXPECT_EQ(UndoCommand(Port(), StoredForm(Port(), 8080)),
            L"kovactl settings set port 8080");
  EXPECT_EQ(UndoCommand(Tcp(), StoredForm(Tcp(), 0)),
            L"kovactl settings set tcp 0");
}

TEST(UndoCommand, GivesTheBytesWhereThePlainFormWouldDiffer) {
  EXPECT_EQ(UndoCommand(Port(), {true, 3, {80, 0, 0, 0}}),
            L"kovactl settings set port --raw REG_BINARY:50000000");
  EXPECT_EQ(UndoCommand(Port(), StoredForm(Port(), 65536)),
            L"kovactl settings set port --raw REG_DWORD:00000100");
  EXPECT_EQ(UndoCommand(Tcp(), StoredForm(Tcp(), 2)),
            L"kovactl settings set tcp --raw REG_BINARY:02");
  EXPECT_EQ(UndoCommand(Tcp(), {true, 1, {}}),
            L"kovactl settings set tcp --raw REG_SZ:");
}

TEST(UndoCommand, FitsAConsolesLineOrIsNone) {
  ValueState large{true, 3, std::vector<uint8_t>(2000)};
  EXPECT_LT(UndoCommand(Port(), large).value().size(), 8191u);
  large.data.push_back(0);
  EXPECT_EQ(UndoCommand(Port(), large), std::nullopt);
}

TEST(ChangeText, SaysWhatIsWhatWasAndHowToUndoIt) {
  EXPECT_EQ(
      ChangeText(Port(), {}, StoredForm(Port(), 80)),
      L"KOVA Server Port is now 80 (stored as REG_DWORD, 4 bytes): TCP port "
      L"80.\n"
      L"It was 5130 (default, nothing is stored).\n"
      L"To undo: kovactl settings reset port\n"
      L"The server reads its settings when its host starts it and when a "
      L"driver\n"
      L"extension asks for a restart; until then nothing changes.\n");
}

TEST(ChangeText, SaysThatNothingChanged) {
  EXPECT_EQ(ChangeText(Port(), {}, {}),
            L"KOVA Server Port was already 5130 (default, nothing is stored); "
            L"nothing was\nchanged.\n");
  EXPECT_EQ(ChangeJson(Port(), {}, {})["changed"], false);
  EXPECT_TRUE(ChangeJson(Port(), {}, {})["undo"].is_null());
}

TEST(ChangeJson, HasBothStatesAndTheUndoCommand) {
  const auto json = ChangeJson(Port(), StoredForm(Port(), 80), {});
  EXPECT_EQ(json["changed"], true);
  EXPECT_EQ(json["before"]["value"], 80);
  EXPECT_EQ(json["after"]["value"], 5130);
  EXPECT_EQ(json["undo"], "kovactl settings set port 80");
}

}  // namespace

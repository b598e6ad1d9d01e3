// Unit: names of settings, what the server makes of stored values, and how
// people and programs read them.
#include "admin/setting.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using ::kova::ctl::AllSettings;
using ::kova::ctl::ChangeJson;
using ::kova::ctl::ChangeText;
using ::kova::ctl::EffectiveValue;
using ::kova::ctl::FindSettings;
using ::kova::ctl::ListeningPort;
using ::kova::ctl::MeaningText;
using ::kova::ctl::Origin;
using ::kova::ctl::OriginOf;
using ::kova::ctl::OriginText;
using ::kova::ctl::ParseSettingValue;
using ::kova::ctl::RemarkText;
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
const Setting& Bidirectional() {
  return SettingOf(SettingId::kNetworkBidirectional);
}

// The one setting that `text` means; nothing or several give "".
std::wstring Meant(const std::wstring& text) {
  const auto found = FindSettings(text);
  return found.size() == 1 ? found.front()->name : L"";
}

TEST(FindSettings, TakesNamesAndTheirBeginnings) {
  for (const wchar_t* text : {L"KOVA Server Port", L"kova server port",
                              L"kova-server-port", L"KOVAServerPort", L"port",
                              L"PORT", L"p", L"server", L"k", L"server port"}) {
    EXPECT_EQ(Meant(text), L"KOVA Server Port") << text;
  }
  for (const wchar_t* text : {L"TCP Enabled", L"tcp", L"t", L"tcp_e", L"en"}) {
    EXPECT_EQ(Meant(text), L"TCP Enabled") << text;
  }
  EXPECT_EQ(Meant(L"comm"), L"Network Communication");
  EXPECT_EQ(Meant(L"network c"), L"Network Communication");
  EXPECT_EQ(Meant(L"bidirectional"), L"Network Bidirectional");
}

TEST(FindSettings, FindsEverySettingByWhatItIsCalled) {
  for (const Setting& setting : AllSettings()) {
    EXPECT_EQ(Meant(setting.name), setting.name);
    EXPECT_EQ(Meant(setting.shortName), setting.name);
  }
  EXPECT_EQ(AllSettings().size(), 4u);
}

TEST(FindSettings, GivesAllThatAreMeant) {
  EXPECT_EQ(FindSettings(L"network").size(), 2u);
  EXPECT_EQ(FindSettings(L"n").size(), 2u);
}

TEST(FindSettings, FindsNothingForNonsense) {
  for (const std::wstring& text :
       {std::wstring(), std::wstring(L" "), std::wstring(L"-_"),
        std::wstring(L"ort"), std::wstring(L"ports"), std::wstring(L"port 1"),
        std::wstring(L"port\0", 5), std::wstring(L"enabledtcp")}) {
    EXPECT_TRUE(FindSettings(text).empty()) << ::testing::PrintToString(text);
  }
}

TEST(Setting, CountsAsAbsentWhenItHasAnotherSize) {
  for (const size_t size : {0, 1, 3, 5, 8}) {
    const ValueState stored{true, 4, std::vector<uint8_t>(size, 1)};
    EXPECT_EQ(OriginOf(Port(), stored), Origin::kUnusable);
    EXPECT_EQ(EffectiveValue(Port(), stored), 5130u);
  }
  for (const size_t size : {0, 2, 4}) {
    const ValueState stored{true, 3, std::vector<uint8_t>(size, 0)};
    EXPECT_EQ(OriginOf(Tcp(), stored), Origin::kUnusable);
    EXPECT_EQ(EffectiveValue(Tcp(), stored), 1u);
  }
  EXPECT_EQ(OriginText(Tcp(), {true, 4, {0, 0, 0, 0}}),
            L"default, what is stored is passed over");
  EXPECT_EQ(RemarkText(Tcp(), {true, 4, {0, 0, 0, 0}}),
            L"stored is REG_DWORD, 4 bytes; the server takes 1 byte of any "
            L"type");
}

TEST(Setting, IsTakenWhateverItsTypeIs) {
  const ValueState text{true, 1, {0x31, 0, 0, 0}};
  EXPECT_EQ(OriginOf(Port(), text), Origin::kStored);
  EXPECT_EQ(EffectiveValue(Port(), text), 49u);
  EXPECT_EQ(OriginText(Port(), text), L"stored as REG_SZ, 4 bytes");
  EXPECT_EQ(RemarkText(Port(), text),
            L"usually stored as REG_DWORD; the type does not matter to the "
            L"server");
  EXPECT_EQ(RemarkText(Port(), {true, 4, {0x31, 0, 0, 0}}), L"");
}

TEST(Setting, HasItsDefaultWhenNothingIsStored) {
  EXPECT_EQ(EffectiveValue(Port(), {}), 5130u);
  EXPECT_EQ(EffectiveValue(Tcp(), {}), 1u);
  EXPECT_EQ(OriginText(Port(), {}), L"default, nothing is stored");
  EXPECT_EQ(EffectiveValue(Bidirectional(), {}), std::nullopt);
  EXPECT_EQ(OriginText(Bidirectional(), {}), L"nothing is stored");
}

TEST(Setting, IsSmallestByteFirst) {
  EXPECT_EQ(EffectiveValue(Port(), {true, 4, {1, 2, 3, 4}}), 0x04030201u);
}

TEST(Setting, TakesPortsFromZeroTo65535) {
  EXPECT_EQ(ParseSettingValue(Port(), L"0"), 0u);
  EXPECT_EQ(ParseSettingValue(Port(), L"00080"), 80u);
  EXPECT_EQ(ParseSettingValue(Port(), L"65535"), 65535u);
  for (const std::wstring& text :
       {std::wstring(), std::wstring(L"65536"), std::wstring(L"4294967296"),
        std::wstring(L"-1"), std::wstring(L"+1"), std::wstring(L"1 "),
        std::wstring(L"0x10"), std::wstring(L"on"), std::wstring(L"1\0", 2)}) {
    EXPECT_FALSE(ParseSettingValue(Port(), text))
        << ::testing::PrintToString(text);
  }
}

TEST(Setting, TakesWordsForSwitches) {
  for (const wchar_t* word : {L"1", L"on", L"YES", L"True"}) {
    EXPECT_EQ(ParseSettingValue(Tcp(), word), 1u) << word;
  }
  for (const wchar_t* word : {L"0", L"off", L"NO", L"False"}) {
    EXPECT_EQ(ParseSettingValue(Tcp(), word), 0u) << word;
  }
  for (const std::wstring& text :
       {std::wstring(), std::wstring(L"2"), std::wstring(L"-1"),
        std::wstring(L"o"), std::wstring(L"on "), std::wstring(L"on\0", 3)}) {
    EXPECT_FALSE(ParseSettingValue(Tcp(), text))
        << ::testing::PrintToString(text);
  }
}

TEST(Setting, IsStoredInTheServersSizes) {
  EXPECT_EQ(StoredForm(Port(), 0x1234),
            (ValueState{true, 4, {0x34, 0x12, 0, 0}}));
  EXPECT_EQ(StoredForm(Tcp(), 1), (ValueState{true, 3, {1}}));
  EXPECT_EQ(StoredForm(SettingOf(SettingId::kNetworkCommunication), 0),
            (ValueState{true, 3, {0}}));
}

TEST(Setting, ExplainsPortsThatSurprise) {
  EXPECT_EQ(MeaningText(Port(), 5130), L"TCP port 5130");
  EXPECT_EQ(MeaningText(Port(), 0),
            L"Windows picks a free port at every start, and nothing tells "
            L"which");
  EXPECT_EQ(MeaningText(Port(), 65536 + 80),
            L"TCP port 80: only the low 16 bits count");
  EXPECT_EQ(MeaningText(Port(), 65536), MeaningText(Port(), 0));
  EXPECT_EQ(ListeningPort(65535), 65535);
  EXPECT_EQ(ListeningPort(65536), 0);
}

TEST(Setting, ExplainsSwitches) {
  EXPECT_EQ(MeaningText(Tcp(), 255), L"the server listens");
  EXPECT_EQ(MeaningText(Tcp(), 0), L"the server does not listen at all");
  EXPECT_EQ(MeaningText(Bidirectional(), std::nullopt),
            L"the server has not written it yet");
}

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

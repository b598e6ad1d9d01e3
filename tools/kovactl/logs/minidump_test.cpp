// Unit: reading minidumps, sound, cut short and hostile.
#include "logs/minidump.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/memory_file.h"
#include "logs/sample_dump.h"

namespace {

using ::kova::ctl::Minidump;
using ::kova::ctl::MinidumpResult;
using ::kova::ctl::ReadMinidump;
using ::kova::ctl::test::DumpBytes;
using ::kova::ctl::test::DumpParts;
using ::kova::ctl::test::MemoryFile;
using ::kova::ctl::test::SmallDump;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

MinidumpResult ReadBytes(std::vector<uint8_t> bytes) {
  return ReadMinidump(MemoryFile(std::move(bytes)));
}

class MinidumpTest : public ::testing::Test {
 protected:
  MinidumpTest() : m_dump(SmallDump(m_parts)) {}

  [[nodiscard]] MinidumpResult Read() const { return ReadBytes(m_dump.bytes); }
  [[nodiscard]] MinidumpResult ReadFirst(size_t count) const {
    return ReadBytes({m_dump.bytes.begin(),
                      m_dump.bytes.begin() + static_cast<ptrdiff_t>(count)});
  }
  // The directory row of the stream number `row`.
  [[nodiscard]] size_t Row(size_t row) const {
    return m_parts.directory + row * 12;
  }

  DumpParts m_parts;
  DumpBytes m_dump;
};

TEST_F(MinidumpTest, ReadsTheException) {
  const MinidumpResult result = Read();
  ASSERT_TRUE(result.dump && result.dump->exception);
  EXPECT_EQ(result.notADump, L"");
  EXPECT_EQ(result.dump->exception->threadId, 340u);
  EXPECT_EQ(result.dump->exception->code, 0xC0000005u);
  EXPECT_EQ(result.dump->exception->flags, 1u);
  EXPECT_EQ(result.dump->exception->address, 0x180001234u);
  EXPECT_THAT(result.dump->exception->parameters, ElementsAre(1, 0x10));
  EXPECT_THAT(result.dump->damage, IsEmpty());
}

TEST_F(MinidumpTest, ReadsProcessAndSystem) {
  const MinidumpResult result = Read();
  ASSERT_TRUE(result.dump && result.dump->system);
  EXPECT_EQ(result.dump->timeSeconds, 1700000000u);
  EXPECT_EQ(result.dump->processId, 324u);
  EXPECT_EQ(result.dump->system->architecture, 9);
  EXPECT_EQ(result.dump->system->processors, 4);
  EXPECT_EQ(result.dump->system->productType, 1);
  EXPECT_EQ(result.dump->system->major, 10u);
  EXPECT_EQ(result.dump->system->build, 19045u);
  EXPECT_EQ(result.dump->system->servicePack, L"Service Pack 9");
}

TEST_F(MinidumpTest, ReadsModules) {
  const Minidump dump = *Read().dump;
  ASSERT_EQ(dump.modules.size(), 2u);
  EXPECT_EQ(dump.modules[0].path, L"C:\\x\\KOVAServer.dll");
  EXPECT_EQ(dump.modules[0].FileName(), L"KOVAServer.dll");
  EXPECT_EQ(dump.modules[0].version, L"1.2.3.4");
  EXPECT_EQ(dump.modules[1].FileName(), L"ntdll.dll");
  EXPECT_EQ(dump.modules[1].version, L"");
  EXPECT_EQ(dump.ModuleAt(0x180000000), &dump.modules[0]);
  EXPECT_EQ(dump.ModuleAt(0x18000FFFF), &dump.modules[0]);
  EXPECT_EQ(dump.ModuleAt(0x180010000), nullptr);
  EXPECT_EQ(dump.ModuleAt(0x17FFFFFFF), nullptr);
}

TEST_F(MinidumpTest, ReadsThreadsAndRegisters) {
  const Minidump dump = *Read().dump;
  ASSERT_EQ(dump.threads.size(), 2u);
  EXPECT_EQ(dump.threads[1].id, 340u);
  EXPECT_EQ(dump.threads[1].stackBytes, 4096u);
  EXPECT_EQ(dump.threads[1].instruction, 0x180001234u);
  ASSERT_EQ(dump.registers.size(), 18u);
  EXPECT_EQ(dump.registers[0].second, 0xAAAAu);
  EXPECT_EQ(dump.registers[7].second, 0x5555u);
  EXPECT_EQ(dump.registers[15].second, 0xF15u);
  EXPECT_EQ(dump.registers[16].second, 0x180001234u);
  EXPECT_EQ(dump.registers[17].second, 0x246u);
}

TEST_F(MinidumpTest, KnowsNoRegistersOfOtherProcessors) {
  m_dump.Put(m_parts.system, uint16_t{12});
  const Minidump dump = *Read().dump;
  EXPECT_THAT(dump.registers, IsEmpty());
  EXPECT_EQ(dump.threads[0].instruction, std::nullopt);
}

TEST_F(MinidumpTest, ReadsRowsThatAreAlignedToEightBytes) {
  DumpBytes padded = m_dump;
  const size_t list = padded.Add(uint32_t{1});
  padded.Add(uint32_t{0});
  const size_t row = padded.AddZeros(48);
  padded.Put(row, uint32_t{77});
  padded.Put(Row(1) + 4, uint32_t{8 + 48});
  padded.Put(Row(1) + 8, static_cast<uint32_t>(list));
  const Minidump dump = *ReadBytes(padded.bytes).dump;
  ASSERT_EQ(dump.threads.size(), 1u);
  EXPECT_EQ(dump.threads[0].id, 77u);
}

TEST_F(MinidumpTest, SaysWhatIsNoDump) {
  EXPECT_EQ(ReadBytes({}).notADump, L"is empty: writing it was cut short");
  EXPECT_THAT(ReadBytes({'M', 'D'}).notADump, HasSubstr(L"is not a minidump"));
  EXPECT_THAT(ReadBytes({'M', 'Z', 0, 0, 0, 0}).notADump,
              HasSubstr(L"does not begin with MDMP"));
  EXPECT_THAT(ReadFirst(31).notADump, HasSubstr(L"ends within its header"));
  EXPECT_EQ(ReadFirst(32).notADump, L"");
  m_dump.Put(4, uint32_t{0xA792});
  EXPECT_EQ(Read().notADump, L"is a minidump of an unknown version");
  EXPECT_FALSE(Read().dump);
}

// What is left of a cut file is either what the whole file says or missing.
TEST_F(MinidumpTest, ManagesWithAFileCutAnywhere) {
  for (size_t count = 32; count < m_dump.bytes.size(); ++count) {
    const MinidumpResult result = ReadFirst(count);
    ASSERT_TRUE(result.dump) << count;
    const Minidump& dump = *result.dump;
    const bool isWhole = count >= m_parts.misc + 12;
    EXPECT_EQ(dump.damage.empty(), count >= m_parts.misc) << count;
    EXPECT_EQ(dump.exception.has_value(), count >= m_parts.exception + 168);
    EXPECT_EQ(dump.system.has_value(), count >= m_parts.system + 56);
    EXPECT_EQ(dump.processId.has_value(), isWhole);
    const size_t rows =
        count < m_parts.modules + 4 ? 0 : (count - m_parts.modules - 4) / 108;
    EXPECT_EQ(dump.modules.size(), std::min<size_t>(rows, 2)) << count;
  }
}

// Every 32-bit number of the file as if an attacker had chosen it.
TEST_F(MinidumpTest, ManagesWithAnyNumberAnywhere) {
  for (size_t at = 0; at + 4 <= m_dump.bytes.size(); at += 4) {
    for (const uint32_t number :
         {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu,
          static_cast<uint32_t>(m_dump.bytes.size()),
          static_cast<uint32_t>(m_dump.bytes.size() - 1)}) {
      DumpBytes bent = m_dump;
      bent.Put(at, number);
      const MinidumpResult result = ReadBytes(bent.bytes);
      EXPECT_NE(result.dump.has_value(), !result.notADump.empty());
    }
  }
}

TEST_F(MinidumpTest, BoundsWhatAHostileFileAsksFor) {
  m_dump.Put(8, 0xFFFFFFFFu);
  m_dump.Put(m_parts.threads, 0xFFFFFFFFu);
  m_dump.Put(m_parts.modules, 0xFFFFFFFFu);
  m_dump.Put(m_parts.names, 0xFFFFFFFFu);
  m_dump.Put(m_parts.exception + 32, 0xFFFFFFFFu);
  const Minidump dump = *Read().dump;
  EXPECT_LT(dump.modules.size(), 10u);
  EXPECT_EQ(dump.modules[0].path, L"");
  EXPECT_EQ(dump.exception->parameters.size(), 15u);
  EXPECT_THAT(dump.damage, Not(IsEmpty()));
}

TEST_F(MinidumpTest, ReadsEachKindOfStreamOnce) {
  DumpBytes twice = m_dump;
  twice.Put(Row(4), uint32_t{4});
  twice.Put(Row(4) + 8, static_cast<uint32_t>(m_parts.modules));
  EXPECT_EQ(ReadBytes(twice.bytes).dump->modules.size(), 2u);
}

TEST_F(MinidumpTest, TakesModulesThatWrapAroundForWhatTheySay) {
  m_dump.Put(m_parts.modules + 4, ~uint64_t{0});
  const Minidump dump = *Read().dump;
  EXPECT_EQ(dump.ModuleAt(~uint64_t{0}), &dump.modules[0]);
  EXPECT_EQ(dump.ModuleAt(0), nullptr);
}

TEST_F(MinidumpTest, PutsExceptionsIntoWords) {
  const Minidump dump = *Read().dump;
  EXPECT_EQ(kova::ctl::ExceptionText(*dump.exception),
            L"access violation, writing address 0x10");
  EXPECT_EQ(kova::ctl::ExceptionName(0xC00000FD), L"stack overflow");
  EXPECT_EQ(kova::ctl::ExceptionName(0x20474343), L"C++ exception");
  EXPECT_EQ(kova::ctl::ExceptionName(0xE0001234),
            L"an exception of the program's own");
  EXPECT_EQ(kova::ctl::ExceptionName(0xC0001234), L"unknown exception");
}

TEST_F(MinidumpTest, LeavesTheAddressOutWhereThereIsNone) {
  kova::ctl::DumpException exception;
  exception.code = 0xC0000005;
  EXPECT_EQ(kova::ctl::ExceptionText(exception), L"access violation");
  exception.parameters = {8, 0};
  EXPECT_EQ(kova::ctl::ExceptionText(exception),
            L"access violation, executing address 0x0");
  exception.parameters = {0};
  EXPECT_EQ(kova::ctl::ExceptionText(exception), L"access violation");
}

}  // namespace

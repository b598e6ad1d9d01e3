#include "logs/sample_dump.h"

namespace kova::ctl::test {
namespace {

constexpr size_t kStreams = 5;

uint32_t Narrow(size_t offset) { return static_cast<uint32_t>(offset); }

void AddDirectoryRow(DumpBytes& dump, size_t row, uint32_t type, size_t offset,
                     size_t sizeBytes) {
  const size_t at = 32 + row * 12;
  dump.Put(at, type);
  dump.Put(at + 4, Narrow(sizeBytes));
  dump.Put(at + 8, Narrow(offset));
}

void AddHeader(DumpBytes& dump) {
  dump.Add(uint32_t{0x504D444D});
  dump.Add(uint32_t{0x1234A793});
  dump.Add(Narrow(kStreams));
  dump.Add(uint32_t{32});
  dump.Add(uint32_t{0});
  dump.Add(uint32_t{1700000000});
  dump.Add(uint64_t{0});
  dump.AddZeros(kStreams * 12);
}

size_t AddContext(DumpBytes& dump) {
  const size_t context = dump.AddZeros(1232);
  dump.Put(context + 0x44, uint32_t{0x246});
  dump.Put(context + 0x78, uint64_t{0xAAAA});
  dump.Put(context + 0x98, uint64_t{0x5555});
  dump.Put(context + 0xF0, uint64_t{0xF15});
  dump.Put(context + 0xF8, uint64_t{0x180001234});
  return context;
}

size_t AddException(DumpBytes& dump, size_t context) {
  const size_t at = dump.AddZeros(168);
  dump.Put(at, uint32_t{340});
  dump.Put(at + 8, uint32_t{0xC0000005});
  dump.Put(at + 12, uint32_t{1});
  dump.Put(at + 24, uint64_t{0x180001234});
  dump.Put(at + 32, uint32_t{2});
  dump.Put(at + 40, uint64_t{1});
  dump.Put(at + 48, uint64_t{0x10});
  dump.Put(at + 160, uint32_t{1232});
  dump.Put(at + 164, Narrow(context));
  return at;
}

void AddThread(DumpBytes& dump, uint32_t id, size_t context) {
  const size_t at = dump.AddZeros(48);
  dump.Put(at, id);
  dump.Put(at + 32, uint32_t{4096});
  dump.Put(at + 40, uint32_t{1232});
  dump.Put(at + 44, Narrow(context));
}

void AddModule(DumpBytes& dump, uint64_t base, size_t name, bool hasVersion) {
  const size_t at = dump.AddZeros(108);
  dump.Put(at, base);
  dump.Put(at + 8, uint32_t{0x10000});
  dump.Put(at + 20, Narrow(name));
  if (!hasVersion) return;
  dump.Put(at + 24, uint32_t{0xFEEF04BD});
  dump.Put(at + 32, uint32_t{0x00010002});
  dump.Put(at + 36, uint32_t{0x00030004});
}

size_t AddSystem(DumpBytes& dump, size_t servicePack) {
  const size_t at = dump.AddZeros(56);
  dump.Put(at, uint16_t{9});
  dump.Put(at + 6, uint8_t{4});
  dump.Put(at + 7, uint8_t{1});
  dump.Put(at + 8, uint32_t{10});
  dump.Put(at + 12, uint32_t{0});
  dump.Put(at + 16, uint32_t{19045});
  dump.Put(at + 24, Narrow(servicePack));
  return at;
}

size_t AddMisc(DumpBytes& dump) {
  const size_t at = dump.Add(uint32_t{24});
  dump.Add(uint32_t{1});
  dump.Add(uint32_t{324});
  dump.AddZeros(12);
  return at;
}

}  // namespace

DumpBytes SmallDump(DumpParts& parts) {
  DumpBytes dump;
  AddHeader(dump);
  parts.names = dump.AddString(u"C:\\x\\KOVAServer.dll");
  const size_t system = dump.AddString(u"C:/windows/ntdll.dll");
  const size_t pack = dump.AddString(u"Service Pack 9");
  parts.context = AddContext(dump);
  parts.exception = AddException(dump, parts.context);
  AddDirectoryRow(dump, 0, 6, parts.exception, 168);
  parts.threads = dump.Add(uint32_t{2});
  AddThread(dump, 324, parts.context);
  AddThread(dump, 340, parts.context);
  AddDirectoryRow(dump, 1, 3, parts.threads, 4 + 2 * 48);
  parts.modules = dump.Add(uint32_t{2});
  AddModule(dump, 0x180000000, parts.names, true);
  AddModule(dump, 0x170000000, system, false);
  AddDirectoryRow(dump, 2, 4, parts.modules, 4 + 2 * 108);
  parts.system = AddSystem(dump, pack);
  AddDirectoryRow(dump, 3, 7, parts.system, 56);
  parts.misc = AddMisc(dump);
  AddDirectoryRow(dump, 4, 15, parts.misc, 24);
  return dump;
}

}  // namespace kova::ctl::test

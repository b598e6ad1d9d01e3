#include "logs/dump_report.h"

#include "common/plain_text.h"
#include "common/time_text.h"
#include "common/utf8.h"

namespace kova::ctl {
namespace {

constexpr size_t kListIndent = 6;
constexpr size_t kRowIndent = 13;

// Hexadecimal as debuggers write codes and registers.
std::wstring Digits(uint64_t number, size_t width) {
  return HexText(number, width).substr(2);
}

std::wstring ListHead() {
  return L"   N  Time                     Size  Thread  Code      Module\n";
}

struct Architecture {
  uint16_t value;
  const wchar_t* name;
};
constexpr Architecture kArchitectures[] = {
    {0, L"x86"}, {5, L"ARM"}, {9, L"x64"}, {12, L"ARM64"}};

std::wstring ArchitectureName(uint16_t value) {
  for (const Architecture& row : kArchitectures) {
    if (row.value == value) return row.name;
  }
  return L"processor type " + std::to_wstring(value);
}

std::wstring SystemText(const DumpSystem& system) {
  std::wstring text = std::to_wstring(system.major) + L"." +
                      std::to_wstring(system.minor) + L" build " +
                      std::to_wstring(system.build);
  if (!system.servicePack.empty()) {
    text += L" " + HarmlessLine(system.servicePack);
  }
  return text + L", " + ArchitectureName(system.architecture) + L", " +
         std::to_wstring(system.processors) +
         (system.processors == 1 ? L" processor" : L" processors");
}

std::wstring PlaceText(const Minidump& dump, uint64_t address) {
  const DumpModule* const module = dump.ModuleAt(address);
  if (module == nullptr) return HexText(address, 16);
  return module->FileName() + L"+" + HexText(address - module->base, 1);
}

std::wstring WhereText(const Minidump& dump, uint64_t address) {
  const std::wstring place = HarmlessLine(PlaceText(dump, address));
  if (dump.ModuleAt(address) == nullptr) return place + L" (in no module)";
  return place + L" (" + HexText(address, 16) + L")";
}

// What the columns leave out, below them.
std::wstring ListDetails(const CrashDump& loaded) {
  std::wstring text;
  if (!loaded.number) {
    text += Wrapped(HarmlessLine(loaded.FileName()), kListIndent);
  }
  if (!loaded.dump) {
    return text + Wrapped(L"The file " + loaded.problem + L".", kListIndent);
  }
  const Minidump& dump = *loaded.dump;
  if (dump.exception) {
    text += Wrapped(ExceptionText(*dump.exception) + L", at " +
                        WhereText(dump, dump.exception->address),
                    kListIndent);
  } else if (dump.damage.empty()) {
    text += Wrapped(L"It names no exception.", kListIndent);
  }
  if (!dump.damage.empty()) {
    text += Wrapped(L"The file is cut short or damaged.", kListIndent);
  }
  return text;
}

std::wstring ListRow(const CrashDump& loaded) {
  std::wstring row =
      Right(loaded.number ? std::to_wstring(*loaded.number) : L"-", 4) + L"  " +
      LocalTimeText(loaded.FileTime()) + L"  " +
      Right(SizeText(loaded.file.sizeBytes), 8);
  if (loaded.dump && loaded.dump->exception) {
    const DumpException& exception = *loaded.dump->exception;
    row += L"  " + Right(std::to_wstring(exception.threadId), 6) + L"  " +
           Digits(exception.code, 8);
    const DumpModule* const module = loaded.dump->ModuleAt(exception.address);
    if (module != nullptr) {
      row += L"  " + Tail(HarmlessLine(module->FileName()), 25);
    }
  }
  return row + L"\n" + ListDetails(loaded);
}

std::wstring NoDumpsText(const std::vector<std::wstring>& folders) {
  std::wstring text = L"There are no dumps in\n";
  for (const std::wstring& folder : folders) {
    text += L"  " + HarmlessLine(folder) + L"\n";
  }
  return text;
}

std::wstring FolderOf(const CrashDump& loaded) {
  return loaded.file.path.substr(0, loaded.file.path.find_last_of(L"\\/"));
}

std::wstring Row(const std::wstring& label, const std::wstring& text) {
  return LabelledRow(label, text, kRowIndent);
}

std::wstring ExceptionRows(const Minidump& dump) {
  if (!dump.exception) return Row(L"Exception", L"none in the file");
  const DumpException& exception = *dump.exception;
  constexpr uint32_t kNoncontinuable = 1;
  return Row(L"Exception",
             Digits(exception.code, 8) + L", " + ExceptionText(exception)) +
         Row(L"Where", WhereText(dump, exception.address)) +
         Row(L"Thread", std::to_wstring(exception.threadId) +
                            ((exception.flags & kNoncontinuable) != 0
                                 ? L"; the program could not have gone on"
                                 : L""));
}

std::wstring HeadRows(const CrashDump& loaded) {
  const Minidump& dump = *loaded.dump;
  std::wstring text = HarmlessLine(loaded.file.path) + L"\n";
  text +=
      Row(L"Crashed", LocalTimeText(loaded.FileTime()) + L" (local time), " +
                          SizeText(loaded.file.sizeBytes));
  // The program comes first in the list of modules.
  const std::wstring program =
      dump.modules.empty() ? L"(unknown)" : dump.modules.front().FileName();
  const std::wstring id =
      dump.processId ? L", process " + std::to_wstring(*dump.processId) : L"";
  text += Row(L"Program", HarmlessLine(program) + id);
  if (dump.system) text += Row(L"Windows", SystemText(*dump.system));
  text += ExceptionRows(dump);
  for (const std::wstring& what : dump.damage) {
    text += Row(L"Damaged", what);
  }
  return text;
}

std::wstring RegisterRows(const Minidump& dump) {
  constexpr size_t kPerLine = 3;
  if (dump.registers.empty()) return {};
  std::wstring text = L"\nRegisters of the faulting thread\n";
  for (size_t i = 0; i < dump.registers.size(); ++i) {
    text += L"  " + Left(dump.registers[i].first, 5) + L" " +
            Digits(dump.registers[i].second, 16);
    if (i % kPerLine == kPerLine - 1) text += L"\n";
  }
  if (text.back() != L'\n') text += L"\n";
  return text;
}

std::wstring ThreadRows(const Minidump& dump) {
  std::wstring text =
      L"\nThreads (* has faulted; where it was; stack in the dump)\n";
  for (const DumpThread& thread : dump.threads) {
    const bool isFaulting =
        dump.exception && dump.exception->threadId == thread.id;
    // The context of the faulting thread is inside the recording of the fault.
    const std::optional<uint64_t> at =
        isFaulting ? dump.exception->address : thread.instruction;
    text += (isFaulting ? L"* " : L"  ") +
            Right(std::to_wstring(thread.id), 6) + L"  " +
            Left(at ? Tail(HarmlessLine(PlaceText(dump, *at)), 44) : L"?", 46) +
            Right(SizeText(thread.stackBytes), 8) + L"\n";
  }
  return text;
}

std::wstring ModuleRows(const Minidump& dump) {
  std::wstring text = L"\nModules (base, version, path)\n";
  for (const DumpModule& module : dump.modules) {
    text += L"  " + Digits(module.base, 16) + L"  " +
            Left(module.version.empty() ? L"-" : module.version, 16) + L"  " +
            Tail(HarmlessLine(module.path), 42) + L"\n";
  }
  return text;
}

std::wstring DebuggerRows(const CrashDump& loaded) {
  const std::wstring name = HarmlessLine(loaded.FileName());
  return L"\nTo open it, with that build's DLLs in C:\\images and its .pdb "
         L"files "
         L"in\nC:\\symbols (docs/crash-dumps.md says more, and how on Linux):\n"
         L"  cdb -z " +
         name +
         L" -y C:\\symbols -i C:\\images\n"
         L"      -c \"!analyze -v; .ecxr; kn; q\"\n";
}

std::string Hex(uint64_t number, size_t digits) {
  return ToUtf8(HexText(number, digits));
}

Json PlaceJson(const Minidump& dump, uint64_t address) {
  const DumpModule* const module = dump.ModuleAt(address);
  return {
      {"address", Hex(address, 16)},
      {"module", module ? Json(ToUtf8(module->FileName())) : Json(nullptr)},
      {"offset", module ? Json(Hex(address - module->base, 1)) : Json(nullptr)},
  };
}

Json ExceptionJson(const Minidump& dump) {
  if (!dump.exception) return nullptr;
  const DumpException& exception = *dump.exception;
  Json json = {
      {"code", Hex(exception.code, 8)},
      {"name", ToUtf8(ExceptionName(exception.code))},
      {"text", ToUtf8(ExceptionText(exception))},
      {"flags", exception.flags},
      {"threadId", exception.threadId},
  };
  json.update(PlaceJson(dump, exception.address));
  json["parameters"] = JsonList(exception.parameters,
                                [](uint64_t number) { return Hex(number, 1); });
  return json;
}

Json SummaryJson(const CrashDump& loaded) {
  const bool isRead = loaded.dump.has_value();
  return {
      {"path", ToUtf8(loaded.file.path)},
      {"number", JsonOrNull(loaded.number)},
      {"written", ToUtf8(UtcTimeText(loaded.FileTime()))},
      {"sizeBytes", loaded.file.sizeBytes},
      {"problem", isRead ? Json(nullptr) : Json(ToUtf8(loaded.problem))},
      {"exception", isRead ? ExceptionJson(*loaded.dump) : Json(nullptr)},
      {"damage", isRead ? JsonList(loaded.dump->damage) : Json::array()},
  };
}

Json SystemJson(const Minidump& dump) {
  if (!dump.system) return nullptr;
  return {
      {"major", dump.system->major},
      {"minor", dump.system->minor},
      {"build", dump.system->build},
      {"servicePack", ToUtf8(dump.system->servicePack)},
      {"architecture", dump.system->architecture},
      {"processors", dump.system->processors},
      {"text", ToUtf8(SystemText(*dump.system))},
  };
}

Json ThreadsJson(const Minidump& dump) {
  return JsonList(dump.threads, [&dump](const DumpThread& thread) {
    Json json = {{"id", thread.id}, {"stackBytes", thread.stackBytes}};
    if (thread.instruction) json.update(PlaceJson(dump, *thread.instruction));
    return json;
  });
}

Json ModuleJson(const DumpModule& module) {
  return {
      {"path", ToUtf8(module.path)},
      {"base", Hex(module.base, 16)},
      {"sizeBytes", module.sizeBytes},
      {"version", ToUtf8(module.version)},
  };
}

}  // namespace

std::wstring SizeText(uint64_t sizeBytes) {
  constexpr const wchar_t* kUnits[] = {L" B", L" KB", L" MB", L" GB"};
  constexpr uint64_t kMostDigits = 10000;
  size_t unit = 0;
  while (sizeBytes >= kMostDigits && unit + 1 < std::size(kUnits)) {
    sizeBytes = (sizeBytes + 512) / 1024;
    ++unit;
  }
  return std::to_wstring(sizeBytes) + kUnits[unit];
}

std::wstring DumpListText(const std::vector<CrashDump>& dumps,
                          const std::vector<std::wstring>& folders) {
  if (dumps.empty()) return NoDumpsText(folders);
  std::wstring text;
  for (const std::wstring& folder : folders) {
    std::wstring rows;
    for (const CrashDump& loaded : dumps) {
      if (FolderOf(loaded) == folder) rows += ListRow(loaded);
    }
    if (rows.empty()) continue;
    if (!text.empty()) text += L"\n";
    text += HarmlessLine(folder) + L"\n" + ListHead() + rows;
  }
  return text;
}

std::wstring DumpText(const CrashDump& loaded) {
  const Minidump& dump = *loaded.dump;
  return HeadRows(loaded) + RegisterRows(dump) + ThreadRows(dump) +
         ModuleRows(dump) + DebuggerRows(loaded);
}

Json DumpListJson(const std::vector<CrashDump>& dumps,
                  const std::vector<std::wstring>& folders) {
  return {
      {"folders", JsonList(folders)},
      {"dumps", JsonList(dumps, &SummaryJson)},
  };
}

Json DumpJson(const CrashDump& loaded) {
  const Minidump& dump = *loaded.dump;
  Json json = SummaryJson(loaded);
  json["processId"] = JsonOrNull(dump.processId);
  json["system"] = SystemJson(dump);
  Json registers = Json::object();
  for (const DumpRegister& entry : dump.registers) {
    registers[ToUtf8(entry.first)] = Hex(entry.second, 16);
  }
  json["registers"] = std::move(registers);
  json["threads"] = ThreadsJson(dump);
  json["modules"] = JsonList(dump.modules, &ModuleJson);
  return json;
}

}  // namespace kova::ctl

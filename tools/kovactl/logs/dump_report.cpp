#include "logs/dump_report.h"

#include "common/plain_text.h"
#include "logs/dump_words.h"
#include "logs/exception_name.h"

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

std::wstring WhereText(const Minidump& dump, uint64_t address) {
  const std::wstring place = HarmlessLine(PlaceText(dump, address));
  if (dump.ModuleAt(address) == nullptr) return place + L" (in no module)";
  return place + L" (" + HexText(address, 16) + L")";
}

// What the columns leave out, below them.
std::wstring ListDetails(const LoadedDump& loaded) {
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

std::wstring ListRow(const LoadedDump& loaded) {
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

std::wstring FolderOf(const LoadedDump& loaded) {
  return loaded.file.path.substr(0, loaded.file.path.find_last_of(L"\\/"));
}

// What a file says may be empty or blank.
std::wstring Row(const std::wstring& label, const std::wstring& text) {
  std::wstring lines = Wrapped(text, kRowIndent);
  if (lines.empty()) lines = std::wstring(kRowIndent, L' ') + L"-\n";
  return lines.replace(2, label.size(), label);
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

std::wstring HeadRows(const LoadedDump& loaded) {
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

std::wstring DebuggerRows(const LoadedDump& loaded) {
  const std::wstring name = HarmlessLine(loaded.FileName());
  return L"\nTo open it, with that build's DLLs in C:\\images and its .pdb "
         L"files "
         L"in\nC:\\symbols (docs/crash-dumps.md says more, and how on Linux):\n"
         L"  cdb -z " +
         name +
         L" -y C:\\symbols -i C:\\images\n"
         L"      -c \"!analyze -v; .ecxr; kn; q\"\n";
}

}  // namespace

std::wstring DumpListText(const std::vector<LoadedDump>& dumps,
                          const std::vector<std::wstring>& folders) {
  if (dumps.empty()) return NoDumpsText(folders);
  std::wstring text;
  for (const std::wstring& folder : folders) {
    std::wstring rows;
    for (const LoadedDump& loaded : dumps) {
      if (FolderOf(loaded) == folder) rows += ListRow(loaded);
    }
    if (rows.empty()) continue;
    if (!text.empty()) text += L"\n";
    text += HarmlessLine(folder) + L"\n" + ListHead() + rows;
  }
  return text;
}

std::wstring DumpText(const LoadedDump& loaded) {
  const Minidump& dump = *loaded.dump;
  return HeadRows(loaded) + RegisterRows(dump) + ThreadRows(dump) +
         ModuleRows(dump) + DebuggerRows(loaded);
}

}  // namespace kova::ctl

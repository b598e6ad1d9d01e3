#include <memory>
#include <string>
#include <vector>

#include "common/file_path.h"
#include "common/plain_text.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "common/wait_notice.h"
#include "logs/crash_dump.h"
#include "logs/dump_report.h"
#include "verbs.h"

namespace kova::ctl {
namespace {

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl dumps\n"
    "      every crash dump of the server on this machine, the latest first\n"
    "  kovactl dumps show 0\n"
    "      one of them: registers, threads, modules, and how to open it\n"
    "  kovactl dumps --folder D:\\from-the-customer\n"
    "      dumps that were copied from another machine";

constexpr char kShowExamples[] =
    "Examples:\n"
    "  kovactl dumps show 0\n"
    "  kovactl dumps show D:\\from-the-customer\\KOVAServerCrash_0003.dmp";

struct Arguments {
  std::string folder;
  std::string what;
  bool json = false;
};

std::optional<Failure> ChooseFolders(const Arguments& arguments,
                                     std::vector<std::wstring>& folders) {
  if (arguments.folder.empty()) {
    folders = DumpFolders();
    return std::nullopt;
  }
  std::wstring path = FullPath(ToWide(arguments.folder));
  path.erase(path.find_last_not_of(L"\\/") + 1);
  folders = {path};
  if (FolderExists(path)) return std::nullopt;
  return Failure{ExitCode::kNotFound,
                 L"there is no folder " + HarmlessLine(path) +
                     L"; name the one that holds the .dmp files"};
}

std::optional<Failure> List(const Arguments& arguments) {
  std::vector<std::wstring> folders;
  if (auto failure = ChooseFolders(arguments, folders)) return failure;
  std::vector<CrashDump> dumps;
  {
    const WaitNotice notice(L"Reading the dumps");
    if (auto failure = LoadDumps(folders, dumps)) return failure;
  }
  if (arguments.json) {
    ShowJson(DumpListJson(dumps, folders));
  } else {
    ShowText(DumpListText(dumps, folders));
  }
  return std::nullopt;
}

std::optional<Failure> Show(const Arguments& arguments) {
  std::vector<std::wstring> folders;
  if (auto failure = ChooseFolders(arguments, folders)) return failure;
  CrashDump loaded;
  if (auto failure = FindDump(folders, ToWide(arguments.what), loaded)) {
    return failure;
  }
  if (!loaded.dump) {
    return Failure{ExitCode::kInternalError, HarmlessLine(loaded.file.path) +
                                                 L" " + loaded.problem +
                                                 L"; there is nothing to show"};
  }
  if (arguments.json) {
    ShowJson(DumpJson(loaded));
  } else {
    ShowText(DumpText(loaded));
  }
  return std::nullopt;
}

}  // namespace

void AddDumpsVerb(CLI::App& app) {
  CLI::App* const verb =
      app.add_subcommand("dumps", "List the server's crash dumps, or show one");
  const auto arguments = std::make_shared<Arguments>();
  verb->add_option("--folder", arguments->folder,
                   "Where the dumps lie (default: this machine's)")
      ->type_name("PATH");
  AddJsonFlag(*verb, arguments->json);
  verb->require_subcommand(0, 1);
  verb->footer(kExamples);
  CLI::App* const show =
      verb->add_subcommand("show", "Show one dump in detail");
  show->add_option("N", arguments->what, "Its number, file name or path")
      ->required()
      ->type_name("");
  show->fallthrough();
  show->footer(kShowExamples);
  verb->callback([arguments, show] {
    EndVerb(show->parsed() ? Show(*arguments) : List(*arguments));
  });
}

}  // namespace kova::ctl

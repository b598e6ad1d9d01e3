#include <memory>
#include <string>
#include <vector>

#include "author/loaded_extension.h"
#include "author/recording.h"
#include "author/replay.h"
#include "check/input_file.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "verbs.h"

namespace kova::ctl {
namespace {

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl run --demo --package .\\mine --record .\\asked\n"
    "      keep what is asked and answered\n"
    "  kovactl replay .\\asked .\\mine --ignore Date\n"
    "      ask it again, of another build, and show what it answers otherwise";

struct Arguments {
  std::string folder;
  std::string path;
  std::vector<std::string> ignored;
  bool json = false;
};

// Nobody listens here, and so nothing restarts.
void Restart() {}

void Run(const Arguments& arguments) {
  std::vector<Recorded> recording;
  EndVerb(ReadRecording(ToWide(arguments.folder), recording));
  const std::wstring library = check::LibraryPath(ToWide(arguments.path));
  EndVerb(check::CheckLibraryFile(library));
  check::Extension extension;
  const std::wstring failure = LoadExtension(library, &Restart, extension);
  if (!failure.empty()) {
    EndVerb(Failure{
        ExitCode::kUnsuitableLibrary,
        library + L" " + failure + L"; kovactl check-extension says more"});
  }
  const ReplayReport report = Replay(recording, extension, arguments.ignored);
  if (arguments.json) {
    ShowJson(ReplayJson(report));
  } else {
    ShowText(ReplayText(report));
  }
  if (!report.different.empty()) {
    throw CLI::RuntimeError(static_cast<int>(ExitCode::kInternalError));
  }
}

}  // namespace

void AddReplayVerb(CLI::App& app) {
  CLI::App* const verb = app.add_subcommand(
      "replay", "Give recorded requests to another build of an extension");
  const auto arguments = std::make_shared<Arguments>();
  verb->add_option("folder", arguments->folder,
                   "The folder of kovactl run --record")
      ->type_name("FOLDER")
      ->required();
  verb->add_option("path", arguments->path,
                   "The extension's library, or the package folder it is in")
      ->type_name("PATH")
      ->required();
  verb->add_option("--ignore", arguments->ignored,
                   "Do not compare this header; may be given several times")
      ->type_name("HEADER")
      ->allow_extra_args(false);
  AddJsonFlag(*verb, arguments->json);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl

#include <memory>
#include <string>

#include "author/new_extension.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "verbs.h"

namespace kova::ctl {
namespace {

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl new-extension mine\n"
    "      the folder mine, with an extension in C++ that builds as it is\n"
    "  kovactl new-extension mine --c\n"
    "      the same in C; mine\\README.md says how to go on";

struct Arguments {
  std::string path;
  bool isC = false;
  bool isCpp = false;
};

void Run(const Arguments& arguments) {
  EndVerb(MakeExtension(ToWide(arguments.path),
                        arguments.isC ? Language::kC : Language::kCpp));
  ShowText(L"Made " + ToWide(arguments.path) + L"; its README.md says how to " +
           L"build and try it.\n");
}

}  // namespace

void AddNewExtensionVerb(CLI::App& app) {
  CLI::App* const verb = app.add_subcommand(
      "new-extension", "Make a folder for an extension of your own");
  const auto arguments = std::make_shared<Arguments>();
  verb->add_option("name", arguments->path, "The folder, and the name")
      ->type_name("NAME")
      ->required();
  CLI::Option* const c = verb->add_flag("--c", arguments->isC, "Write it in C");
  verb->add_flag("--cpp", arguments->isCpp, "Write it in C++ (the default)")
      ->excludes(c);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl

// Unit: the help of every verb.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <CLI/CLI.hpp>

#include <sstream>
#include <string>

#include "verbs.h"

namespace {

using ::testing::HasSubstr;

constexpr size_t kColumns = 80;

// The help of `verb` and of the verbs below it. Returns how many these are.
size_t CheckHelp(const CLI::App& verb) {
  std::istringstream lines(verb.help());
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(line.size(), kColumns) << verb.get_name() << ": " << line;
    EXPECT_FALSE(line.ends_with(' ')) << verb.get_name() << ": " << line;
  }
  size_t count = 1;
  for (const CLI::App* const below : verb.get_subcommands({})) {
    count += CheckHelp(*below);
  }
  return count;
}

TEST(HelpTest, FitsTheScreen) {
  CLI::App app;
  kova::ctl::AddEveryVerb(app);
  EXPECT_GT(CheckHelp(app), 20u);
}

TEST(HelpTest, GoesOnInTheColumnOfItsDescriptions) {
  CLI::App app;
  kova::ctl::AddEveryVerb(app);
  EXPECT_THAT(app.get_subcommand("run")->help(),
              HasSubstr("  --package PATH Needs: --demo\n"
                        "                              Let this extension "
                        "library, or the one in this\n"
                        "                              folder, answer for"));
}

}  // namespace

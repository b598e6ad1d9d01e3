// How the help of a verb looks.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace kova::ctl {

// As the library does it, but within 80 columns: descriptions are broken at
// blanks and go on in their own column.
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_option(const CLI::Option* option,
                          bool isPositional) const override;
  std::string make_subcommand(const CLI::App* verb) const override;
};

}  // namespace kova::ctl

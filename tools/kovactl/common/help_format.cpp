#include "common/help_format.h"

#include "common/plain_text.h"
#include "common/utf8.h"

namespace kova::ctl {
namespace {

constexpr size_t kColumn = 30;

std::string Row(const std::string& name, const std::string& description) {
  const std::string head = "  " + name;
  const std::string text = ToUtf8(Wrapped(ToWide(description), kColumn));
  if (head.size() >= kColumn || text.empty()) return head + "\n" + text;
  return head + text.substr(head.size());
}

}  // namespace

std::string HelpFormatter::make_option(const CLI::Option* option,
                                       bool isPositional) const {
  return Row(make_option_name(option, isPositional) + make_option_opts(option),
             make_option_desc(option));
}

std::string HelpFormatter::make_subcommand(const CLI::App* verb) const {
  return Row(verb->get_display_name(true), verb->get_description());
}

}  // namespace kova::ctl

#include "common/verb.h"

#include "common/output.h"
#include "common/utf8.h"

namespace kova::ctl {
namespace {

constexpr int kIndent = 2;

}  // namespace

void AddJsonFlag(CLI::App& verb, bool& json) {
  verb.add_flag("--json", json, "Write JSON for programs, not text for people");
}

void ShowJson(const nlohmann::ordered_json& report) {
  using Json = nlohmann::ordered_json;
  ShowText(ToWide(
      report.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n"));
}

void ShowText(std::wstring_view text) { Output(STD_OUTPUT_HANDLE).Write(text); }

void EndVerb(const std::optional<Failure>& failure) {
  if (!failure) return;
  WriteError(failure->text);
  throw CLI::RuntimeError(static_cast<int>(failure->code));
}

}  // namespace kova::ctl

// JSON for programs that read what a verb found.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace kova::ctl {

// Keeps its members in the order in which they were set. Texts in it are UTF-8.
using Json = nlohmann::ordered_json;

// An array with what `toJson` makes of each member of `range`.
template <typename Range, typename ToJson>
Json JsonList(const Range& range, ToJson toJson) {
  Json list = Json::array();
  for (const auto& member : range) list.push_back(toJson(member));
  return list;
}

// An array of texts.
Json JsonList(const std::vector<std::wstring>& texts);

// The value, or null.
template <typename Value>
Json JsonOrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

// `json` and a line end, indented by `indent` for each level, on one line if
// that is -1. What is not UTF-8 becomes U+FFFD.
std::wstring JsonText(const Json& json, int indent);

}  // namespace kova::ctl

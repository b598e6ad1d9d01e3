#include "common/json.h"

#include "common/utf8.h"

namespace kova::ctl {

Json JsonList(const std::vector<std::wstring>& texts) {
  return JsonList(texts, &ToUtf8);
}

std::wstring JsonText(const Json& json, int indent) {
  return ToWide(json.dump(indent, ' ', false, Json::error_handler_t::replace)) +
         L"\n";
}

}  // namespace kova::ctl

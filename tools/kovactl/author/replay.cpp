#include "author/replay.h"

#include <algorithm>
#include <map>

#include "base/ascii.h"
#include "common/output.h"
#include "common/plain_text.h"
#include "common/utf8.h"
#include "kova/extension_http.h"

namespace kova::ctl {
namespace {

// The request that is being answered, for the report of a crash. One replay
// runs at a time.
const Recorded* g_current = nullptr;

LONG WINAPI TellOfCrash(EXCEPTION_POINTERS* exception) {
  WriteError(L"the extension crashed, exception " +
             HexText(exception->ExceptionRecord->ExceptionCode, 8) +
             L", while it answered " + ToWide(g_current->name) +
             L".request; kovactl check-extension --request says more");
  ::TerminateProcess(::GetCurrentProcess(),
                     static_cast<UINT>(ExitCode::kInternalError));
  return EXCEPTION_EXECUTE_HANDLER;
}

std::string LowerCase(std::string_view text) {
  std::string lower;
  for (const char c : text) {
    lower += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return lower;
}

// By names in lower case; values of the same name behind each other.
using Headers = std::map<std::string, std::string>;

Headers HeadersOf(std::string_view response) {
  Headers headers;
  std::string_view rest = response.substr(0, HeadBytes(response));
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = Trim(rest.substr(0, end), kBlanksAndLineEnds);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    std::string& value = headers[LowerCase(line.substr(0, colon))];
    if (!value.empty()) value += ", ";
    value += Trim(line.substr(colon + 1), kBlanksAndLineEnds);
  }
  return headers;
}

std::string ValueIn(const Headers& headers, const std::string& name) {
  const auto at = headers.find(name);
  return at == headers.end() ? "absent" : at->second;
}

void CompareHeaders(const SeenExchange& recorded, const SeenExchange& now,
                    const std::vector<std::string>& ignored,
                    std::vector<Difference>& found) {
  const Headers before = HeadersOf(recorded.response);
  const Headers after = HeadersOf(now.response);
  Headers all = before;
  all.insert(after.begin(), after.end());
  for (const auto& row : all) {
    const std::string& name = row.first;
    const bool isIgnored =
        std::ranges::any_of(ignored, [&name](const std::string& other) {
          return EqualsNoCase(other, name);
        });
    const std::string was = ValueIn(before, name);
    const std::string is = ValueIn(after, name);
    if (!isIgnored && was != is) found.push_back({"header " + name, was, is});
  }
}

void CompareBodies(const SeenExchange& recorded, const SeenExchange& now,
                   std::vector<Difference>& found) {
  const auto bodyOf = [](const SeenExchange& exchange) {
    const std::string_view all = exchange.response;
    return all.substr(HeadBytes(all));
  };
  const std::string_view before = bodyOf(recorded);
  const std::string_view after = bodyOf(now);
  const auto [at, other] = std::ranges::mismatch(before, after);
  if (at == before.end() && other == after.end()) return;
  found.push_back({"body", std::to_string(before.size()) + " bytes",
                   std::to_string(after.size()) +
                       " bytes, another one from byte " +
                       std::to_string(at - before.begin()) + " on"});
}

// What the extension makes of one request.
SeenExchange Ask(const SeenExchange& recorded,
                 const check::Extension& extension) {
  SeenExchange now;
  uint32_t keepOpen = recorded.keepOpenBefore;
  const KOVA_Response response =
      extension.handle == nullptr
          ? nullptr
          : extension.handle(extension.context, recorded.request.data(),
                             static_cast<uint32_t>(recorded.request.size()),
                             recorded.client.data(),
                             static_cast<uint32_t>(recorded.client.size()),
                             &keepOpen);
  now.keepOpenAfter = keepOpen;
  if (response == nullptr) return now;
  const uint32_t length = extension.length == nullptr
                              ? 0
                              : extension.length(extension.context, response);
  now.response.resize(length);
  if (length > 0 && extension.copy != nullptr &&
      extension.copy(extension.context, response, now.response.data(),
                     length) != 0) {
    now.responseBytes = length;
  } else {
    now.response.clear();
  }
  if (extension.release != nullptr) {
    extension.release(extension.context, response);
  }
  return now;
}

std::string AnswerWord(const SeenExchange& exchange) {
  return exchange.responseBytes == 0 ? "none" : "one";
}

std::wstring Shown(const std::string& bytes) {
  return HarmlessLine(ToWide(bytes));
}

}  // namespace

std::vector<Difference> Compare(const SeenExchange& recorded,
                                const SeenExchange& now, bool isCut,
                                const std::vector<std::string>& ignored) {
  std::vector<Difference> found;
  if (AnswerWord(recorded) != AnswerWord(now)) {
    return {{"answer", AnswerWord(recorded), AnswerWord(now)}};
  }
  const uint32_t before = StatusOf(recorded.response);
  const uint32_t after = StatusOf(now.response);
  if (before != after) {
    found.push_back({"status", std::to_string(before), std::to_string(after)});
  }
  const auto fate = [](const SeenExchange& exchange) {
    return std::string(exchange.keepOpenAfter != 0 ? "kept open" : "closed");
  };
  if (fate(recorded) != fate(now)) {
    found.push_back({"connection", fate(recorded), fate(now)});
  }
  CompareHeaders(recorded, now, ignored, found);
  if (!isCut) CompareBodies(recorded, now, found);
  return found;
}

ReplayReport Replay(const std::vector<Recorded>& recording,
                    const check::Extension& extension,
                    const std::vector<std::string>& ignored) {
  ReplayReport report;
  const auto before = ::SetUnhandledExceptionFilter(&TellOfCrash);
  for (const Recorded& recorded : recording) {
    const SeenExchange& exchange = recorded.exchange;
    if (exchange.request.size() != exchange.requestBytes) {
      ++report.skipped;
      continue;
    }
    g_current = &recorded;
    ++report.requests;
    const bool isCut = exchange.response.size() != exchange.responseBytes;
    std::vector<Difference> differences =
        Compare(exchange, Ask(exchange, extension), isCut, ignored);
    if (differences.empty()) continue;
    KOVA_HttpRequest request;
    KOVA_ReadRequest(&request, exchange.request.data(),
                     static_cast<uint32_t>(exchange.request.size()));
    report.different.push_back(
        {recorded.name, std::string(kova::View(request.method)),
         std::string(kova::View(request.path)), std::move(differences)});
  }
  ::SetUnhandledExceptionFilter(before);
  return report;
}

std::wstring ReplayText(const ReplayReport& report) {
  std::wstring text;
  for (const ReplayedRequest& request : report.different) {
    text += ToWide(request.name) + L"  " + Shown(request.method) + L" " +
            Shown(request.path) + L"\n";
    for (const Difference& difference : request.differences) {
      text += L"  " + Shown(difference.what) + L": " +
              Shown(difference.recorded) + L" -> " + Shown(difference.now) +
              L"\n";
    }
  }
  text += std::to_wstring(report.different.size()) + L" of " +
          std::to_wstring(report.requests) + L" requests answered otherwise";
  if (report.skipped > 0) {
    text += L"; " + std::to_wstring(report.skipped) +
            L" left out, whose bodies were not recorded";
  }
  return text + L".\n";
}

Json ReplayJson(const ReplayReport& report) {
  const auto toJson = [](const Difference& difference) {
    return Json{{"what", difference.what},
                {"recorded", difference.recorded},
                {"now", difference.now}};
  };
  return {
      {"requests", report.requests},
      {"skipped", report.skipped},
      {"different",
       JsonList(report.different, [&toJson](const ReplayedRequest& request) {
         return Json{{"name", request.name},
                     {"method", request.method},
                     {"path", request.path},
                     {"differences", JsonList(request.differences, toJson)}};
       })}};
}

}  // namespace kova::ctl

#include "status_page.h"

#include <string>
#include <utility>
#include <vector>

namespace sample {
namespace {

constexpr std::string_view kStyle = R"css(
:root { --ink: #1d2733; --soft: #5d6b7a; --line: #dfe5ec; --paper: #ffffff;
  --ground: #eef2f6; --accent: #0b6e99; --accent-ink: #ffffff; --mono: #f6f8fa;
  --good: #1a7f45; --good-ground: #e3f5ea; }
@media (prefers-color-scheme: dark) { :root { --ink: #e6ebf0; --soft: #98a6b5;
  --line: #2e3a46; --paper: #1a222b; --ground: #10161c; --accent: #4fb3dd;
  --accent-ink: #0b151c; --mono: #131a21; --good: #6fd39a;
  --good-ground: #16321f; } }
* { box-sizing: border-box; }
body { margin: 0; padding: 2.5rem 1rem; background: var(--ground);
  color: var(--ink); font: 16px/1.5 "Segoe UI", system-ui, -apple-system,
  "Helvetica Neue", Arial, sans-serif; }
main { max-width: 46rem; margin: 0 auto; }
header { display: flex; align-items: center; gap: 1.1rem;
  margin-bottom: 1.6rem; }
header svg { width: 3.5rem; height: 3.5rem; flex: none; color: var(--accent); }
h1 { margin: 0; font-size: 1.7rem; line-height: 1.2; font-weight: 650;
  overflow-wrap: anywhere; }
header p { margin: .15rem 0 0; color: var(--soft); }
.badge { margin-left: auto; flex: none; padding: .2rem .8rem;
  border-radius: 1rem; font-size: .85rem; font-weight: 600;
  color: var(--good); background: var(--good-ground); }
section { background: var(--paper); border: 1px solid var(--line);
  border-radius: .8rem; padding: 1.2rem 1.4rem; margin-bottom: 1.2rem; }
h2 { margin: 0 0 .8rem; font-size: .8rem; letter-spacing: .06em;
  text-transform: uppercase; color: var(--soft); font-weight: 650; }
dl { display: grid; grid-template-columns: 9rem 1fr; gap: .45rem 1rem;
  margin: 0; }
dt { color: var(--soft); }
dd { margin: 0; overflow-wrap: anywhere; }
pre { margin: 0; padding: .9rem 1rem; background: var(--mono);
  border: 1px solid var(--line); border-radius: .5rem;
  white-space: pre-wrap; overflow-wrap: anywhere;
  font: .85rem/1.55 ui-monospace, Consolas, "DejaVu Sans Mono", monospace; }
.tiles { display: grid; grid-template-columns: 1fr 1fr 1fr; gap: 1.2rem;
  margin-bottom: 1.2rem; }
.tiles section { margin: 0; padding: 1rem 1.4rem; }
.tiles strong { display: block; font-size: 1.5rem; line-height: 1.3;
  font-weight: 650; overflow-wrap: anywhere; }
.tiles span { color: var(--soft); font-size: .9rem; }
.actions { display: flex; gap: .7rem; flex-wrap: wrap; }
form { margin: 0; display: flex; gap: .7rem; }
.grow { flex: 1; }
input[type=text] { flex: 1; min-width: 10rem; font: inherit; color: inherit;
  padding: .45rem .8rem; border: 1px solid var(--line); border-radius: .5rem;
  background: var(--mono); }
button { font: inherit; font-weight: 600; padding: .45rem 1.1rem;
  border: 1px solid var(--accent); border-radius: .5rem; cursor: pointer;
  background: var(--accent); color: var(--accent-ink); }
button.plain { background: none; color: var(--accent); }
@media (max-width: 34rem) { .tiles { grid-template-columns: 1fr; }
  dl { grid-template-columns: 1fr; gap: .1rem; } dd { margin-bottom: .5rem; } }
)css";

constexpr std::string_view kPage = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{{name}} - status</title>
<link rel="icon" href="data:,">
<style>{{style}}</style>
</head>
<body>
<main>
<header>
<svg viewBox="0 0 24 24" fill="none" stroke="currentColor" stroke-width="1.5"
 stroke-linecap="round" stroke-linejoin="round" aria-hidden="true">
<path d="M7 8V3h10v5"/><rect x="3" y="8" width="18" height="9" rx="2"/>
<path d="M7 14h10v7H7z"/><path d="M17.5 11h.01"/></svg>
<div>
<h1 id="name">{{name}}</h1>
<p>{{driver}}</p>
</div>
<span class="badge">Answering</span>
</header>
<div class="tiles">
<section><strong id="answered">{{answered}}</strong>
<span>requests answered</span></section>
<section><strong id="jobs">{{jobs}}</strong>
<span>jobs waiting</span></section>
<section><strong id="connection">{{connection}}</strong>
<span>this connection</span></section>
</div>
<section>
<h2>Printer</h2>
<dl>
<dt>Name</dt><dd>{{name}}</dd>
<dt>Share name</dt><dd id="share">{{share}}</dd>
<dt>Port</dt><dd>{{port}}</dd>
<dt>Driver package</dt><dd id="package">{{package}}</dd>
</dl>
</section>
<section>
<h2>Request as received from {{client}}</h2>
<pre id="request">{{request}}</pre>
</section>
<section>
<h2>Try</h2>
<div class="actions">
<form method="get"><input type="hidden" name="printer" value="{{field}}">
<input type="hidden" name="keep" value="1">
<button class="plain">Ask again, keep the connection</button></form>
<form method="post" class="grow">
<input type="hidden" name="printer" value="{{field}}">
<input type="text" name="text" value="Hello, printer"
 aria-label="Text to post">
<button>Post</button></form>
</div>
</section>
</main>
</body>
</html>
)html";

using Values = std::vector<std::pair<std::string_view, std::string>>;

const std::string* Find(const Values& values, std::string_view name) {
  for (const auto& [key, value] : values) {
    if (key == name) return &value;
  }
  return nullptr;
}

// Puts the values into the {{places}} of the page, in one pass, so that a value
// that looks like a place is not replaced in turn.
std::string Fill(std::string_view page, const Values& values) {
  std::string filled;
  while (true) {
    const size_t open = page.find("{{");
    const size_t close = page.find("}}", open);
    filled.append(page.substr(0, open));
    if (open == std::string_view::npos) return filled;
    const std::string* value =
        Find(values, page.substr(open + 2, close - open - 2));
    if (value != nullptr) filled.append(*value);
    page.remove_prefix(close + 2);
  }
}

std::string OrNone(const std::string& fact, std::string_view none) {
  return EscapeHtml(fact.empty() ? none : fact);
}

// A page is for reading: of a very long request its beginning is shown.
std::string Shown(std::string_view raw) {
  constexpr size_t kMostBytes = 8192;
  if (raw.size() <= kMostBytes) return EscapeHtml(raw);
  return EscapeHtml(raw.substr(0, kMostBytes)) + "\n... and " +
         std::to_string(raw.size() - kMostBytes) + " bytes more";
}

std::string_view Replacement(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return {};
  }
}

bool IsControl(char c) {
  const auto code = static_cast<unsigned char>(c);
  return (code < 0x20 && c != '\t' && c != '\n') || code == 0x7F;
}

}  // namespace

std::string EscapeHtml(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\r') continue;
    const std::string_view replacement =
        IsControl(c) ? "\xEF\xBF\xBD" : Replacement(c);
    if (replacement.empty()) {
      escaped += c;
    } else {
      escaped.append(replacement);
    }
  }
  return escaped;
}

std::string StatusPage(const PageFacts& facts) {
  const PrinterFacts& printer = facts.printer;
  const Values values = {
      {"style", std::string(kStyle)},
      {"name", OrNone(printer.name, "Unknown printer")},
      {"driver", OrNone(printer.driver, "Driver unknown")},
      {"answered", std::to_string(facts.answered)},
      {"jobs", std::to_string(printer.jobs)},
      {"connection", facts.keptOpen ? "Kept open" : "Closes"},
      {"share", OrNone(printer.share, "not shared")},
      {"port", OrNone(printer.port, "unknown")},
      {"package", OrNone(printer.package, "unknown")},
      {"client", EscapeHtml(facts.client)},
      {"request", Shown(facts.request)},
      {"field", EscapeHtml(printer.name)},
  };
  return Fill(kPage, values);
}

}  // namespace sample

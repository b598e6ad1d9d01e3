#include "common/wait_notice.h"

#include <chrono>
#include <utility>

namespace kova::ctl {
namespace {

using Seconds = std::chrono::seconds;

constexpr Seconds kPatience{2};
constexpr Seconds kOnConsole{1};
constexpr Seconds kInPipe{5};

}  // namespace

WaitNotice::WaitNotice(std::wstring what)
    : m_what(std::move(what)),
      m_errors(STD_ERROR_HANDLE),
      m_teller([this] { Tell(); }) {}

WaitNotice::~WaitNotice() {
  {
    const std::lock_guard held(m_mutex);
    m_isEnded = true;
  }
  m_ended.notify_one();
  m_teller.join();
}

void WaitNotice::Say(std::wstring what) {
  const std::lock_guard held(m_mutex);
  m_what = std::move(what);
}

void WaitNotice::Tell() {
  std::unique_lock held(m_mutex);
  const auto isEnded = [this] { return m_isEnded; };
  const bool console = m_errors.IsConsole();
  Seconds passed = kPatience;
  if (m_ended.wait_for(held, kPatience, isEnded)) return;
  const Seconds step = console ? kOnConsole : kInPipe;
  std::wstring line;
  do {
    const size_t before = line.size();
    line = m_what + L" (" + std::to_wstring(passed.count()) + L" s)";
    // A shorter line must cover what a longer one left.
    if (console && line.size() < before) line.resize(before, L' ');
    m_errors.Write(console ? L"\r" + line : L"kovactl: " + line + L"\n");
    passed += step;
  } while (!m_ended.wait_for(held, step, isEnded));
  if (console) {
    m_errors.Write(L"\r" + std::wstring(line.size(), L' ') + L"\r");
  }
}

}  // namespace kova::ctl

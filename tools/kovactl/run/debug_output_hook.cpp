#include "run/debug_output_hook.h"

#include <atomic>

namespace kova::ctl {
namespace {

using DebugOutput = void WINAPI(const wchar_t* text);

std::atomic<LineSink*> g_sink{nullptr};
std::atomic<DebugOutput*> g_original{&::OutputDebugStringW};

void WINAPI PushAndPassOn(const wchar_t* text) {
  LineSink* const sink = g_sink;
  if (sink != nullptr && text != nullptr) sink->PushLine(text);
  g_original.load()(text);
}

}  // namespace

DebugOutputHook::DebugOutputHook(HMODULE module, LineSink& sink)
    : m_replacement(module, "OutputDebugStringW",
                    reinterpret_cast<void*>(&PushAndPassOn)) {
  if (!m_replacement.IsInstalled()) return;
  g_original = reinterpret_cast<DebugOutput*>(m_replacement.Original());
  g_sink = &sink;
}

DebugOutputHook::~DebugOutputHook() { g_sink = nullptr; }

}  // namespace kova::ctl

#include "test/support/fake_tick_count.h"

#include <atomic>

namespace kova::test {
namespace {

std::atomic<uint64_t> g_nowMs;

ULONGLONG WINAPI FakeNow() { return g_nowMs; }

}  // namespace

FakeTickCount::FakeTickCount(uint64_t nowMs, HMODULE module)
    : m_patch(module, "GetTickCount64", &FakeNow) {
  Set(nowMs);
}

void FakeTickCount::Set(uint64_t nowMs) { g_nowMs = nowMs; }

void FakeTickCount::Advance(uint64_t byMs) { g_nowMs += byMs; }

}  // namespace kova::test

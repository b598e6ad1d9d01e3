#include "base/o_critical_section.h"

OCriticalSection::OCriticalSection()
    : m_section(std::make_unique<CRITICAL_SECTION>()) {
  ::InitializeCriticalSection(m_section.get());
}

OCriticalSection::~OCriticalSection() {
  ::DeleteCriticalSection(m_section.get());
}

void OCriticalSection::Enter() KOVA_NO_THREAD_SAFETY_ANALYSIS {
  ::EnterCriticalSection(m_section.get());
}

void OCriticalSection::Leave() KOVA_NO_THREAD_SAFETY_ANALYSIS {
  ::LeaveCriticalSection(m_section.get());
}

#include "check/worker_state.h"

namespace kova::ctl::check {

bool SharedWorkerState::Create() {
  SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
  m_section.Reset(::CreateFileMappingW(INVALID_HANDLE_VALUE, &inheritable,
                                       PAGE_READWRITE, 0, sizeof(WorkerState),
                                       nullptr));
  return m_section.IsValid() && Map();
}

bool SharedWorkerState::Open(HANDLE inherited) {
  m_section.Reset(inherited);
  if (Map()) return true;
  // Whatever the number names, it is not ours to close.
  (void)m_section.Release();
  return false;
}

SharedWorkerState::~SharedWorkerState() {
  if (m_state != nullptr) ::UnmapViewOfFile(m_state);
}

bool SharedWorkerState::Map() {
  m_state = static_cast<WorkerState*>(::MapViewOfFile(
      m_section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(WorkerState)));
  return m_state != nullptr;
}

}  // namespace kova::ctl::check

#include "check/board.h"

namespace kova::ctl::check {

bool SharedBoard::Create() {
  SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
  m_section.Reset(::CreateFileMappingW(INVALID_HANDLE_VALUE, &inheritable,
                                       PAGE_READWRITE, 0, sizeof(Board),
                                       nullptr));
  return m_section.IsValid() && Map();
}

bool SharedBoard::Open(HANDLE inherited) {
  m_section.Reset(inherited);
  if (Map()) return true;
  // Whatever the number names, it is not ours to close.
  (void)m_section.Release();
  return false;
}

SharedBoard::~SharedBoard() {
  if (m_board != nullptr) ::UnmapViewOfFile(m_board);
}

bool SharedBoard::Map() {
  m_board = static_cast<Board*>(::MapViewOfFile(
      m_section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Board)));
  return m_board != nullptr;
}

}  // namespace kova::ctl::check

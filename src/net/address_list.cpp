#include "net/address_list.h"

namespace kova {

bool AddressList::Add(std::string_view text) {
  if (m_index.find(text) != m_index.end()) return false;
  m_texts.emplace_back(text);
  m_index.insert(m_texts.size() - 1);
  return true;
}

}  // namespace kova

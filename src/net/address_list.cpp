#include "net/address_list.h"

#include <functional>

namespace kova {
namespace {

constexpr size_t kFirstPlaces = 64;

}  // namespace

bool AddressList::Add(std::string_view text) {
  if (m_places.size() < 2 * (m_texts.size() + 1)) DoublePlaces();
  uint32_t& place = m_places[FindPlace(text)];
  if (place != 0) return false;
  m_texts.emplace_back(text);
  place = static_cast<uint32_t>(m_texts.size());
  return true;
}

size_t AddressList::FindPlace(std::string_view text) const {
  const size_t last = m_places.size() - 1;
  size_t found = std::hash<std::string_view>()(text) & last;
  while (m_places[found] != 0 && m_texts[m_places[found] - 1] != text) {
    found = (found + 1) & last;
  }
  return found;
}

void AddressList::DoublePlaces() {
  std::vector<uint32_t> places(m_places.empty() ? kFirstPlaces
                                                : 2 * m_places.size());
  m_places.swap(places);
  for (uint32_t position = 1; position <= m_texts.size(); ++position) {
    m_places[FindPlace(m_texts[position - 1])] = position;
  }
}

}  // namespace kova

#include "text/o_string_array.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/o_array.h"

void OStringArray::SetSize(int32_t newSize) {
  if (newSize < 0) return;
  if (newSize == 0) {
    m_data.reset();
    m_count = m_capacity = m_room = 0;
    return;
  }
  if (newSize > m_capacity) Reserve(newSize);
  for (int32_t i = newSize; i < m_count; ++i) m_data[i] = OString();
  m_count = newSize;
}

void OStringArray::Reserve(int32_t newSize) {
  const int32_t capacity =
      m_data == nullptr
          ? newSize
          : kova::NextCapacity(m_count, m_capacity, m_growBy, newSize);
  if (capacity > m_room) {
    const size_t room =
        std::min<size_t>(kova::NextRoom(static_cast<size_t>(m_room),
                                        static_cast<size_t>(capacity)),
                         std::numeric_limits<int32_t>::max());
    auto fresh = std::make_unique<OString[]>(room);
    std::move(m_data.get(), m_data.get() + m_count, fresh.get());
    m_data = std::move(fresh);
    m_room = static_cast<int32_t>(room);
  }
  m_capacity = capacity;
}

void OStringArray::SetAt(int32_t index, OString value) {
  if (index >= m_count) SetSize(index + 1);
  m_data[index] = std::move(value);
}

void OStringArray::Append(OString value) { SetAt(m_count, std::move(value)); }

void OStringArray::Split(const OString& source, const char* separator) {
  // The source may be an element of this array.
  const OString text(source);
  SetSize(0);
  if (text.IsEmpty()) return;
  const OString mark(separator);
  const int32_t markLength = static_cast<int32_t>(
      text.PrefersWide() ? mark.WideView().size() : mark.NarrowView().size());
  if (markLength == 0) {
    Append(text);
    return;
  }
  const int32_t length = text.Length();
  int32_t from = 0;
  for (int32_t at = text.Find(mark); at >= 0; at = text.Find(mark, from)) {
    Append(text.Mid(from, at - from));
    from = at + markLength;
  }
  Append(text.Mid(from, length - from));
}

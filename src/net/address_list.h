// The addresses that have connected.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kova {

// Peer address texts in the order of their first arrival, each stored once.
// Two texts are the same when their bytes are. An index beside the vector
// keeps a look-up at constant cost however many addresses a long-running
// process has seen; it is one block, because a small block for each address
// would lie between those that connections come and go with, and keep the heap
// from using these again. Not safe for use by two threads at once.
class AddressList {
 public:
  AddressList() = default;

  AddressList(const AddressList&) = delete;
  AddressList& operator=(const AddressList&) = delete;

  // Appends `text` unless it is there. Returns whether it was appended. Where
  // memory runs out std::bad_alloc passes through and nothing is appended.
  bool Add(std::string_view text);

  [[nodiscard]] const std::vector<std::string>& Texts() const {
    return m_texts;
  }

 private:
  // Of the place that refers to `text`, or of the free one it would take.
  [[nodiscard]] size_t FindPlace(std::string_view text) const;
  void DoublePlaces();

  std::vector<std::string> m_texts;
  // A hash table with linear probing, a power of two in size and at most half
  // full: a position in m_texts plus one, or 0 where a place is free.
  std::vector<uint32_t> m_places;
};

}  // namespace kova

// The addresses that have connected.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace kova {

// Peer address texts in the order of their first arrival, each stored once.
// Two texts are the same when their bytes are. An index beside the vector
// keeps a look-up at constant cost however many addresses a long-running
// process has seen. Not safe for use by two threads at once.
class AddressList {
 public:
  AddressList() : m_index(0, Hash{&m_texts}, Equal{&m_texts}) {}

  AddressList(const AddressList&) = delete;
  AddressList& operator=(const AddressList&) = delete;

  // Appends `text` unless it is there. Returns whether it was appended.
  bool Add(std::string_view text);

  [[nodiscard]] const std::vector<std::string>& Texts() const {
    return m_texts;
  }

 private:
  // The index holds positions in m_texts, not copies of the texts; a look-up
  // goes by the text itself.
  struct Hash {
    using is_transparent = void;
    const std::vector<std::string>* texts;
    size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
    size_t operator()(size_t position) const {
      return (*this)(std::string_view((*texts)[position]));
    }
  };
  struct Equal {
    using is_transparent = void;
    const std::vector<std::string>* texts;
    std::string_view View(std::string_view text) const { return text; }
    std::string_view View(size_t position) const { return (*texts)[position]; }
    template <typename A, typename B>
    bool operator()(const A& a, const B& b) const {
      return View(a) == View(b);
    }
  };

  std::vector<std::string> m_texts;
  std::unordered_set<size_t, Hash, Equal> m_index;
};

}  // namespace kova

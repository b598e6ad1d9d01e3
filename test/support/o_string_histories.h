// For tests: histories of texts against a simple model of them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "text/o_string.h"

namespace kova::test {

inline constexpr uint32_t kAnsi = 0;
inline constexpr uint32_t kUtf8 = 1208;
inline constexpr uint32_t kBytes = 64999;

inline std::string Encode(uint32_t codePage, const std::wstring& text) {
  std::string bytes;
  for (const wchar_t unit : text) {
    // NOLINTNEXTLINE(bugprone-signed-char-misuse): signed on some systems.
    const auto u = static_cast<uint32_t>(unit);
    if (codePage != kUtf8) {
      const bool isEuro = codePage == kAnsi && u == 0x20AC;
      bytes += static_cast<char>(isEuro ? 0x80 : u);
    } else if (u < 0x80) {
      bytes += static_cast<char>(u);
    } else if (u < 0x800) {
      bytes += static_cast<char>(0xC0 + u / 64);
      bytes += static_cast<char>(0x80 + u % 64);
    } else {
      bytes += static_cast<char>(0xE0 + u / 4096);
      bytes += static_cast<char>(0x80 + u / 64 % 64);
      bytes += static_cast<char>(0x80 + u % 64);
    }
  }
  return bytes;
}

// A text as its two forms, which are absent when they are empty. Only texts
// whose narrow form was set from ASCII and 0xE9 are ever decoded.
struct Forms {
  std::string narrow;
  std::wstring wide;
  uint32_t codePage = kAnsi;
  bool isWide = false;

  bool PrefersWide() const { return isWide || codePage == kUtf8; }
  bool IsEmpty() const { return narrow.empty() && wide.empty(); }
  const std::string& Narrow() {
    if (narrow.empty()) narrow = Encode(codePage, wide);
    return narrow;
  }
  const std::wstring& Wide() {
    if (!wide.empty()) return wide;
    for (const char c : narrow) wide += static_cast<unsigned char>(c);
    return wide;
  }
  void Set(const std::string& text) {
    narrow = text;
    wide.clear();
    isWide = false;
  }
  void Set(const std::wstring& text) {
    wide = text;
    narrow.clear();
    isWide = !text.empty();
  }
};

// Copy-on-write handle of the model; null is the empty text.
using Model = std::shared_ptr<Forms>;

inline Forms& Own(Model& model) {
  model = std::make_shared<Forms>(model ? *model : Forms());
  return *model;
}

inline Forms& Read(const Model& model) {
  static Forms none;
  return model ? *model : (none = Forms());
}

inline int Sign(int value) { return (value > 0) - (value < 0); }

// Several texts, each beside its model, changed step by step.
class Histories {
 public:
  // `random` gives any numbers; all choices are made with it.
  explicit Histories(std::function<unsigned()> random)
      : m_random(std::move(random)) {}

  void Step() {
    const size_t at = Below(kTexts);
    const size_t other = Below(kTexts);
    const size_t action = Below(kSteps.size());
    SCOPED_TRACE(testing::Message()
                 << "action " << action << " on " << at << " with " << other);
    (this->*kSteps[action])(at, other);
    Check(at);
  }

 private:
  static constexpr size_t kTexts = 5;

  size_t Below(size_t limit) { return m_random() % limit; }

  // Ranges that hang over both ends of any text.
  int32_t Position() { return static_cast<int32_t>(Below(50)) - 3; }

  std::string NarrowText(uint32_t codePage) {
    std::string text;
    for (size_t left = Below(40); left > 0; --left) {
      text += codePage == kUtf8 ? "abA."[Below(4)] : "abA.\xE9"[Below(5)];
    }
    return text;
  }
  std::wstring WideText() {
    std::wstring text;
    for (size_t left = Below(40); left > 0; --left) {
      text += L"abA.\u00E9\u20AC"[Below(6)];
    }
    return text;
  }

  void AssignNarrow(size_t at, size_t) {
    const std::string text = NarrowText(Read(m_models[at]).codePage);
    Own(m_models[at]).Set(text);
    m_texts[at] = text.c_str();
  }
  void AssignWide(size_t at, size_t) {
    const std::wstring text = WideText();
    Own(m_models[at]).Set(text);
    m_texts[at] = text.c_str();
  }
  void Copy(size_t at, size_t other) {
    m_models[at] = m_models[other];
    m_texts[at] = m_texts[other];
  }
  void ReadNarrow(size_t at, size_t) {
    EXPECT_EQ(m_texts[at].Narrow(), Read(m_models[at]).Narrow());
  }
  void ReadWide(size_t at, size_t) {
    EXPECT_EQ(m_texts[at].Wide(), Read(m_models[at]).Wide());
  }
  void Tag(size_t at, size_t) {
    const uint32_t codePage = std::array{kAnsi, kUtf8, kBytes}[Below(3)];
    m_texts[at].SetCodePage(codePage);
    if (codePage == Read(m_models[at]).codePage) return;
    Forms& forms = Own(m_models[at]);
    forms.isWide = !forms.Wide().empty();
    forms.narrow.clear();
    forms.codePage = codePage;
  }

  bool IsPairWide(size_t at, size_t other) {
    const Forms left = Read(m_models[at]);
    const Forms right = Read(m_models[other]);
    return left.PrefersWide() || right.PrefersWide() ||
           left.codePage != right.codePage;
  }

  // Texts that grow at every step would soon fill the memory.
  bool IsLong(size_t at) const {
    const Forms& forms = Read(m_models[at]);
    return forms.narrow.size() + forms.wide.size() > 2000;
  }

  void Append(size_t at, size_t other) {
    if (IsLong(at)) return AssignNarrow(at, other);
    m_texts[at].Append(m_texts[other]);
    if (Read(m_models[other]).IsEmpty()) return;
    if (Read(m_models[at]).IsEmpty()) {
      m_models[at] = m_models[other];
      return;
    }
    const bool isWide = IsPairWide(at, other);
    // The forms that the operation reads stay with the shared records.
    const Model left = m_models[at];
    Model right = m_models[other];
    if (isWide) {
      const std::wstring sum = Read(left).Wide() + Read(right).Wide();
      Own(m_models[at]).Set(sum);
    } else {
      const std::string sum = Read(left).Narrow() + Read(right).Narrow();
      Own(m_models[at]).Set(sum);
    }
  }

  void Delete(size_t at, size_t) {
    const int32_t index = Position();
    const int32_t count = Position();
    m_texts[at].Delete(index, count);
    Forms before = Read(m_models[at]);
    const bool isWide = before.PrefersWide();
    const auto length = static_cast<int32_t>(
        isWide ? Read(m_models[at]).Wide().size() : before.narrow.size());
    if (index < 0 || index >= length || count <= 0) return;
    Forms& forms = Own(m_models[at]);
    if (isWide && forms.narrow.size() != forms.wide.size()) {
      forms.narrow.clear();
    }
    const auto from = static_cast<size_t>(index);
    const auto units = static_cast<size_t>(count);
    if (!forms.narrow.empty()) forms.narrow.erase(from, units);
    if (!forms.wide.empty()) forms.wide.erase(from, units);
    forms.isWide =
        !forms.wide.empty() && (forms.isWide || forms.narrow.empty());
  }

  template <typename Unit>
  static int32_t ReplaceIn(std::basic_string<Unit>& text,
                           const std::basic_string<Unit>& find,
                           const std::basic_string<Unit>& replacement) {
    int32_t count = 0;
    for (size_t at = text.find(find); at != text.npos;
         at = text.find(find, at + replacement.size())) {
      text.replace(at, find.size(), replacement);
      ++count;
    }
    return count;
  }

  void Replace(size_t at, size_t other) {
    if (IsLong(at)) return AssignNarrow(at, other);
    const std::string find(1 + Below(2), "ab"[Below(2)]);
    const std::string replacement(Below(4), "ab."[Below(3)]);
    const int32_t count =
        m_texts[at].Replace(find.c_str(), replacement.c_str());
    if (find == replacement) return;
    Forms& forms = Read(m_models[at]);
    int32_t expected = 0;
    // What is sought has code page 0.
    if (forms.PrefersWide() || forms.codePage != kAnsi) {
      std::wstring text = forms.Wide();
      expected =
          ReplaceIn(text, std::wstring(find.begin(), find.end()),
                    std::wstring(replacement.begin(), replacement.end()));
      if (expected > 0) Own(m_models[at]).Set(text);
    } else {
      std::string text = forms.Narrow();
      expected = ReplaceIn(text, find, replacement);
      if (expected > 0) Own(m_models[at]).Set(text);
    }
    EXPECT_EQ(count, expected);
  }

  void TakePiece(size_t at, size_t other) {
    const int32_t start = Position();
    const int32_t count = Position();
    m_texts[at] = m_texts[other].Mid(start, count);
    const Model source = m_models[other];
    Forms& forms = Read(source);
    const size_t length =
        forms.PrefersWide() ? forms.Wide().size() : forms.narrow.size();
    const size_t from = std::min<size_t>(std::max(start, 0), length);
    const size_t units = std::min<size_t>(std::max(count, 0), length - from);
    if (units == length) {
      m_models[at] = source;
      return;
    }
    auto piece = std::make_shared<Forms>();
    piece->codePage = forms.codePage;
    if (forms.PrefersWide()) {
      piece->Set(forms.wide.substr(from, units));
    } else {
      piece->Set(forms.narrow.substr(from, units));
    }
    m_models[at] = piece;
  }

  void Compare(size_t at, size_t other) {
    const int32_t result = m_texts[at].Compare(m_texts[other]);
    Forms left = Read(m_models[at]);
    Forms right = Read(m_models[other]);
    if (m_models[at] && m_models[at] == m_models[other]) {
      EXPECT_EQ(result, 0);
    } else if (IsPairWide(at, other)) {
      EXPECT_EQ(result, Sign(left.Wide().compare(right.Wide())));
      if (m_models[at]) m_models[at]->Wide();
      if (m_models[other]) m_models[other]->Wide();
    } else {
      const auto isLess = [](char a, char b) {
        return static_cast<signed char>(a) < static_cast<signed char>(b);
      };
      const std::string a = left.narrow + '\0';
      const std::string b = right.narrow + '\0';
      const bool before = std::lexicographical_compare(
          a.begin(), a.end(), b.begin(), b.end(), isLess);
      EXPECT_EQ(result, a == b ? 0 : before ? -1 : 1);
    }
  }

  // Presence is read before the texts are, which would make it so.
  void Check(size_t at) {
    const OString& text = m_texts[at];
    const Forms forms = Read(m_models[at]);
    EXPECT_EQ(text.CodePage(), forms.codePage);
    EXPECT_EQ(text.HasNarrow(), !forms.narrow.empty());
    EXPECT_EQ(text.HasWide(), !forms.wide.empty());
    EXPECT_EQ(text.PrefersWide(), forms.PrefersWide());
    if (text.HasNarrow()) EXPECT_EQ(text.Narrow(), forms.narrow);
    if (text.HasWide()) EXPECT_EQ(text.Wide(), forms.wide);
    EXPECT_EQ(text.Capacity() % 32, 0u);
    for (size_t i = 0; i < kTexts; ++i) {
      const bool shares = m_models[at] && m_models[at] == m_models[i];
      EXPECT_EQ(text.SharesRecordWith(m_texts[i]), shares);
    }
  }

  using Action = void (Histories::*)(size_t at, size_t other);
  static constexpr std::array<Action, 11> kSteps = {
      &Histories::AssignNarrow, &Histories::AssignWide, &Histories::Copy,
      &Histories::ReadNarrow,   &Histories::ReadWide,   &Histories::Tag,
      &Histories::Append,       &Histories::Delete,     &Histories::Replace,
      &Histories::TakePiece,    &Histories::Compare};

  const std::function<unsigned()> m_random;
  std::array<OString, kTexts> m_texts;
  std::array<Model, kTexts> m_models;
};

}  // namespace kova::test

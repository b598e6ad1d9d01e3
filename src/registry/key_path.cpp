#include "registry/key_path.h"

#include <algorithm>
#include <cwchar>
#include <string_view>
#include <utility>

#include "base/ascii.h"
#include "base/windows_api.h"

namespace kova {
namespace {

struct TextPair {
  std::wstring_view from;
  std::wstring_view to;
};

constexpr TextPair kEscapes[] = {
    {L"%", L"%25"}, {L"/", L"%2F"}, {L":", L"%3A"}};

// What callers write, put into the one form that the rest reads.
constexpr TextPair kNormalForms[] = {
    {L"%%", L"%25"}, {L"//", L"%2F"}, {L"::", L"%3A"}, {L"\\", L"/"}};

constexpr TextPair kAliases[] = {
    {L"CLASSES_ROOT:", L"0:"},
    {L"CURRENT_USER:", L"1:"},
    {L"LOCAL_MACHINE:", L"2:"},
    {L"USERS:", L"3:"},
    {L"USER:", L"1:SOFTWARE/Corvane Tessaly/Drivers"},
    {L"LOCAL:", L"2:SOFTWARE/Corvane Tessaly/Drivers"},
    {L"GLOBAL:", L"2:SOFTWARE/Corvane Tessaly/Drivers/Global Settings"},
    {L"CONTROL:", L"2:SYSTEM/CurrentControlSet/Control"},
    {L"PRINT:", L"2:SYSTEM/CurrentControlSet/Control/Print"},
    {L"ENUM:", L"2:SYSTEM/CurrentControlSet/Enum"},
};

constexpr long kRootCount = 4;

void ReplaceAll(std::wstring& text, const TextPair& pair) {
  size_t at = text.find(pair.from);
  if (at == std::wstring::npos) return;
  std::wstring result;
  size_t done = 0;
  for (; at != std::wstring::npos; at = text.find(pair.from, done)) {
    result.append(text, done, at - done).append(pair.to);
    done = at + pair.from.size();
  }
  text = std::move(result.append(text, done));
}

void Normalize(std::wstring& text) {
  for (const TextPair& pair : kNormalForms) ReplaceAll(text, pair);
}

void RemoveTrailing(std::wstring& text, wchar_t character) {
  while (!text.empty() && text.back() == character) text.pop_back();
}

bool StartsWithAlias(std::wstring_view path, std::wstring_view alias) {
  return EqualsNoCase(path.substr(0, alias.size()), alias);
}

void AppendCharacterOfByte(std::wstring& result, char byte) {
  wchar_t text[4] = {};
  const int count = ::MultiByteToWideChar(CP_ACP, 0, &byte, 1, text, 4);
  result.append(text, count > 0 ? static_cast<size_t>(count) : 0);
}

void Join(std::wstring& keyPath, const std::wstring& valueName) {
  RemoveTrailing(keyPath, L'/');
  if (valueName.empty()) return;
  if (!keyPath.empty() && keyPath.back() != L':') keyPath += L'/';
  keyPath += valueName;
}

bool HasRoot(const std::wstring& valueName) {
  return valueName.find(L':', 1) != std::wstring::npos;
}

}  // namespace

std::wstring EscapeName(std::wstring text) {
  for (const TextPair& pair : kEscapes) ReplaceAll(text, pair);
  return text;
}

std::wstring UnescapeName(std::wstring text) {
  if (text.find(L'%') == std::wstring::npos) return text;
  std::wstring result;
  result.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    if (text[at] == L'%' && text.size() - at >= 3) {
      AppendCharacterOfByte(result, EscapedByte(text[at + 1], text[at + 2]));
      at += 3;
    } else {
      result += text[at++];
    }
  }
  return result;
}

bool CombinePath(std::wstring& keyPath, std::wstring& valueName) {
  std::wstring combined = valueName;
  Normalize(combined);
  if (!HasRoot(combined)) {
    std::wstring path = keyPath;
    Normalize(path);
    Join(path, combined);
    combined = std::move(path);
  }
  const size_t last = combined.find_last_of(L"/:");
  if (last == std::wstring::npos) return false;
  if (!valueName.empty()) {
    valueName = UnescapeName(combined.substr(last + 1));
    combined.resize(combined[last] == L':' ? last + 1 : last);
  }
  keyPath = std::move(combined);
  return true;
}

void ExpandKeyAliases(std::wstring& path) {
  if (path.find(L':') == std::wstring::npos) return;
  for (const TextPair& row : kAliases) {
    if (!StartsWithAlias(path, row.from)) continue;
    const bool needsSlash = path.size() > row.from.size() &&
                            row.to.back() != L'/' && row.to.back() != L':';
    path.replace(0, row.from.size(), row.to);
    if (needsSlash) path.insert(row.to.size(), 1, L'/');
  }
}

bool SplitRootedKey(const std::wstring& path, RootedKey& key) {
  key = {};
  const size_t colon = path.find(L':');
  if (colon == std::wstring::npos || colon == 0) return false;
  std::wstring subkey = path.substr(colon + 1);
  std::replace(subkey.begin(), subkey.end(), L'/', L'\\');
  key.subkey = UnescapeName(std::move(subkey));
  RemoveTrailing(key.subkey, L'\\');
  // Deliberate: an alias that nobody knows reads as 0, the classes root.
  const long root = std::wcstol(path.c_str(), nullptr, 10);
  if (root < 0 || root >= kRootCount) return false;
  key.root = static_cast<int>(root);
  return !key.subkey.empty();
}

}  // namespace kova

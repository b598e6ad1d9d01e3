// The key-path language, as pure text: roots, aliases, separators, escapes.
//
// A path is a root part, ':' and components that '/' separates ('\' is taken
// as '/'). The root part is a number from "0" to "3" or an alias such as
// "LOCAL". Inside a component "//", "::" and "%%" stand for a literal '/', ':'
// and '%', and '%' with two hexadecimal digits for the character of that code.
//
// Nothing here keeps state; everything may be called on any thread.
#pragma once

#include <string>

namespace kova {

// `text` with '%', '/' and ':' written as "%25", "%2F" and "%3A", so that any
// text becomes one component.
std::wstring EscapeName(std::wstring text);

// `text` with every '%' and the two characters after it replaced by the
// character they code: a byte in the system's ANSI code page. A character that
// is no decimal digit counts its low four bits plus 9; the code is kept to 8
// bits. A '%' with fewer than two characters after it stays.
std::wstring UnescapeName(std::wstring text);

// Combines an owner's key path with the name of a value, which may extend the
// path ("Sub/Val") or, with a root of its own, replace it ("2:SOFTWARE/Val").
// On success `keyPath` is the key's path, aliases not yet expanded, and
// `valueName` the plain name of the value; an empty one stays empty and means
// the key's default value. On failure, which is a combined path without any
// '/' or ':', both are left as they were.
[[nodiscard]] bool CombinePath(std::wstring& keyPath, std::wstring& valueName);

// Rewrites an alias at the front of `path`, in any letter case, to its
// numbered root and path. Other paths stay as they are, and read as the classes
// root: a new alias changes what stored paths mean that begin so.
void ExpandKeyAliases(std::wstring& path);

// Where an expanded path leads.
struct RootedKey {
  // 0 to 3: HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE,
  // HKEY_USERS; -1: none.
  int root = -1;
  // With '\' between the names, unescaped, none at the end.
  std::wstring subkey;
};

// Splits an expanded path at its first ':'. False if there is no root from 0
// to 3 or if the subkey is empty: a root alone cannot be opened.
[[nodiscard]] bool SplitRootedKey(const std::wstring& path, RootedKey& key);

}  // namespace kova

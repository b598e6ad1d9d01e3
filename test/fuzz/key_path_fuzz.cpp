// Rewrites key paths: an escaped name reads as itself, and whatever a caller
// writes, the key lies below one of the four roots.
#include "registry/key_path.h"
#include "test/fuzz/fuzz_input.h"

namespace {

void CheckName(const std::wstring& name) {
  const std::wstring escaped = kova::EscapeName(name);
  KOVA_FUZZ_EXPECT(escaped.find_first_of(L"/:") == escaped.npos);
  KOVA_FUZZ_EXPECT(kova::UnescapeName(escaped) == name);
}

void CheckPath(std::wstring path, std::wstring name) {
  const std::wstring pathBefore = path;
  const std::wstring nameBefore = name;
  if (!kova::CombinePath(path, name)) {
    KOVA_FUZZ_EXPECT(path == pathBefore && name == nameBefore);
    return;
  }
  kova::ExpandKeyAliases(path);
  kova::RootedKey key;
  const bool isRooted = kova::SplitRootedKey(path, key);
  if (!isRooted) return;
  KOVA_FUZZ_EXPECT(key.root >= 0 && key.root <= 3);
  KOVA_FUZZ_EXPECT(!key.subkey.empty() && key.subkey.back() != L'\\');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kova::fuzz::Input input(data, size);
  const std::wstring path = kova::fuzz::Widen(input.Text(100));
  const std::wstring name = kova::fuzz::Widen(input.Rest().substr(0, 100));
  // Beyond ASCII the system's code page decides what a byte means.
  std::wstring plain = name;
  for (wchar_t& character : plain) character &= 0x7F;
  CheckName(plain);
  CheckPath(path, name);
  CheckPath(L"LOCAL:Network/@" + kova::EscapeName(plain), name);
  return 0;
}

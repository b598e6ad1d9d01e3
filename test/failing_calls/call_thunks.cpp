#include "test/failing_calls/call_thunks.h"

#include <cstring>

#include "test/support/import_patch.h"

namespace kova::test {

struct CallThunks::Import {
  std::string name;
  void** slot = nullptr;
  void* function = nullptr;
  std::atomic<uint32_t> calls{0};
  std::atomic<uint32_t> failingCall{0};
  std::atomic<bool> failed{false};
  CallFailure failure;
};

namespace {

constexpr size_t kThunkBytes = 160;

// Called by every thunk. Must leave the last error alone unless it is to fail.
bool MustFail(CallThunks::Import* import) {
  const uint32_t call = ++import->calls;
  if (call != import->failingCall) return false;
  import->failed = true;
  ::SetLastError(import->failure.lastError);
  return true;
}

// Writes machine code.
class Assembler {
 public:
  explicit Assembler(uint8_t* at) : m_at(at) {}

  void Bytes(std::initializer_list<uint8_t> bytes) {
    for (const uint8_t byte : bytes) *m_at++ = byte;
  }
  void Quad(uint64_t value) {
    std::memcpy(m_at, &value, sizeof(value));
    m_at += sizeof(value);
  }
  void Pointer(const void* pointer) {
    Quad(reinterpret_cast<uint64_t>(pointer));
  }

 private:
  uint8_t* m_at;
};

// Keeps the registers that carry arguments, asks MustFail, and goes on or
// returns. 64-bit Windows: rcx, rdx, r8, r9 and xmm0 to xmm3.
void WriteThunk(uint8_t* at, CallThunks::Import* import) {
  Assembler code(at);
  code.Bytes({0x51, 0x52, 0x41, 0x50, 0x41, 0x51});  // push rcx, rdx, r8, r9
  code.Bytes({0x48, 0x83, 0xEC, 0x68});              // sub rsp, 0x68
  code.Bytes({0x0F, 0x29, 0x44, 0x24, 0x20});        // movaps [rsp+20], xmm0
  code.Bytes({0x0F, 0x29, 0x4C, 0x24, 0x30});        // movaps [rsp+30], xmm1
  code.Bytes({0x0F, 0x29, 0x54, 0x24, 0x40});        // movaps [rsp+40], xmm2
  code.Bytes({0x0F, 0x29, 0x5C, 0x24, 0x50});        // movaps [rsp+50], xmm3
  code.Bytes({0x48, 0xB9});                          // mov rcx, import
  code.Pointer(import);
  code.Bytes({0x48, 0xB8});  // mov rax, MustFail
  code.Pointer(reinterpret_cast<const void*>(&MustFail));
  code.Bytes({0xFF, 0xD0});                          // call rax
  code.Bytes({0x0F, 0x28, 0x44, 0x24, 0x20});        // movaps xmm0, [rsp+20]
  code.Bytes({0x0F, 0x28, 0x4C, 0x24, 0x30});        // movaps xmm1, [rsp+30]
  code.Bytes({0x0F, 0x28, 0x54, 0x24, 0x40});        // movaps xmm2, [rsp+40]
  code.Bytes({0x0F, 0x28, 0x5C, 0x24, 0x50});        // movaps xmm3, [rsp+50]
  code.Bytes({0x48, 0x83, 0xC4, 0x68});              // add rsp, 0x68
  code.Bytes({0x41, 0x59, 0x41, 0x58, 0x5A, 0x59});  // pop r9, r8, rdx, rcx
  code.Bytes({0x84, 0xC0});                          // test al, al
  code.Bytes({0x75, 0x0C});                          // jnz past the jump
  code.Bytes({0x48, 0xB8});                          // mov rax, function
  code.Pointer(import->function);
  code.Bytes({0xFF, 0xE0});  // jmp rax
  code.Bytes({0x48, 0xB8});  // mov rax, result
  code.Quad(import->failure.result);
  code.Bytes({0xC3});  // ret
}

}  // namespace

CallThunks::CallThunks(HMODULE module, const FailingCall& failing) {
  VisitImports(module, [&](const char* name, void** slot) {
    auto import = std::make_unique<Import>();
    import->name = name;
    import->slot = slot;
    import->function = ReadImportSlot(slot);
    if (name == failing.function) {
      import->failure = failing.failure;
      import->failingCall = failing.nth;
    }
    m_imports.push_back(std::move(import));
  });
  m_code = static_cast<uint8_t*>(
      ::VirtualAlloc(nullptr, m_imports.size() * kThunkBytes,
                     MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
  for (size_t i = 0; i < m_imports.size(); ++i) {
    WriteThunk(m_code + i * kThunkBytes, m_imports[i].get());
    WriteImportSlot(m_imports[i]->slot, m_code + i * kThunkBytes);
  }
}

CallThunks::~CallThunks() { ::VirtualFree(m_code, 0, MEM_RELEASE); }

std::vector<std::pair<std::string, uint32_t>> CallThunks::Calls() const {
  std::vector<std::pair<std::string, uint32_t>> calls;
  for (const auto& import : m_imports) {
    calls.emplace_back(import->name, import->calls);
  }
  return calls;
}

bool CallThunks::HasFailed() const {
  for (const auto& import : m_imports) {
    if (import->failed) return true;
  }
  return false;
}

void CallThunks::LetAllSucceed() {
  for (const auto& import : m_imports) {
    import->failingCall = 0;
    import->failed = false;
  }
}

}  // namespace kova::test

// A host that ends while the server library is loaded and has run. Exit code
// 7, or one from 70 on if the library gave anything back on its way out:
// memory, a handle, a library, a slot. Other threads are gone by then, perhaps
// in the middle of the heap.
#include <cstdlib>

#include "test/support/import_patch.h"
#include "test/support/process_counts.h"
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"

namespace {

constexpr int kFirstCode = 70;

template <int code>
void End() {
  ::TerminateProcess(::GetCurrentProcess(), code);
}

// What the library gives things back with, and the exit codes that tell of it.
// The C runtime's own critical section is deleted, by what the loader calls for
// thread-local storage.
struct GivingBack {
  const char* import;
  void (*instead)();
};
constexpr GivingBack kGivingBack[] = {{"CloseHandle", &End<kFirstCode>},
                                      {"FlsFree", &End<kFirstCode + 1>},
                                      {"FreeLibrary", &End<kFirstCode + 2>},
                                      {"RegCloseKey", &End<kFirstCode + 3>},
                                      {"free", &End<kFirstCode + 4>}};
constexpr DWORD kPatienceMs = 30000;

}  // namespace

int main() {
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  // Never destroyed: its end would unload the library.
  auto* const server = new kova::test::ServerFixture;
  if (!server->IsLoaded()) return 1;
  const size_t threads = kova::test::CountThreads();
  server->Start();
  if (kova::test::Ask(server->Port(), "GET / HTTP/1.1\r\n\r\n").empty()) {
    return 2;
  }
  server->Stop();
  if (!kova::test::WaitForThreads(threads, kPatienceMs)) return 3;
  for (const GivingBack& row : kGivingBack) {
    void** const slot =
        kova::test::FindImportSlot(server->Module(), row.import);
    if (slot == nullptr) return 4;
    kova::test::WriteImportSlot(slot, reinterpret_cast<void*>(row.instead));
  }
  ::ExitProcess(7);
}

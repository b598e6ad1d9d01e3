// Prints what the server's console host holds: "THREADS HANDLES". Only a
// program in the same Wine prefix sees the tables that tell.
#include <cstdio>

#include "test/support/process_counts.h"

int main() {
  const DWORD host = kova::test::FindProcess(L"kovactl.exe");
  if (host == 0) {
    std::fputs("kovactl.exe does not run\n", stderr);
    return 1;
  }
  std::printf("%zu %zu\n", kova::test::CountThreads(host),
              kova::test::CountHandles(host));
  return 0;
}

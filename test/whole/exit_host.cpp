// A host that starts the server and ends without a stop, while connections are
// open at several stages. Exit code 7 if all went well up to there.
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"

int main() {
  // Never destroyed: its end would stop the server.
  auto* const server = new kova::test::ServerFixture;
  if (!server->IsLoaded()) return 1;
  server->Start();
  static kova::test::TestClient silent(server->Port());
  static kova::test::TestClient half(server->Port());
  if (!half.Send("GET / HT")) return 2;
  if (kova::test::Ask(server->Port(), "GET / HTTP/1.1\r\n\r\n").empty()) {
    return 3;
  }
  ::ExitProcess(7);
}

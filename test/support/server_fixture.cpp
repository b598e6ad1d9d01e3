#include "test/support/server_fixture.h"

#include <cstdlib>
#include <random>

#include "test/support/exported_function.h"
#include "test/support/test_client.h"

namespace kova::test {
namespace {

// Long enough for the connections that a stop leaves to themselves.
constexpr uint64_t kUnloadPatienceMs = 10000;

// Apart from the ports that clients get, from 32768 on here and from 49152 on
// on Windows: a client that got the server's port between two of its lives
// would keep it from listening again.
constexpr int kFirstPort = 20000;
constexpr int kLastPort = 31999;
// Programs that run side by side are given so many each, from
// KOVA_FIRST_PORT on.
constexpr int kPortsOfAProgram = 1000;
constexpr int kTries = 100;

bool CanBind(uint16_t port) {
  const UniqueSocket probe(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  sockaddr_in address = LoopbackAddress(port);
  address.sin_addr.s_addr = INADDR_ANY;
  return ::bind(probe.Get(), reinterpret_cast<const sockaddr*>(&address),
                sizeof(address)) == 0;
}

}  // namespace

uint16_t FreePort() {
  // Programs of several Wine prefixes begin at the same time with like ids.
  static std::mt19937 random{std::random_device()()};
  const char* const own = std::getenv("KOVA_FIRST_PORT");
  const int first = own == nullptr ? kFirstPort : std::atoi(own);
  const int last = own == nullptr ? kLastPort : first + kPortsOfAProgram - 1;
  std::uniform_int_distribution<int> ports(first, last);
  for (int i = 0; i < kTries; ++i) {
    const auto port = static_cast<uint16_t>(ports(random));
    if (CanBind(port)) return port;
  }
  return 0;
}

std::wstring TestProgramFolder() {
  wchar_t program[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, program, MAX_PATH);
  const std::wstring path = program;
  return path.substr(0, path.find_last_of(L'\\'));
}

std::wstring ServerLibraryPath() {
  return TestProgramFolder() + L"\\..\\bin\\KOVAServer.dll";
}

ServerFixture::ServerFixture() {
  UsePort(FreePort());
  m_module.Reset(::LoadLibraryW(ServerLibraryPath().c_str()));
  if (!m_module.IsValid()) return;
  m_start =
      ExportedFunction<KOVA_StartServer>(m_module.Get(), "StartKOVAServer");
  m_stop = ExportedFunction<KOVA_StopServer>(m_module.Get(), "StopKOVAServer");
}

ServerFixture::~ServerFixture() {
  if (!IsLoaded()) return;
  Stop();
  Unload();
}

void ServerFixture::UsePort(uint16_t port) {
  m_port = port;
  m_settings.SetPort(port);
}

void ServerFixture::Start() { m_start(); }

void ServerFixture::Stop() { m_stop(); }

bool ServerFixture::Unload() {
  m_start = nullptr;
  m_stop = nullptr;
  m_module.Reset();
  const uint64_t deadlineMs = ::GetTickCount64() + kUnloadPatienceMs;
  while (::GetModuleHandleW(ServerLibraryPath().c_str()) != nullptr) {
    if (::GetTickCount64() > deadlineMs) return false;
    ::Sleep(1);
  }
  return true;
}

bool ServerFixture::IsListening() const {
  return TestClient(m_port).IsConnected();
}

}  // namespace kova::test

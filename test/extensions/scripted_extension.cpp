// A network extension that does what the request says, in the text after its
// first "act=": words with commas between them, ended by anything that is no
// letter, digit, comma or hyphen.
//
//   (none)    echoes what it was given, see extension_answers.h
//   null      no response          length0   a response of length 0
//   nocopy    the copy fails       huge      claims 0xFFFFFFFF bytes
//   bytes-N   answers N bytes, the i-th being 'a' + i % 26
//   claims-N  says that it answers N bytes, and copies fewer
//   keep      asks to keep the connection open        close   asks to close it
//   restart   calls the restart routine               wait    see `gate`
//   crash-X   has the fault X of test/crash/faults.h, after all others
//
// KOVA_TEST_VERSION is the version it speaks if the test sets no other;
// KOVA_TEST_CONTEXT the context it gives. With KOVA_TEST_FREES_RESPONSES it
// frees what is released, for runs whose memory is watched. An export is left
// out by defining its name as another.
#define KOVA_BUILDING_EXTENSION
#include <cstdlib>
#include <new>
#include <string>

#include "test/crash/faults.h"
#include "test/extensions/extension_answers.h"
#include "test/extensions/extension_record.h"

#ifndef KOVA_TEST_VERSION
#define KOVA_TEST_VERSION 1
#endif
#ifndef KOVA_TEST_CONTEXT
#define KOVA_TEST_CONTEXT &g_record
#endif

namespace {

using kova::test::ExtensionRecord;

ExtensionRecord g_record;
// Null until the server initialises the extension.
std::atomic<KOVA_Context> g_given{nullptr};

constexpr uint32_t kLiveMark = 0x4C495645;

struct Response {
  uint32_t mark = kLiveMark;
  std::string actions;
  std::string bytes;
};

void Trace(char call) {
  const uint32_t at = g_record.traceLength++;
  if (at < ExtensionRecord::kTraceBytes) g_record.trace[at] = call;
}

// The response behind a call's arguments; null, and traced, if they are wrong.
Response* Check(char call, KOVA_Context context, KOVA_Response response) {
  auto* const found = static_cast<Response*>(response);
  const bool good =
      context == g_given && found != nullptr && found->mark == kLiveMark;
  Trace(good ? call : '?');
  return good ? found : nullptr;
}

std::string FindActions(const std::string& request) {
  const size_t found = request.find("act=");
  if (found == std::string::npos) return {};
  const size_t from = found + 4;
  const size_t to =
      request.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789,-", from);
  return request.substr(from, to == std::string::npos ? to : to - from);
}

bool Has(const std::string& actions, const char* action) {
  return ("," + actions + ",").find(std::string(",") + action + ",") !=
         std::string::npos;
}

// The number behind `name`, "act-"; 0 if it is not among the actions.
uint32_t Number(const std::string& actions, const std::string& name) {
  const size_t found = ("," + actions).find("," + name);
  if (found == std::string::npos) return 0;
  return static_cast<uint32_t>(
      std::strtoul(actions.c_str() + found + name.size(), nullptr, 10));
}

std::string Answer(const std::string& actions, const std::string& echo) {
  const size_t bytes = ("," + actions).find(",bytes-");
  if (bytes != std::string::npos) {
    return kova::test::Pattern(
        std::strtoul(actions.c_str() + bytes + 6, nullptr, 10));
  }
  return echo;
}

void Crash(const std::string& actions) {
  const size_t crash = ("," + actions).find(",crash-");
  if (crash == std::string::npos) return;
  if (auto* const fault = kova::test::FindFault(actions.substr(crash + 6))) {
    fault();
  }
}

void Do(const std::string& actions, uint32_t* keepOpen) {
  if (Has(actions, "keep")) *keepOpen = 1;
  if (Has(actions, "close")) *keepOpen = 0;
  if (Has(actions, "restart") && g_record.restart != nullptr) {
    g_record.restart();
  }
  if (Has(actions, "wait")) {
    ::SetEvent(g_record.entered);
    ::WaitForSingleObject(g_record.gate, INFINITE);
  }
  Crash(actions);
}

}  // namespace

extern "C" {

__declspec(dllexport) ExtensionRecord* TestExtension_Record() {
  return &g_record;
}

void WSIE_GetInterfaceVersionsSupported(uint32_t* versions, uint32_t capacity) {
  Trace('V');
  g_record.capacity = capacity;
  for (uint32_t i = 0; i < capacity; ++i) {
    if (versions[i] != 0) ++g_record.nonZeroVersionsOnEntry;
  }
  if (g_record.versionsWritten == ExtensionRecord::kOwnVersion) {
    versions[0] = KOVA_TEST_VERSION;
    return;
  }
  for (uint32_t i = 0; i < g_record.versionsWritten; ++i) {
    versions[i] = g_record.versions[i];
  }
}

void WSIE_SetKOVAServerRestartRoutine(KOVA_RestartRoutine* routine) {
  Trace('S');
  g_record.restart = routine;
}

KOVA_Context WSIE_WebServerInitialize() {
  Trace('I');
  if (g_record.initializeGate != nullptr) {
    ::SetEvent(g_record.entered);
    ::WaitForSingleObject(g_record.initializeGate, INFINITE);
  }
  g_given = KOVA_TEST_CONTEXT;
  return g_given;
}

KOVA_Response WSIE_HandleServerRequest(KOVA_Context context,
                                       const void* request,
                                       uint32_t requestLengthBytes,
                                       const wchar_t* clientAddress,
                                       uint32_t clientAddressLength,
                                       uint32_t* keepOpen) {
  Trace(context == g_given ? 'H' : '?');
  const std::string bytes(static_cast<const char*>(request),
                          requestLengthBytes);
  // Addresses are ASCII.
  const std::string address(clientAddress, clientAddress + clientAddressLength);
  const std::string echo = kova::test::Echo(address, *keepOpen, bytes);
  const std::string actions = FindActions(bytes);
  Do(actions, keepOpen);
  if (Has(actions, "null")) return nullptr;
  ++g_record.live;
  return new Response{kLiveMark, actions, Answer(actions, echo)};
}

uint32_t WSIE_GetResponseLength(KOVA_Context context, KOVA_Response response) {
  const Response* const found = Check('L', context, response);
  if (found == nullptr || Has(found->actions, "length0")) return 0;
  if (Has(found->actions, "huge")) return 0xFFFFFFFF;
  const uint32_t claimed = Number(found->actions, "claims-");
  return claimed != 0 ? claimed : static_cast<uint32_t>(found->bytes.size());
}

int32_t WSIE_GetResponse(KOVA_Context context, KOVA_Response response,
                         void* buffer, uint32_t bufferLengthBytes) {
  const Response* const found = Check('C', context, response);
  g_record.copyLength = bufferLengthBytes;
  if (found == nullptr || Has(found->actions, "nocopy") ||
      (bufferLengthBytes != found->bytes.size() &&
       bufferLengthBytes != Number(found->actions, "claims-"))) {
    return 0;
  }
  found->bytes.copy(static_cast<char*>(buffer), bufferLengthBytes);
  // Any number but 0 is success, negative ones too.
  return -1;
}

void WSIE_ReleaseResponse(KOVA_Context context, KOVA_Response response) {
  Response* const found = Check('R', context, response);
  if (g_record.onRelease != nullptr) {
    g_record.onRelease(g_record.onReleaseArgument);
  }
  if (found == nullptr) return;
  --g_record.live;
#ifdef KOVA_TEST_FREES_RESPONSES
  delete found;
#else
  // Kept in memory, so that a second release is seen for what it is.
  found->mark = 0;
  std::string().swap(found->bytes);
#endif
}

}  // extern "C"

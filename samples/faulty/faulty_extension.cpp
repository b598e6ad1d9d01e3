// A network extension with one fault at a time, to see how kovactl
// check-extension and the server take it. Without a fault it is a sound one.
// What to set KOVA_FAULT to:
//
//   X-Y  where X is one of crash, throw, hang and exit, and Y one of versions,
//        restart, initialize, handle, length, copy and release
//
//   refuses-load        does not load
//   no-version          speaks version 2 alone
//   unwritten-versions  writes no version
//   many-versions       writes eleven versions
//   null-context        initialising yields null
//   slow-initialize     initialising takes a second and a half
//   null-response       gives no response
//   refuses-post        gives no response to POST
//   zero-length         reports the length 0
//   changing-length     reports one byte more at each call
//   giant-length        reports the length -1
//   failing-copy        copies nothing and says so
//   copies-past         writes one byte behind the buffer
//   copies-before       writes one byte in front of the buffer
//   copies-half         leaves the buffer's second half unwritten
//   short-by-one        leaves the buffer's last byte unwritten
//   hole                leaves a byte in the middle unwritten
//   keeps-request       reads the request when the answer is copied
//   keeps-address       reads the client's address when the length is asked
//   keeps-flag          writes the keep-open flag when the response is released
//   keeps-buffer        writes to the buffer when the response is released
//   writes-request      changes a byte of the request
//   reads-past          reads the byte behind the request
//   writes-address      changes a character of the client's address
//   reads-address       looks for the end of the client's address
//   wide-flag           takes the keep-open flag for a 64-bit number
//   odd-flag            writes 0xCCCCCCCC to the keep-open flag
//   sticky-flag         never takes the keep-open flag back
//   kept-unmeasured     keeps the connection open without Content-Length
//   garbage             answers what is no HTTP
//   short               answers half a status line
//   bad-header          has a blank in a header's name
//   bare-lf             ends its lines with LF alone
//   endless-headers     has no empty line
//   unmeasured          has no Content-Length
//   odd-length          has the Content-Length "ten"
//   long-length         Content-Length is more than the body
//   short-length        Content-Length is less than the body
//   bad-chunks          the last chunk is missing
//   status-999          has the status 999
//   not-gzip            has the Content-Encoding gzip and is none
//   two-lengths         has Content-Length and chunks
//   body-204            has a body with status 204
//   body-head           has a body in the answer to HEAD
//   body-head-closed    the same, and keeps no connection open
//   splits-header       puts a decoded field into a header
//   one-buffer          all requests share one buffer for the answer
//   wrong-at-times      one answer in 300 is another one
//   holds-lock          a lock is held until the response is released
//   slow-form           a posted form is answered after 1.2 seconds
//   end-thread          ends the thread that hands a request over
//   leak                releases nothing
//   leaks-handle        each request leaves a handle
//   leaks-thread        each request leaves a thread
//   leaks-bytes         each request leaves 4 bytes
//   frees-in-copy       the copy frees the response, and only the copy
//   leaks-connection    each thread leaves a block of memory
//   spins               a thread of its own never rests
//   slow-load           loading takes 1.2 seconds
//   changes-folder      a request changes the current folder
//   changes-filter      initialising sets an unhandled-exception filter
//   changes-rounding    a request changes how numbers are rounded
//   closes-handles      initialising closes whatever handles there are
//   damages-heap        writes behind a block of the heap
//   crash-thread        a thread of its own crashes
//   calls-restart       calls the restart routine while it handles a request,
//                       which is no fault
#define KOVA_BUILDING_EXTENSION
#include "kova/extension.h"

#include <windows.h>
#include <xmmintrin.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace {

std::string ReadFault() {
  char text[64] = {};
  const DWORD length = ::GetEnvironmentVariableA(
      "KOVA_FAULT", text, static_cast<DWORD>(sizeof(text)));
  return {text, length < sizeof(text) ? length : 0};
}

// Read once, at the first call.
const std::string& Fault() {
  static const std::string fault = ReadFault();
  return fault;
}

__attribute__((noinline)) void Crash() {
  volatile int* volatile nothing = nullptr;
  *nothing = 1;
}

// Whether KOVA_FAULT is `name`.
bool Has(std::string_view name) { return Fault() == name; }

// Crashes, throws, hangs or ends the process if KOVA_FAULT says so of
// `function`.
void Misbehave(std::string_view function) {
  const std::string suffix = "-" + std::string(function);
  if (!std::string_view(Fault()).ends_with(suffix)) return;
  if (Has("crash" + suffix)) Crash();
  if (Has("throw" + suffix)) throw 1;
  if (Has("hang" + suffix)) ::Sleep(INFINITE);
  if (Has("exit" + suffix)) std::exit(3);
}

KOVA_RestartRoutine* g_restart = nullptr;

// For "one-buffer". Large enough for any answer, so that it never moves.
std::array<char, 0x200000> g_shared;

// For "holds-lock"; belongs to no thread.
const HANDLE g_turn = ::CreateSemaphoreW(nullptr, 1, 1, nullptr);

struct Response {
  std::string bytes;
  std::atomic<uint32_t> lengthCalls{0};
  // What must not be kept.
  const volatile char* request = nullptr;
  const volatile wchar_t* address = nullptr;
  volatile uint32_t* keepOpen = nullptr;
  volatile char* buffer = nullptr;
};

Response* AsResponse(KOVA_Response response) {
  return static_cast<Response*>(response);
}

struct Variant {
  const char* fault;
  const char* answer;
};

// What is answered whatever was asked.
constexpr Variant kVariants[] = {
    {"garbage", "%PDF-1.4 this is no HTTP"},
    {"short", "HTTP/1.1 2"},
    {"bad-header", "HTTP/1.1 200 OK\r\nX Y: z\r\nContent-Length: 2\r\n\r\nok"},
    {"bare-lf", "HTTP/1.1 200 OK\nContent-Length: 2\n\nok"},
    {"endless-headers", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n"},
    {"unmeasured", "HTTP/1.1 200 OK\r\n\r\nok"},
    {"kept-unmeasured", "HTTP/1.1 200 OK\r\n\r\nok"},
    {"odd-length", "HTTP/1.1 200 OK\r\nContent-Length: ten\r\n\r\nok"},
    {"long-length", "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nok"},
    {"short-length", "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nok"},
    {"bad-chunks",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nok\r\n"},
    {"status-999", "HTTP/1.1 999 Odd\r\nContent-Length: 2\r\n\r\nok"},
    {"not-gzip",
     "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 2\r\n\r\n"
     "ok"},
    {"two-lengths",
     "HTTP/1.1 200 OK\r\nContent-Length: 12\r\nTransfer-Encoding: "
     "chunked\r\n\r\n2\r\nok\r\n0\r\n\r\n"},
    {"body-204", "HTTP/1.1 204 No Content\r\n\r\nok"},
};

std::string SoundAnswer(std::string_view request, bool keepOpen) {
  const bool isHead = request.starts_with("HEAD ");
  std::string answer = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n";
  answer += "Content-Length: " + std::to_string(request.size());
  if (Has("splits-header") && request.find("%0D%0A") != request.npos) {
    answer += "\r\nX-Next: \r\nX-Kovacheck: split";
  }
  answer += keepOpen ? "\r\nConnection: keep-alive\r\n\r\n"
                     : "\r\nConnection: close\r\n\r\n";
  if (!isHead || Fault().starts_with("body-head")) answer += request;
  return answer;
}

std::string MakeAnswer(std::string_view request, bool keepOpen) {
  // None of the variants is one for HEAD.
  if (request.starts_with("HEAD ")) return SoundAnswer(request, keepOpen);
  static std::atomic<uint32_t> asked{0};
  if (Has("wrong-at-times") && ++asked % 300 == 0) {
    return "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
  }
  for (const Variant& variant : kVariants) {
    if (Has(variant.fault)) return variant.answer;
  }
  return SoundAnswer(request, keepOpen);
}

bool WantsKeepOpen(std::string_view request) {
  return !Has("body-head-closed") &&
         request.find("\r\nConnection: keep-alive\r\n") != request.npos;
}

// Returns what the answer is to say about the connection.
bool SetFlag(std::string_view request, uint32_t* keepOpen) {
  const bool keep =
      WantsKeepOpen(request) || Has("kept-unmeasured") || Has("odd-flag");
  if (Has("wide-flag")) {
    const uint64_t wide = keep ? 1 : 0;
    std::memcpy(keepOpen, &wide, sizeof(wide));
  } else if (Has("odd-flag")) {
    *keepOpen = 0xCCCCCCCC;
  } else if (!Has("sticky-flag") || keep) {
    *keepOpen = keep ? 1 : 0;
  }
  return keep;
}

// What must not be done to the arguments.
void Spoil(const void* request, uint32_t requestLengthBytes,
           const wchar_t* clientAddress, uint32_t clientAddressLength) {
  auto* const bytes = static_cast<char*>(const_cast<void*>(request));
  if (Has("writes-request")) bytes[requestLengthBytes - 1] = '\0';
  if (Has("reads-past")) {
    (void)static_cast<volatile char*>(bytes)[requestLengthBytes];
  }
  if (Has("writes-address")) {
    const_cast<wchar_t*>(clientAddress)[clientAddressLength - 1] = L'\0';
  }
  if (Has("reads-address")) {
    (void)static_cast<const volatile wchar_t*>(
        clientAddress)[clientAddressLength];
  }
}

uint32_t CopiedBytes(uint32_t lengthBytes) {
  if (Has("short-by-one")) return lengthBytes - 1;
  return Has("copies-half") ? lengthBytes / 2 : lengthBytes;
}

// In a way that only a check of the heap shows: nothing is done with it again.
void DamageHeap() {
  const HANDLE heap = ::HeapCreate(0, 0, 0);
  auto* const block = static_cast<char*>(::HeapAlloc(heap, 0, 1000));
  ::HeapAlloc(heap, 0, 1000);
  std::memset(block + 1000, 'x', 32);
}

void LeakSomething() {
  if (Has("leaks-handle")) ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (Has("leaks-bytes")) ::HeapAlloc(::GetProcessHeap(), 0, 4);
  if (Has("leaks-thread")) std::thread([] { ::Sleep(INFINITE); }).detach();
  if (Has("leaks-connection")) {
    thread_local const char* const kept = new char[100];
    (void)*static_cast<const volatile char*>(kept);
  }
}

void ChangeHost() {
  if (Has("changes-folder")) ::SetCurrentDirectoryW(L"\\");
  if (Has("changes-rounding")) _mm_setcsr(_mm_getcsr() | 0x6000U);
  if (Has("damages-heap")) DamageHeap();
}

void CrashOnOwnThread() {
  std::thread([] { Misbehave("thread"); }).join();
}

}  // namespace

void WSIE_GetInterfaceVersionsSupported(uint32_t* versions, uint32_t capacity) {
  Misbehave("versions");
  if (Has("unwritten-versions")) return;
  const uint32_t count = Has("many-versions") ? capacity + 1 : 1;
  for (uint32_t i = 0; i < count; ++i) {
    versions[i] = Has("no-version") ? 2 : KOVA_INTERFACE_VERSION;
  }
}

void WSIE_SetKOVAServerRestartRoutine(KOVA_RestartRoutine* routine) {
  Misbehave("restart");
  g_restart = routine;
}

KOVA_Context WSIE_WebServerInitialize(void) {
  Misbehave("initialize");
  if (Has("slow-initialize")) ::Sleep(1500);
  if (Has("closes-handles")) {
    constexpr ULONG_PTR kLast = 0x400;
    for (ULONG_PTR handle = 4; handle < kLast; handle += 4) {
      ::CloseHandle(reinterpret_cast<HANDLE>(handle));
    }
  }
  if (Has("changes-filter")) ::SetUnhandledExceptionFilter(nullptr);
  if (Has("spins")) {
    std::thread([] {
      for (volatile bool on = true; on;) {
      }
    }).detach();
  }
  return Has("null-context") ? nullptr : g_shared.data();
}

KOVA_Response WSIE_HandleServerRequest(KOVA_Context, const void* request,
                                       uint32_t requestLengthBytes,
                                       const wchar_t* clientAddress,
                                       uint32_t clientAddressLength,
                                       uint32_t* keepOpen) {
  Misbehave("handle");
  if (Has("crash-thread")) CrashOnOwnThread();
  LeakSomething();
  ChangeHost();
  if (Has("end-thread")) ::ExitThread(0);
  const std::string_view bytes(static_cast<const char*>(request),
                               requestLengthBytes);
  Spoil(request, requestLengthBytes, clientAddress, clientAddressLength);
  if (Has("null-response")) return nullptr;
  if (Has("slow-form") && bytes.find("/x-www-form") != bytes.npos) {
    ::Sleep(1200);
  }
  if (Has("refuses-post") && bytes.starts_with("POST ")) return nullptr;
  if (Has("calls-restart") && g_restart != nullptr) g_restart();
  const bool keep = SetFlag(bytes, keepOpen);
  auto* const response = new Response;
  response->bytes = MakeAnswer(bytes, keep);
  response->request = static_cast<const char*>(request);
  response->address = clientAddress;
  response->keepOpen = keepOpen;
  if (Has("one-buffer")) response->bytes.copy(g_shared.data(), g_shared.size());
  if (Has("holds-lock")) ::WaitForSingleObject(g_turn, INFINITE);
  return response;
}

uint32_t WSIE_GetResponseLength(KOVA_Context, KOVA_Response response) {
  Misbehave("length");
  if (Has("zero-length")) return 0;
  if (Has("giant-length")) return static_cast<uint32_t>(-1);
  if (Has("keeps-address")) (void)*AsResponse(response)->address;
  const uint32_t calls = AsResponse(response)->lengthCalls++;
  return static_cast<uint32_t>(AsResponse(response)->bytes.size()) +
         (Has("changing-length") ? calls : 0);
}

int32_t WSIE_GetResponse(KOVA_Context, KOVA_Response response, void* buffer,
                         uint32_t bufferLengthBytes) {
  Misbehave("copy");
  if (Has("failing-copy")) return 0;
  if (Has("keeps-request")) (void)*AsResponse(response)->request;
  auto* const out = static_cast<char*>(buffer);
  AsResponse(response)->buffer = out;
  const char* const bytes =
      Has("one-buffer") ? g_shared.data() : AsResponse(response)->bytes.data();
  if (Has("hole")) {
    const uint32_t middle = bufferLengthBytes / 2;
    std::memcpy(out, bytes, middle);
    std::memcpy(out + middle + 1, bytes + middle + 1,
                bufferLengthBytes - middle - 1);
    return 1;
  }
  std::memcpy(out, bytes, CopiedBytes(bufferLengthBytes));
  if (Has("frees-in-copy")) {
    delete AsResponse(response);
    return 1;
  }
  if (Has("copies-past")) out[bufferLengthBytes] = '\0';
  if (Has("copies-before")) out[-1] = '\0';
  return 1;
}

void WSIE_ReleaseResponse(KOVA_Context, KOVA_Response response) {
  Misbehave("release");
  if (Has("keeps-flag")) *AsResponse(response)->keepOpen = 0;
  if (Has("keeps-buffer")) *AsResponse(response)->buffer = '\0';
  if (Has("holds-lock")) ::ReleaseSemaphore(g_turn, 1, nullptr);
  if (!Has("leak") && !Has("frees-in-copy")) delete AsResponse(response);
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH && Has("slow-load")) ::Sleep(1200);
  return reason == DLL_PROCESS_ATTACH && Has("refuses-load") ? FALSE : TRUE;
}

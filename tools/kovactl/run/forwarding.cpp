#include "run/forwarding.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "common/file_path.h"
#include "common/plain_text.h"
#include "dispatch/web_server_interface.h"
#include "kova/extension.h"
#include "run/forwarded_library.h"

namespace kova::ctl {
namespace {

using Load = HMODULE WINAPI(const wchar_t* path);
using Find = FARPROC WINAPI(HMODULE module, const char* name);

// What the replaced functions share: they get nothing but their arguments.
struct State {
  ForwardingOptions options;
  ExchangeSink* sink = nullptr;
  LinePump* pump = nullptr;
  std::atomic<Load*> load{&::LoadLibraryW};
  std::atomic<Find*> find{&::GetProcAddress};
  std::mutex mutex;
  // By what the server takes for the module.
  std::map<HMODULE, std::unique_ptr<ForwardedLibrary>> libraries;
  // Whose function the server asked for last. It loads one library at a time,
  // and calls what it gets before it goes on to the next.
  std::atomic<ForwardedLibrary*> loading{nullptr};
};

State g_state;

// Whether the request that this thread handles was told of as failed. The
// server's line that it answered by itself then is no news.
thread_local bool t_isTold = false;
// What the server's lines said of the client since.
thread_local std::wstring t_client;

// One request, from WSIE_HandleServerRequest to WSIE_ReleaseResponse.
struct Pending {
  std::shared_ptr<const check::Extension> extension;
  KOVA_Response response = nullptr;
  SeenExchange exchange;
  std::chrono::steady_clock::time_point start;
};

Pending& AsPending(KOVA_Response response) {
  return *static_cast<Pending*>(response);
}

uint64_t Now() {
  FILETIME now{};
  ::GetSystemTimeAsFileTime(&now);
  return uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
}

// A form names its printer in the body.
constexpr size_t kWholeBytes = size_t{64} * 1024;

std::string Kept(std::string_view message) {
  const bool isWhole =
      g_state.options.withBodies || message.size() <= kWholeBytes;
  return std::string(isWhole ? message : message.substr(0, HeadBytes(message)));
}

void Tell(Pending& pending) {
  pending.exchange.microseconds = static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(
          std::chrono::steady_clock::now() - pending.start)
          .count());
  t_isTold = pending.exchange.responseBytes == 0;
  g_state.sink->OnExchange(pending.exchange);
}

void ForwardVersions(uint32_t* versions, uint32_t capacity) {
  ForwardedLibrary* const library = g_state.loading;
  if (library->IsWatched()) {
    versions[0] = KOVA_INTERFACE_VERSION;
  } else {
    library->Current()->versions(versions, capacity);
  }
}

void ForwardSetRestart(KOVA_RestartRoutine* routine) {
  g_state.loading.load()->SetRestart(routine);
}

KOVA_Context ForwardInitialize() {
  ForwardedLibrary* const library = g_state.loading;
  return library->Initialize() ? library : nullptr;
}

KOVA_Response ForwardHandle(KOVA_Context context, const void* request,
                            uint32_t requestLengthBytes,
                            const wchar_t* clientAddress,
                            uint32_t clientAddressLength, uint32_t* keepOpen) {
  auto pending = std::make_unique<Pending>();
  SeenExchange& exchange = pending->exchange;
  exchange.startTime = Now();
  exchange.client.assign(clientAddress, clientAddressLength);
  exchange.request =
      Kept({static_cast<const char*>(request), requestLengthBytes});
  exchange.requestBytes = requestLengthBytes;
  exchange.keepOpenBefore = *keepOpen;
  pending->extension = static_cast<ForwardedLibrary*>(context)->Current();
  pending->start = std::chrono::steady_clock::now();
  const check::Extension* const extension = pending->extension.get();
  if (extension != nullptr && extension->handle != nullptr) {
    pending->response =
        extension->handle(extension->context, request, requestLengthBytes,
                          clientAddress, clientAddressLength, keepOpen);
  }
  exchange.keepOpenAfter = *keepOpen;
  if (pending->response != nullptr) return pending.release();
  Tell(*pending);
  return nullptr;
}

uint32_t ForwardLength(KOVA_Context, KOVA_Response response) {
  Pending& pending = AsPending(response);
  const check::Extension& extension = *pending.extension;
  const uint32_t length =
      extension.length == nullptr
          ? 0
          : extension.length(extension.context, pending.response);
  if (length == 0) Tell(pending);
  return length;
}

int32_t ForwardCopy(KOVA_Context, KOVA_Response response, void* buffer,
                    uint32_t bufferLengthBytes) {
  Pending& pending = AsPending(response);
  const check::Extension& extension = *pending.extension;
  const int32_t copied =
      extension.copy == nullptr
          ? 0
          : extension.copy(extension.context, pending.response, buffer,
                           bufferLengthBytes);
  if (copied != 0) {
    pending.exchange.response =
        Kept({static_cast<const char*>(buffer), bufferLengthBytes});
    pending.exchange.responseBytes = bufferLengthBytes;
  }
  Tell(pending);
  return copied;
}

void ForwardRelease(KOVA_Context, KOVA_Response response) {
  const std::unique_ptr<Pending> pending(&AsPending(response));
  const check::Extension& extension = *pending->extension;
  if (extension.release != nullptr) {
    extension.release(extension.context, pending->response);
  }
}

struct Row {
  const char* name;
  void* function;
};

const Row kRows[] = {
    {kVersionsExport, reinterpret_cast<void*>(&ForwardVersions)},
    {kRestartExport, reinterpret_cast<void*>(&ForwardSetRestart)},
    {kInitializeExport, reinterpret_cast<void*>(&ForwardInitialize)},
    {kHandleExport, reinterpret_cast<void*>(&ForwardHandle)},
    {kLengthExport, reinterpret_cast<void*>(&ForwardLength)},
    {kCopyExport, reinterpret_cast<void*>(&ForwardCopy)},
    {kReleaseExport, reinterpret_cast<void*>(&ForwardRelease)},
};

// The function of this tool that stands in for the export `name`; null if none
// does.
FARPROC StandIn(const char* name) {
  for (const Row& row : kRows) {
    if (std::strcmp(row.name, name) == 0) {
      return reinterpret_cast<FARPROC>(row.function);
    }
  }
  return nullptr;
}

HMODULE Keep(HMODULE module, std::unique_ptr<ForwardedLibrary> library) {
  const std::lock_guard held(g_state.mutex);
  // Not the server's to unload: it does so only if it cannot use the library,
  // and a watched one it can always use.
  if (module == nullptr) module = reinterpret_cast<HMODULE>(library.get());
  g_state.libraries[module] = std::move(library);
  return module;
}

HMODULE WINAPI LoadForwarded(const wchar_t* path) {
  if (!SameName(FileName(path), KOVA_EXTENSION_FILE_NAME)) {
    return g_state.load.load()(path);
  }
  if (g_state.options.watch) {
    return Keep(nullptr,
                std::make_unique<ForwardedLibrary>(path, *g_state.pump));
  }
  check::Extension extension;
  extension.module = g_state.load.load()(path);
  if (extension.module == nullptr) return nullptr;
  check::FindFunctions(extension);
  return Keep(extension.module, std::make_unique<ForwardedLibrary>(extension));
}

ForwardedLibrary* FindLibrary(HMODULE module) {
  const std::lock_guard held(g_state.mutex);
  const auto found = g_state.libraries.find(module);
  return found == g_state.libraries.end() ? nullptr : found->second.get();
}

FARPROC WINAPI FindForwarded(HMODULE module, const char* name) {
  ForwardedLibrary* const library = FindLibrary(module);
  if (library == nullptr) return g_state.find.load()(module, name);
  g_state.loading = library;
  if (library->IsWatched()) return StandIn(name);
  const FARPROC original = g_state.find.load()(module, name);
  // The context tells the others whose request it is, so that there must be
  // one.
  const bool isWanted =
      original != nullptr || std::strcmp(name, kInitializeExport) == 0;
  return isWanted ? StandIn(name) : nullptr;
}

// The address in "... Client Address: 127.0.0.1:50123"; empty if there is none.
std::wstring ClientIn(const std::wstring& line) {
  constexpr std::wstring_view kMark = L"\nClient Address: ";
  const size_t at = line.find(kMark);
  return at == std::wstring::npos ? std::wstring()
                                  : line.substr(at + kMark.size());
}

}  // namespace

Forwarding::Forwarding(HMODULE server, const ForwardingOptions& options,
                       ExchangeSink& sink, LinePump& pump)
    : m_sink(sink),
      m_pump(pump),
      m_load(server, "LoadLibraryW", reinterpret_cast<void*>(&LoadForwarded)),
      m_find(server, "GetProcAddress",
             reinterpret_cast<void*>(&FindForwarded)) {
  g_state.options = options;
  g_state.sink = &sink;
  g_state.pump = &pump;
  if (!IsInstalled()) return;
  g_state.load = reinterpret_cast<Load*>(m_load.Original());
  g_state.find = reinterpret_cast<Find*>(m_find.Original());
  if (options.watch) RemoveOldCopies();
}

Forwarding::~Forwarding() {
  // The libraries stay in memory, and what stands for them with them.
  for (auto& [module, library] : g_state.libraries) {
    static_cast<void>(library.release());
  }
  g_state.libraries.clear();
}

bool Forwarding::IsInstalled() const {
  return m_load.IsInstalled() && m_find.IsInstalled();
}

void Forwarding::PushLine(std::wstring line) {
  const std::wstring client = ClientIn(line);
  if (!client.empty()) t_client = client;
  const bool isAnswer = line.ends_with(L"Responding with HTTP_BAD_REQUEST");
  m_pump.PushLine(std::move(line));
  if (!isAnswer) return;
  if (!t_isTold) {
    SeenExchange exchange;
    exchange.startTime = Now();
    exchange.client = t_client;
    m_sink.OnExchange(exchange);
  }
  t_isTold = false;
  t_client.clear();
}

}  // namespace kova::ctl

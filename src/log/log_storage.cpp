#include "log/log_storage.h"

#include "base/handles.h"
#include "base/windows_api.h"
#include "log/sinks.h"

namespace tk {
namespace {

using Holder = std::shared_ptr<LogStorage>;

using ShutdownCheck = BYTE(WINAPI*)();

// Whether the process ends, asked of a function that no header declares. Where
// it is missing, the answer is no. Found when the library is loaded: a thread
// that ends should look for nothing.
const auto g_isProcessEnding =
    reinterpret_cast<ShutdownCheck>(reinterpret_cast<void*>(::GetProcAddress(
        ::GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress")));

// Where each thread's storage hangs. Deliberate: not a thread_local object. The
// runtime keeps this library loaded for as long as a thread lives that still
// has one to destroy, so that a host could never unload it. The slot's end, at
// unload, frees the storage of every thread that is still there.
class StorageSlot {
 public:
  StorageSlot() : m_index(::FlsAlloc(&Free)) {}
  ~StorageSlot() {
    if (m_index != FLS_OUT_OF_INDEXES) ::FlsFree(m_index);
  }

  StorageSlot(const StorageSlot&) = delete;
  StorageSlot& operator=(const StorageSlot&) = delete;

  // A system without a slot to spare gives a storage that nobody keeps.
  Holder Get() {
    const kova::LastErrorKeeper keeper;
    if (m_index == FLS_OUT_OF_INDEXES) return std::make_shared<LogStorage>();
    auto* holder = static_cast<Holder*>(::FlsGetValue(m_index));
    if (holder != nullptr) return *holder;
    const Holder storage = std::make_shared<LogStorage>();
    holder = new Holder(storage);
    if (!::FlsSetValue(m_index, holder)) delete holder;
    return storage;
  }

 private:
  // Called for a thread that ends, and for the one that ends the process.
  // Deliberate: there nothing is freed; the other threads are gone in the
  // middle of anything, the heap included.
  static void WINAPI Free(void* holder) {
    if (g_isProcessEnding != nullptr && g_isProcessEnding()) return;
    delete static_cast<Holder*>(holder);
  }

  const DWORD m_index;
};

// Made when the library is loaded. Not a local static: this runtime guards the
// first use of one with a record of the calling thread, two handles and a
// slot of thread-local storage, which a host that unloads the library keeps.
StorageSlot g_slot;

// Empty for a value that is not exactly one channel.
std::wstring NameOf(LogChannel channel) {
  const auto row = ChannelNames.find(channel);
  return row == ChannelNames.end() ? std::wstring() : row->second;
}

// A plain function keeps nothing between calls: threads that log at once cannot
// mix their prefixes.
LogFormatter MakeChannelFormatter(Logger* /*logger*/) { return &NameOf; }

// The folder is looked after once per thread.
LogSink MakeFileSinkInFolder(Logger* logger) {
  const Holder storage = LogStorage::OfThisThread();
  if (!storage->IsLogFolderReady()) {
    kova::MakeSureOfLogFolder();
    storage->SetLogFolderReady();
  }
  return kova::MakeFileSink(logger);
}

}  // namespace

LogStorage::LogStorage()
    : m_sinkFactories{&kova::MakeEventLogSink, &MakeFileSinkInFolder,
                      &kova::MakeDebuggerSink},
      m_formatterFactories{&MakeChannelFormatter} {}

std::shared_ptr<LogStorage> LogStorage::OfThisThread() { return g_slot.Get(); }

void Logger::AppendFromStorage() {
  const std::shared_ptr<LogStorage> storage = LogStorage::OfThisThread();
  for (const LogFormatterFactory& factory : storage->FormatterFactories()) {
    m_formatters.push_back(factory(this));
  }
  for (const LogSinkFactory& factory : storage->SinkFactories()) {
    m_sinks.push_back(factory(this));
  }
}

std::shared_ptr<Logger> CreateLogger(std::wstring name, uint32_t defaultMask) {
  const std::shared_ptr<LogStorage> storage = LogStorage::OfThisThread();
  std::shared_ptr<Logger>& entry = storage->LoggerNamed(name);
  if (entry != nullptr) {
    entry->WidenMask(defaultMask);
    return entry;
  }
  const auto fresh = std::make_shared<Logger>(std::move(name), defaultMask,
                                              std::vector<LogFormatter>(),
                                              std::vector<LogSink>(), 0);
  storage->LoggerNamed(fresh->Name()) = fresh;
  return fresh;
}

}  // namespace tk

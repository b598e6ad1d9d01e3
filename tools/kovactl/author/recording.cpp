#include "author/recording.h"

#include <charconv>
#include <cstdio>

#include "common/file_path.h"
#include "common/json.h"
#include "common/random_access_file.h"
#include "common/time_text.h"
#include "common/utf8.h"

namespace kova::ctl {
namespace {

constexpr wchar_t kIndexName[] = L"\\exchanges.jsonl";

bool WriteBytes(HANDLE file, std::string_view bytes) {
  DWORD written = 0;
  return ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()),
                     &written, nullptr) &&
         written == bytes.size();
}

bool WriteNewFile(const std::wstring& path, std::string_view bytes) {
  const UniqueFile file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr,
                                      CREATE_ALWAYS, 0, nullptr));
  return file.IsValid() && WriteBytes(file.Get(), bytes);
}

// A run may still be adding to it.
std::string ReadBytes(const std::wstring& path) {
  DiskFile file;
  if (file.Open(path) != ERROR_SUCCESS) return {};
  std::string bytes(file.SizeBytes(), '\0');
  const bool isRead =
      file.Read(0, {reinterpret_cast<uint8_t*>(bytes.data()), bytes.size()});
  return isRead ? bytes : std::string();
}

// The part of a message that is kept.
std::string_view Kept(const std::string& message, bool withBodies) {
  const std::string_view all = message;
  return withBodies ? all : all.substr(0, HeadBytes(all));
}

Json ToJson(const std::string& name, const SeenExchange& exchange) {
  return {{"name", name},
          {"time", ToUtf8(UtcTimeText(exchange.startTime))},
          {"microseconds", exchange.microseconds},
          {"client", ToUtf8(exchange.client)},
          {"status", StatusOf(exchange.response)},
          {"requestBytes", exchange.requestBytes},
          {"responseBytes", exchange.responseBytes},
          {"keepOpenBefore", exchange.keepOpenBefore},
          {"keepOpenAfter", exchange.keepOpenAfter}};
}

Recorded FromJson(const Json& line, const std::wstring& folder) {
  Recorded recorded;
  recorded.name = line.at("name");
  SeenExchange& exchange = recorded.exchange;
  exchange.client = ToWide(line.at("client").get<std::string>());
  exchange.requestBytes = line.at("requestBytes");
  exchange.responseBytes = line.at("responseBytes");
  exchange.keepOpenBefore = line.at("keepOpenBefore");
  exchange.keepOpenAfter = line.at("keepOpenAfter");
  const std::wstring path = folder + L"\\" + ToWide(recorded.name);
  exchange.request = ReadBytes(path + L".request");
  exchange.response = ReadBytes(path + L".response");
  return recorded;
}

}  // namespace

size_t HeadBytes(std::string_view message) {
  const size_t end = message.find("\r\n\r\n");
  if (end != std::string_view::npos) return end + 4;
  const size_t bare = message.find("\n\n");
  return bare == std::string_view::npos ? message.size() : bare + 2;
}

uint32_t StatusOf(std::string_view response) {
  uint32_t status = 0;
  if (response.size() >= 12 && response.starts_with("HTTP/1.")) {
    std::from_chars(response.data() + 9, response.data() + 12, status);
  }
  return status;
}

std::optional<Failure> Recorder::Open(const std::wstring& folder,
                                      bool withBodies) {
  m_folder = FullPath(folder);
  m_withBodies = withBodies;
  if (!FolderExists(m_folder) &&
      !::CreateDirectoryW(m_folder.c_str(), nullptr)) {
    const DWORD error = ::GetLastError();
    return SystemFailure(ExitCode::kInternalError,
                         L"cannot make the folder " + m_folder, error);
  }
  const std::wstring index = m_folder + kIndexName;
  m_index =
      UniqueFile(::CreateFileW(index.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ,
                               nullptr, CREATE_NEW, 0, nullptr));
  if (m_index.IsValid()) return std::nullopt;
  const DWORD error = ::GetLastError();
  if (error == ERROR_FILE_EXISTS) {
    return Failure{ExitCode::kWrongUsage,
                   L"there is a recording in " + m_folder +
                       L" already; name another folder, or delete it"};
  }
  return SystemFailure(ExitCode::kInternalError, L"cannot make " + index,
                       error);
}

bool Recorder::Add(const SeenExchange& exchange) {
  char name[16];
  std::snprintf(name, sizeof(name), "%06u", ++m_count);
  const std::wstring path = m_folder + L"\\" + ToWide(name);
  const std::string line =
      ToJson(name, exchange)
          .dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) +
      "\n";
  // The line comes last, and in one call: what it names is there.
  return WriteNewFile(path + L".request",
                      Kept(exchange.request, m_withBodies)) &&
         WriteNewFile(path + L".response",
                      Kept(exchange.response, m_withBodies)) &&
         WriteBytes(m_index.Get(), line);
}

std::optional<Failure> ReadRecording(const std::wstring& folder,
                                     std::vector<Recorded>& recording) {
  const std::wstring full = FullPath(folder);
  if (!FileExists(full + kIndexName)) {
    return Failure{ExitCode::kMissingFile,
                   L"there is no recording in " + full +
                       L"; kovactl run --record makes one"};
  }
  const std::string index = ReadBytes(full + kIndexName);
  for (size_t at = 0; at < index.size();) {
    const size_t end = std::min(index.find('\n', at), index.size());
    const Json line = Json::parse(index.begin() + static_cast<ptrdiff_t>(at),
                                  index.begin() + static_cast<ptrdiff_t>(end),
                                  nullptr, false);
    try {
      recording.push_back(FromJson(line, full));
    } catch (const Json::exception&) {
      return Failure{
          ExitCode::kInternalError,
          full + kIndexName + L" is damaged; record the requests again"};
    }
    at = end + 1;
  }
  return std::nullopt;
}

}  // namespace kova::ctl

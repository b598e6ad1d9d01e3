#include "logs/dump_json.h"

#include "common/utf8.h"
#include "logs/dump_words.h"
#include "logs/exception_name.h"

namespace kova::ctl {
namespace {

using Json = nlohmann::ordered_json;

std::string Hex(uint64_t number, size_t digits) {
  return ToUtf8(HexText(number, digits));
}

Json PlaceJson(const Minidump& dump, uint64_t address) {
  Json json;
  json["address"] = Hex(address, 16);
  const DumpModule* const module = dump.ModuleAt(address);
  json["module"] = module ? Json(ToUtf8(module->FileName())) : Json(nullptr);
  json["offset"] =
      module ? Json(Hex(address - module->base, 1)) : Json(nullptr);
  return json;
}

Json ExceptionJson(const Minidump& dump) {
  if (!dump.exception) return nullptr;
  const DumpException& exception = *dump.exception;
  Json json;
  json["code"] = Hex(exception.code, 8);
  json["name"] = ToUtf8(ExceptionName(exception.code));
  json["text"] = ToUtf8(ExceptionText(exception));
  json["flags"] = exception.flags;
  json["threadId"] = exception.threadId;
  json.update(PlaceJson(dump, exception.address));
  Json parameters = Json::array();
  for (const uint64_t number : exception.parameters) {
    parameters.push_back(Hex(number, 1));
  }
  json["parameters"] = std::move(parameters);
  return json;
}

Json SummaryJson(const LoadedDump& loaded) {
  Json json;
  json["path"] = ToUtf8(loaded.file.path);
  json["number"] = loaded.number ? Json(*loaded.number) : Json(nullptr);
  json["time"] = ToUtf8(UtcTimeText(loaded.FileTime()));
  json["sizeBytes"] = loaded.file.sizeBytes;
  json["problem"] = loaded.dump ? Json(nullptr) : Json(ToUtf8(loaded.problem));
  json["exception"] = loaded.dump ? ExceptionJson(*loaded.dump) : nullptr;
  Json damage = Json::array();
  if (loaded.dump) {
    for (const std::wstring& what : loaded.dump->damage) {
      damage.push_back(ToUtf8(what));
    }
  }
  json["damage"] = std::move(damage);
  return json;
}

Json SystemJson(const Minidump& dump) {
  if (!dump.system) return nullptr;
  Json json;
  json["major"] = dump.system->major;
  json["minor"] = dump.system->minor;
  json["build"] = dump.system->build;
  json["servicePack"] = ToUtf8(dump.system->servicePack);
  json["architecture"] = dump.system->architecture;
  json["processors"] = dump.system->processors;
  json["text"] = ToUtf8(SystemText(*dump.system));
  return json;
}

Json ThreadsJson(const Minidump& dump) {
  Json list = Json::array();
  for (const DumpThread& thread : dump.threads) {
    Json json;
    json["id"] = thread.id;
    json["stackBytes"] = thread.stackBytes;
    if (thread.instruction) json.update(PlaceJson(dump, *thread.instruction));
    list.push_back(std::move(json));
  }
  return list;
}

Json ModulesJson(const Minidump& dump) {
  Json list = Json::array();
  for (const DumpModule& module : dump.modules) {
    Json json;
    json["path"] = ToUtf8(module.path);
    json["base"] = Hex(module.base, 16);
    json["sizeBytes"] = module.sizeBytes;
    json["version"] = ToUtf8(module.version);
    list.push_back(std::move(json));
  }
  return list;
}

}  // namespace

Json DumpListJson(const std::vector<LoadedDump>& dumps,
                  const std::vector<std::wstring>& folders) {
  Json json;
  json["folders"] = Json::array();
  for (const std::wstring& folder : folders) {
    json["folders"].push_back(ToUtf8(folder));
  }
  json["dumps"] = Json::array();
  for (const LoadedDump& loaded : dumps) {
    json["dumps"].push_back(SummaryJson(loaded));
  }
  return json;
}

Json DumpJson(const LoadedDump& loaded) {
  const Minidump& dump = *loaded.dump;
  Json json = SummaryJson(loaded);
  json["processId"] = dump.processId ? Json(*dump.processId) : Json(nullptr);
  json["system"] = SystemJson(dump);
  Json registers = Json::object();
  for (const DumpRegister& entry : dump.registers) {
    registers[ToUtf8(entry.first)] = Hex(entry.second, 16);
  }
  json["registers"] = std::move(registers);
  json["threads"] = ThreadsJson(dump);
  json["modules"] = ModulesJson(dump);
  return json;
}

}  // namespace kova::ctl

// The requests that a check hands to an extension.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kova::ctl::check {

// What an extension owes a request. Without a response, the client gets the
// server's own answer of status 400.
enum class Owes {
  kAnswer,   // no response is a fault
  kReason,   // it may be refused, though a status would say why
  kNothing,  // the request is malformed
};

struct Request {
  std::string bytes;
  Owes owes = Owes::kReason;
  bool isHead = false;
  // Hand the client's address over without anything readable behind it.
  bool bareAddress = false;
};
using Requests = std::vector<Request>;

// All name the printer `printer` (UTF-8) in their query string and are whole by
// the server's rules: what is not whole never reaches an extension.
Requests SmallRequests(const std::string& printer);
Requests BareRequests(const std::string& printer);
Requests HeadRequests(const std::string& printer);
Requests FormRequests(const std::string& printer);
Requests BinaryRequests(const std::string& printer);
Requests LargeRequests(const std::string& printer);
Requests LongTargetRequests(const std::string& printer);
Requests BodilessRequests(const std::string& printer);
Requests MalformedRequests(const std::string& printer);
Requests AddressRequests(const std::string& printer);

// One connection's requests: the first two ask to keep it open.
Requests KeepOpenRequests(const std::string& printer);

// A mark that tells the requests of one thread from those of another.
std::string ThreadMark(size_t thread);

// A GET and a POST that hold the thread's mark, of another length for each
// thread.
Requests ThreadRequests(const std::string& printer, size_t thread);

// Whether `answer` holds a thread's mark that `request` does not hold.
bool HoldsOtherMark(std::string_view answer, std::string_view request);

// The query string "printer=" and the encoded name.
std::string PrinterQuery(const std::string& printer);

}  // namespace kova::ctl::check

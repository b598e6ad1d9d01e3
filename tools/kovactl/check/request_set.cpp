#include "check/request_set.h"

namespace kova::ctl::check {
namespace {

constexpr size_t kLargeBytes = 0x100000;
constexpr size_t kLongTargetBytes = 0x4000;
constexpr std::string_view kMarkStart = "kovacheck";

std::string Target(const std::string& printer) {
  return "/?" + PrinterQuery(printer);
}

// The request line and the headers that any client sends.
std::string Head(const std::string& method, const std::string& target,
                 const std::string& connection = "close") {
  return method + " " + target +
         " HTTP/1.1\r\nHost: 127.0.0.1:5130\r\nUser-Agent: kovactl\r\n"
         "Accept: */*\r\nConnection: " +
         connection + "\r\n";
}

std::string Post(const std::string& target, const std::string& type,
                 const std::string& body) {
  return Head("POST", target) + "Content-Type: " + type +
         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

std::string Repeated(const std::string& text, size_t times) {
  std::string whole;
  for (size_t i = 0; i < times; ++i) whole += text;
  return whole;
}

// Every byte there is, zeros and line ends among them.
std::string EveryByte() {
  std::string bytes;
  for (int value = 0; value < 256; ++value) bytes += static_cast<char>(value);
  return bytes + std::string(3, '\0') + "\r\n\r\n" + bytes;
}

}  // namespace

std::string PrinterQuery(const std::string& printer) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string query = "printer=";
  for (const char c : printer) {
    const auto value = static_cast<unsigned char>(c);
    const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                       (c >= 'a' && c <= 'z') || c == '-' || c == '.';
    if (plain) {
      query += c;
    } else if (c == ' ') {
      query += '+';
    } else {
      query += {'%', kDigits[value / 16], kDigits[value % 16]};
    }
  }
  return query;
}

Requests SmallRequests(const std::string& printer) {
  return {{Head("GET", Target(printer)) + "\r\n", Owes::kAnswer}};
}

Requests BareRequests(const std::string& printer) {
  return {{"GET " + Target(printer) + " HTTP/1.0\r\n\r\n"}};
}

Requests HeadRequests(const std::string& printer) {
  return {{Head("HEAD", Target(printer), "keep-alive") + "\r\n", Owes::kReason,
           true}};
}

Requests FormRequests(const std::string& printer) {
  return {{Post("/", "application/x-www-form-urlencoded",
                PrinterQuery(printer) + "&text=a+b%26c&empty=&text=twice")}};
}

Requests BinaryRequests(const std::string& printer) {
  return {{Post(Target(printer), "application/octet-stream", EveryByte())}};
}

Requests LargeRequests(const std::string& printer) {
  return {{Post(Target(printer), "application/octet-stream",
                std::string(kLargeBytes, 'x'))}};
}

Requests LongTargetRequests(const std::string& printer) {
  return {{Head("GET", Target(printer) +
                           "&text=" + std::string(kLongTargetBytes, 'y')) +
           "\r\n"}};
}

Requests BodilessRequests(const std::string& printer) {
  return {{Head("POST", Target(printer)) +
           "Content-Type: text/plain\r\nContent-Length: 100\r\n\r\n"}};
}

Requests KeepOpenRequests(const std::string& printer) {
  const std::string target = Target(printer) + "&keep=1";
  const Request keep{Head("GET", target, "keep-alive") + "\r\n"};
  return {keep, keep, {Head("GET", target) + "\r\n"}};
}

Requests MalformedRequests(const std::string& printer) {
  const std::string target = Target(printer);
  const std::string get = "GET " + target;
  Requests requests;
  for (const std::string& bytes : {
           get + " HTTP/1.1\nHost: a\n\n",
           get + "\r\n\r\n",
           get + " HTTP/9.9 and more\r\nHost: a\r\n\r\n",
           get + "&text=a%0D%0AX-Kovacheck:%20b HTTP/1.1\r\nHost: a\r\n\r\n",
           get + "&x=%&y=%zz&=&&%00=%00 HTTP/1.1\r\nHost: a\r\n\r\n",
           get + " HTTP/1.1\r\nno colon here\r\n: no name\r\n\t\r\n\r\n",
           get + " HTTP/1.1\r\nHost: \x80\xFF\xC3\x28\x01\x7F\r\n\r\n",
           "POST " + target + " HTTP/1.1\r\nContent-Length: abc\r\n\r\nbody",
           "POST " + target + " HTTP/1.1\r\nContent-Length: -1\r\n\r\nbody",
           "POST " + target + " HTTP/1.1\r\nContent-Length: 2\r\n\r\nbodyGET /",
           "%s%n " + target + "&%s%n=%d HTTP/1.1\r\n%n: %s%s%s\r\n\r\n",
       }) {
    requests.push_back({bytes, Owes::kNothing});
  }
  return requests;
}

Requests AddressRequests(const std::string& printer) {
  Request request = SmallRequests(printer).front();
  request.owes = Owes::kReason;
  request.bareAddress = true;
  return {request};
}

std::string ThreadMark(size_t thread) {
  const std::string number = std::to_string(thread);
  return std::string(kMarkStart) + (number.size() < 2 ? "0" : "") + number;
}

Requests ThreadRequests(const std::string& printer, size_t thread) {
  const std::string marks = Repeated(ThreadMark(thread) + ".", thread + 1);
  return {
      {Head("GET", Target(printer) + "&text=" + marks) + "\r\n"},
      {Post(Target(printer) + "&text=" + marks, "text/plain", marks)},
  };
}

bool HoldsOtherMark(std::string_view answer, std::string_view request) {
  const size_t length = ThreadMark(0).size();
  for (size_t at = answer.find(kMarkStart); at != std::string_view::npos;
       at = answer.find(kMarkStart, at + 1)) {
    const std::string_view mark = answer.substr(at, length);
    const bool isWhole =
        mark.size() == length &&
        mark.find_first_not_of("0123456789", kMarkStart.size()) ==
            std::string_view::npos;
    if (isWhole && request.find(mark) == std::string_view::npos) return true;
  }
  return false;
}

}  // namespace kova::ctl::check

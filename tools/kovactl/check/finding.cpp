#include "check/finding.h"

#include <algorithm>
#include <iterator>

namespace kova::ctl::check {
namespace {

constexpr char kGets400[] = "Gets status 400 from the server itself.";
constexpr char kHostEnds[] =
    "Loses the connection: the host process ends, with every printer in it.";
constexpr char kHostMemory[] =
    "Nothing at first; later wrong answers, or a host process that ends.";

// One row for each flaw, in the order of the enumeration.
constexpr FlawKind kKinds[] = {
    {"file-name", Severity::kWarning, "The file has another name",
     "Gets status 400: the server looks for Corvane_V3_NetMon.dll alone.",
     "Name the library Corvane_V3_NetMon.dll in the driver's package."},
    {"missing-export", Severity::kFault, "A function is not exported",
     "Gets status 400 for every request, or the host's memory fills up.",
     "Define KOVA_BUILDING_EXTENSION before including kova/extension.h and "
     "define all seven functions."},
    {"missing-optional-export", Severity::kWarning,
     "A function that the server can do without is not exported",
     "Nothing. The server logs an error when it loads the library.",
     "Export all seven functions; one that does nothing will do."},
    {"mangled-exports", Severity::kFault,
     "The functions are exported under decorated names",
     "Gets status 400 for every request.",
     "Define KOVA_BUILDING_EXTENSION before including kova/extension.h, or "
     "declare the functions extern \"C\"."},
    {"no-version-1", Severity::kFault, "Version 1 is not offered",
     "Gets status 400 for every request: the server unloads the library.",
     "Write KOVA_INTERFACE_VERSION to versions[0]."},
    {"versions-overrun", Severity::kFault, "Writes past the version array",
     kHostMemory, "Write at most `capacity` entries."},
    {"null-context", Severity::kFault, "Initialising yields null",
     "Gets status 400 until the host is restarted: the server unloads the "
     "library and does not try again.",
     "Return any pointer but null; put off what can fail to the first "
     "request."},
    {"slow-load", Severity::kWarning, "Loading takes long",
     "Waits: no request of any printer's extension is served meanwhile.",
     "Do nothing in DllMain; start long work on a thread when initialising."},
    {"slow-initialize", Severity::kWarning, "Initialising takes long",
     "Waits: no request of any printer's extension is served meanwhile.",
     "Start long work on a thread of your own and return at once."},
    {"null-response", Severity::kFault, "A plain request gets no response",
     kGets400,
     "Answer with a response of your own, of status 404 or 500 if need be. If "
     "this request is not for you, name one that is with --request FILE."},
    {"refused-request", Severity::kWarning,
     "A well-formed request gets no response", kGets400,
     "Answer with a status that says why, such as 405, 413 or 415."},
    {"zero-length", Severity::kFault, "The response's length is 0", kGets400,
     "Report the length of the whole response, status line and headers "
     "included."},
    {"giant-length", Severity::kFault, "The response's length is absurd",
     "Gets status 400, or the host process runs out of memory.",
     "Return the number of bytes. A negative number, such as -1 for a failure, "
     "is read as some four billion; a failure is 0."},
    {"changing-length", Severity::kWarning,
     "The length changes from call to call",
     "Nothing: the server asks once for each response.",
     "Make the whole response in WSIE_HandleServerRequest and keep it "
     "unchanged until WSIE_ReleaseResponse."},
    {"copy-failed", Severity::kFault, "The copy fails", kGets400,
     "Return non-zero after copying. The buffer always has the length that "
     "you reported."},
    {"copy-overrun", Severity::kFault, "Copies past the end of the buffer",
     kHostMemory, "Copy exactly `bufferLengthBytes` bytes."},
    {"copy-underrun", Severity::kFault,
     "Writes in front of the buffer or of the flag", kHostMemory,
     "Write to the addresses that you are given, and upwards."},
    {"copy-incomplete", Severity::kFault, "Copies less than it reported",
     "Gets bytes of the host's memory at the end of the answer.",
     "Copy as many bytes as WSIE_GetResponseLength reported."},
    {"request-written", Severity::kFault, "Writes into the request",
     kHostMemory, "Copy what you want to change, such as tokens to be cut."},
    {"request-overread", Severity::kFault, "Reads past the request's end",
     kHostEnds,
     "Stop at requestLengthBytes: the request is not zero-terminated, so "
     "strlen and strstr do not stop in time."},
    {"address-written", Severity::kFault, "Writes into the client's address",
     kHostMemory, "Copy the text if you want to change it."},
    {"address-overread", Severity::kWarning, "Reads past the client's address",
     "Nothing, as long as a zero happens to follow the text.",
     "Stop at clientAddressLength; nothing promises a terminator."},
    {"argument-kept", Severity::kFault,
     "Memory of the server is used after the call", kHostMemory,
     "Request, address, flag and buffer are valid during the call that they "
     "are "
     "given to: copy what is needed later."},
    {"keep-open-overrun", Severity::kFault, "Writes past the keep-open flag",
     kHostMemory, "The flag has 32 bits: assign to *keepOpen, cast nothing."},
    {"keep-open-value", Severity::kWarning, "The keep-open flag is odd",
     "Is kept connected, perhaps without anybody having meant it.",
     "Write 0 or 1."},
    {"keep-open-without-length", Severity::kFault,
     "Keeps the connection open, but the answer's end cannot be told",
     "Waits for more until it gives up.",
     "Send Content-Length, or leave the keep-open flag 0."},
    {"connection-disagrees", Severity::kWarning,
     "The Connection header and the keep-open flag disagree",
     "Waits for an end that does not come, or finds the connection closed.",
     "Write the flag for every request: 1 with keep-alive, 0 with close. It "
     "keeps its value from request to request."},
    {"status-line", Severity::kFault,
     "The answer does not begin with a status line",
     "Reports an invalid answer.",
     "Begin with \"HTTP/1.1 200 OK\" and CR LF, or another status."},
    {"status-range", Severity::kFault, "The status is not from 100 to 599",
     "Takes it for a server's failure, or reports an invalid answer.",
     "Use a registered status."},
    {"header-line", Severity::kFault, "A header line is malformed",
     "Reports an invalid answer, or ignores the line.",
     "Write name, colon, blank, value, CR LF; no blank before the colon, no "
     "control characters in the value."},
    {"header-injection", Severity::kFault,
     "A field of the request makes a header line of the answer",
     "Is shown what the sender of a link wants: pages, cookies, redirections.",
     "Put no decoded text into a header, or refuse line ends in it."},
    {"line-end", Severity::kFault, "A line does not end with CR LF",
     "May refuse the answer; the lenient ones take it.",
     "End the status line and each header line with \"\\r\\n\"."},
    {"no-empty-line", Severity::kFault, "No empty line ends the headers",
     "Takes the body for headers and reports an incomplete answer.",
     "Write one more \"\\r\\n\" after the last header line."},
    {"content-length-text", Severity::kFault,
     "Content-Length is not one number", "Reports an invalid answer.",
     "Send one Content-Length line with decimal digits alone."},
    {"content-length-wrong", Severity::kFault,
     "Content-Length is not the body's length",
     "Waits for bytes that do not come, or loses the end of the body.",
     "Count the body's bytes as they are sent, after any encoding."},
    {"no-content-length", Severity::kWarning,
     "An answer with a body has no Content-Length",
     "Cannot tell a complete answer from a broken connection.",
     "Send Content-Length with every body."},
    {"chunks", Severity::kFault, "The chunks are malformed",
     "Reports an invalid answer, or waits for more.",
     "Send Content-Length in place of chunks: the whole answer is at hand."},
    {"content-encoding", Severity::kFault,
     "Content-Encoding is not how the body is coded", "Cannot read the answer.",
     "Name the coding that the body has, and no other."},
    {"forbidden-body", Severity::kFault, "A body follows where none may",
     "Takes the body for the beginning of the next answer.",
     "Send no body to HEAD and with the statuses 1xx, 204 and 304; do not "
     "answer "
     "with 1xx alone."},
    {"head-body", Severity::kWarning, "The answer to HEAD has a body",
     "Takes the body for the beginning of the next answer.",
     "Answer HEAD with the headers alone."},
    {"mixed-answers", Severity::kFault,
     "An answer holds what another client sent", "Gets somebody else's answer.",
     "Keep each response in memory of its own; lock or avoid what requests "
     "share, static buffers first."},
    {"differing-answers", Severity::kFault,
     "The same request gets another answer now and then",
     "Gets a wrong answer now and then.",
     "Keep each response in memory of its own; lock or avoid what requests "
     "share, static buffers first."},
    {"waits-for-other", Severity::kWarning,
     "One request waits until another one's response is released",
     "Waits for the requests of all other clients.",
     "Hold no lock from one call to the next."},
    {"slow-answer", Severity::kWarning, "An answer takes long",
     "Waits that long; so does a stop or restart of the server.",
     "Answer from what is known, and bring it up to date on a thread of your "
     "own."},
    {"outlasts-stop", Severity::kWarning,
     "An answer takes longer than a stop of the server waits",
     "Waits. A stop or restart ends the function wherever it is after five "
     "seconds, with what it has locked.",
     "Give every wait a limit of a second or two."},
    {"memory-growth", Severity::kFault, "Memory grows with every request",
     "Nothing for days; then the host process runs out of memory.",
     "Free in WSIE_ReleaseResponse what WSIE_HandleServerRequest allocated."},
    {"handle-growth", Severity::kFault, "Handles grow with every request",
     "Nothing for days; then files and connections fail in the host process.",
     "Close what each request opens, on every way out of the function."},
    {"thread-growth", Severity::kFault, "Threads grow with every request",
     "Nothing for hours; then no connection gets a thread any more.",
     "Start threads once and hand work to them, or see that each one ends."},
    {"gui-object-growth", Severity::kFault,
     "GDI or USER objects grow with every request",
     "Nothing for hours; then the host process draws and prints no more.",
     "Delete each object, and release what GetDC gave with ReleaseDC."},
    {"unfetched-growth", Severity::kFault,
     "A response that is not fetched is never freed",
     "Nothing; the host process fills up when lengths or copies fail.",
     "Free in WSIE_ReleaseResponse, not in WSIE_GetResponse."},
    {"connection-growth", Severity::kFault, "Each connection leaves something",
     "Nothing for days; then the host process runs out of it.",
     "Free what is kept for a thread when the thread ends (DLL_THREAD_DETACH), "
     "or keep nothing for threads."},
    {"busy-thread", Severity::kWarning, "Uses the processor while nobody asks",
     "Is served more slowly, as all that the machine does.",
     "Have threads wait for an event in place of looking again and again."},
    {"host-state", Severity::kWarning,
     "Changes what belongs to the host process",
     "Nothing at first; other code in the process finds it changed.",
     "Put back what was there before the function returns, or do without."},
    {"floating-point-state", Severity::kFault,
     "Leaves the floating-point state changed",
     "Nothing; later calculations on this thread round otherwise or crash.",
     "Put the control words back before the function returns."},
    {"heap-damage", Severity::kFault, "The heap is damaged", kHostEnds,
     "Look for writes beside a block, and for blocks that are freed twice, in "
     "what this step does."},
    {"foreign-handle", Severity::kFault,
     "Closes a handle that belongs to the host process", kHostMemory,
     "Close what the extension opened, once, and forget the handle then: its "
     "number is soon another one's."},
    {"crash", Severity::kFault, "Crashes", kHostEnds,
     "Look the address up in a debugger or in the map file of your linker."},
    {"exception", Severity::kFault, "Lets a C++ exception out", kHostEnds,
     "Catch everything in each of the seven functions: the server catches "
     "nothing."},
    {"hang", Severity::kFault, "Does not return",
     "Waits until it gives up; a thread of the host is lost.",
     "Give every wait a limit. If this much time is meant, raise --timeout."},
    {"ended-process", Severity::kFault, "Ends the process", kHostEnds,
     "Do not call exit or abort; an exception that leaves a noexcept function "
     "ends the process, too."},
    {"ended-thread", Severity::kFault, "Ends the thread that called it",
     "Loses the connection; the server never frees what belongs to it.",
     "Return in place of calling ExitThread, _endthreadex or TerminateThread. "
     "Under Wine a stack that overflows ends the thread, too."},
};

static_assert(std::size(kKinds) == kFlawCount);

}  // namespace

const FlawKind& KindOf(Flaw flaw) { return kKinds[static_cast<size_t>(flaw)]; }

std::optional<Flaw> FlawWithCode(std::string_view code) {
  const auto* const found = std::ranges::find(
      kKinds, code, [](const FlawKind& kind) { return kind.code; });
  if (found == std::end(kKinds)) return std::nullopt;
  return static_cast<Flaw>(found - std::begin(kKinds));
}

}  // namespace kova::ctl::check

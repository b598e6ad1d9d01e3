// From a complete request to the bytes that go back.
#pragma once

#include <cstdint>

#include "base/byte_buffer.h"
#include "text/o_string.h"

namespace kova {

// Finds the printer that the request names in its form field "printer" or
// "share", hands the raw request to that printer's extension and copies the
// extension's answer into `response`. Wherever that chain breaks, `response`
// is the server's own, of status 400. Always returns 1.
//
//   request        the bytes as received; valid during the call.
//   lengthBytes    their number.
//   response       resized to exactly the length of the answer.
//   keepOpen       handed to the extension, neither read nor written here.
//   clientAddress  the peer's address, quoted in log lines and handed on.
//
// Runs on the connection's thread; any number of calls may run at once. Calls
// into the extension without a lock.
int32_t DispatchRequest(const char* request, uint32_t lengthBytes,
                        ByteBuffer& response, uint32_t* keepOpen,
                        const OString& clientAddress);

}  // namespace kova

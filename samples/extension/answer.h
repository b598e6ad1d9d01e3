// Decides what a request is answered with.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sample {

// The complete HTTP response to the bytes of a request. GET and HEAD get the
// printer's status page, POST gets back what it posted, anything else 405.
// `client` is the client's address as text, `answered` the number of this
// request. `keepOpen` is set to whether the connection stays open: the form
// field keep=1 asks for it.
std::string MakeAnswer(std::string_view request, const std::string& client,
                       uint64_t answered, uint32_t* keepOpen);

}  // namespace sample

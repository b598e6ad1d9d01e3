// Sending a response piece by piece.
#pragma once

#include <algorithm>
#include <cstdint>

namespace kova {

// The most bytes that one send call is given.
inline constexpr uint32_t kMostBytesPerSend = 200000;

// Sends bytes[sent..length) in pieces of at most kMostBytesPerSend, advancing
// `sent` by what each call accepted. `send(piece, pieceBytes, accepted)`
// returns whether the call succeeded and then sets `accepted`, which may be
// less than the piece. Stops at the first failed call and returns false;
// returns true once everything is sent, without a call if nothing is left.
template <typename Send>
bool SendRemaining(const char* bytes, uint32_t length, uint32_t& sent,
                   Send&& send) {
  while (sent < length) {
    const uint32_t piece = std::min(length - sent, kMostBytesPerSend);
    uint32_t accepted = 0;
    if (!send(bytes + sent, piece, accepted)) return false;
    sent += accepted;
  }
  return true;
}

}  // namespace kova

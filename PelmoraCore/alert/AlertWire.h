#pragma once

#include <cstddef>

// The limits of the alert socket's exchange: one request line out, one reply
// line back. They are its own and not the approval socket's.
namespace pelmora::AlertWire {

// The request line, without its line feed, must stay below this.
inline constexpr std::size_t maxLine = 8192;
// A reply that reaches this without a line feed is not an answer.
inline constexpr std::size_t maxReply = 4096;
inline constexpr std::size_t readChunk = 1024;
// No single wait for the reply is longer, so the deadline is checked again
// at least this often.
inline constexpr int maxWaitMilliseconds = 5000;

} // namespace pelmora::AlertWire

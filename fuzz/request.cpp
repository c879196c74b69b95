#include "agent/control/Request.h"

#include <stdexcept>

#include "fuzz/FuzzInput.h"

/// A line is a request that can be written and read again, or it is refused.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  try {
    Agent::Request const request = Agent::requestIn({reinterpret_cast<char const*>(bytes), size});
    std::string const line = Agent::requestLine(request);
    Fuzz::require(Agent::requestLine(Agent::requestIn(line)) == line,
                  "a request survives being written");
  } catch (std::invalid_argument const&) {
    // Refused: that is what the client is told.
  }
  return 0;
}

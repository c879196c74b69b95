#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "agent/replay/CaptureFile.h"
#include "fuzz/FuzzInput.h"

/// Any file is read to its end, or refused with one line.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  static int const file = memfd_create("capture", 0);
  Fuzz::require(ftruncate(file, 0) == 0, "the file can be emptied");
  Fuzz::require(pwrite(file, bytes, size, 0) == static_cast<ssize_t>(size), "it can be written");
  try {
    Agent::CaptureFile capture("/proc/self/fd/" + std::to_string(file));
    Horix::Time latest = Horix::Time::min();
    while (auto const packet = capture.next()) {
      Fuzz::require(packet->time >= latest, "time does not go back");
      latest = packet->time;
      unsigned sum = 0;
      for (std::uint8_t const byte : packet->frame) sum += byte;
      Fuzz::require(sum <= 255 * packet->frame.size(), "all bytes of a frame can be read");
    }
  } catch (Agent::CaptureError const& error) {
    Fuzz::require(std::string_view(error.what()).find('\n') == std::string_view::npos,
                  "an error is one line");
  }
  return 0;
}

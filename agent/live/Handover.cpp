#include "agent/live/Handover.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "agent/control/Descriptor.h"

namespace Agent {

namespace {

constexpr char const* variable = "IGMPSNOOPD_HANDOVER";

[[noreturn]] void fail(char const* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

/// Descriptors that go to the next program for as long as this lives, and then no longer do.
class PassedOn {
 public:
  explicit PassedOn(std::vector<int> descriptors) : descriptors_(std::move(descriptors)) { set(0); }
  PassedOn(PassedOn const&) = delete;
  PassedOn& operator=(PassedOn const&) = delete;
  ~PassedOn() { set(FD_CLOEXEC); }

 private:
  void set(int flags) const {
    for (int const descriptor : descriptors_) fcntl(descriptor, F_SETFD, flags);
  }

  std::vector<int> descriptors_;
};

void writeWhole(int file, std::string const& text) {
  for (std::size_t done = 0; done < text.size();) {
    ssize_t const count = write(file, text.data() + done, text.size() - done);
    if (count < 0) fail("write");
    done += static_cast<std::size_t>(count);
  }
}

std::string readWhole(int file) {
  struct stat status {};
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return {};
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  ssize_t const count = pread(file, text.data(), text.size(), 0);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return text;
}

/// Whether a descriptor is one; it does not go further then.
bool isReceived(int descriptor) {
  return fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
}

}  // namespace

// The first line has the descriptors that are listened on, the second one the devices; after them
// comes the state.
std::optional<Handover> Handover::received() {
  char const* const number = std::getenv(variable);
  if (!number) return std::nullopt;
  int descriptorOfFile = -1;
  std::istringstream(number) >> descriptorOfFile;
  Descriptor const file(descriptorOfFile);
  unsetenv(variable);
  std::string const text = readWhole(file.value());
  std::size_t const firstLine = text.find('\n');
  std::size_t const secondLine = text.find('\n', firstLine + 1);
  if (firstLine == std::string::npos || secondLine == std::string::npos) return std::nullopt;

  Handover handover;
  std::istringstream descriptors(text.substr(0, firstLine));
  for (int descriptor = -1; descriptors >> descriptor;)
    if (isReceived(descriptor)) handover.listening.push_back(descriptor);
  std::istringstream devices(text.substr(firstLine, secondLine - firstLine));
  for (Interface::PacketSocket::PassedOn device;
       devices >> device.descriptor >> device.interfaceIndex >> device.nextSlot >> device.manner;)
    if (isReceived(device.descriptor)) handover.devices.push_back(device);
  handover.state = text.substr(secondLine + 1);
  return handover;
}

void Handover::passOnTo(std::string const& path, std::vector<std::string> const& arguments) const {
  Descriptor const file(memfd_create("igmpsnoopd", MFD_CLOEXEC));
  if (file.value() < 0) fail("memfd_create");
  std::vector<int> passed = listening;
  std::ostringstream lines;
  for (int const descriptor : listening) lines << descriptor << ' ';
  lines << '\n';
  for (Interface::PacketSocket::PassedOn const& device : devices) {
    lines << device.descriptor << ' ' << device.interfaceIndex << ' ' << device.nextSlot << ' '
          << device.manner << ' ';
    passed.push_back(device.descriptor);
  }
  lines << '\n';
  writeWhole(file.value(), lines.str() + state);

  passed.push_back(file.value());
  PassedOn const untilItFails(std::move(passed));
  setenv(variable, std::to_string(file.value()).c_str(), 1);
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (std::string const& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  execv(path.c_str(), words.data());
  int const error = errno;
  unsetenv(variable);
  throw std::system_error(error, std::generic_category(), "exec " + path);
}

}  // namespace Agent

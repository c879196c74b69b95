#include "agent/state/StateFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "agent/control/Descriptor.h"
#include "agent/text/Wording.h"

namespace Agent {

using Horix::Time;

namespace {

// The seal: what the file is, its version, the checksum of all that follows, and the moment.
constexpr std::string_view magic = "IGMPSNST";
constexpr std::uint32_t version = 1;
constexpr std::size_t checkedFrom = magic.size() + 4 + 4;
constexpr std::size_t sealSize = checkedFrom + 16 + 8 + 8 + 8;

constexpr off_t largest = 256L << 20;  // of millions of memberships
constexpr mode_t fileMode = 0600;

/// CRC-32 (ISO/IEC 8802-3), which finds every damage of up to 32 bits in a row.
std::uint32_t checksum(std::string_view bytes) {
  static constexpr auto table = [] {
    std::array<std::uint32_t, 256> remainders{};
    for (std::uint32_t i = 0; i < 256; ++i) {
      std::uint32_t remainder = i;
      for (int bit = 0; bit < 8; ++bit)
        remainder = (remainder & 1) != 0 ? 0xedb88320 ^ remainder >> 1 : remainder >> 1;
      remainders[i] = remainder;
    }
    return remainders;
  }();
  std::uint32_t sum = ~0u;
  for (char const byte : bytes)
    sum = table[(sum ^ static_cast<std::uint8_t>(byte)) & 0xff] ^ sum >> 8;
  return ~sum;
}

void putNumber(std::string& out, std::uint64_t number, int bytes) {
  for (; bytes > 0; --bytes, number >>= 8) out += static_cast<char>(number);
}

/// The number in the first bytes, which it takes away.
std::uint64_t takeNumber(std::string_view& in, int bytes) {
  std::uint64_t number = 0;
  for (int i = 0; i < bytes; ++i)
    number |= std::uint64_t{static_cast<std::uint8_t>(in[static_cast<std::size_t>(i)])} << 8 * i;
  in.remove_prefix(static_cast<std::size_t>(bytes));
  return number;
}

void putTime(std::string& out, Time time) {
  putNumber(out, static_cast<std::uint64_t>(time.count()), 8);
}

/// Of this century, so that times can be added and subtracted.
Time takeTime(std::string_view& in) {
  constexpr std::uint64_t most = 1ull << 62;
  std::uint64_t const count = takeNumber(in, 8);
  if (count > most) throw UnusableState("it is damaged");
  return Time(static_cast<Time::rep>(count));
}

Time clockTime(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// The kernel's, as text with hyphens; zeros where it has none.
std::array<std::uint8_t, 16> bootId() {
  std::array<std::uint8_t, 16> id{};
  Descriptor const file(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
  std::array<char, 36> text{};
  if (read(file.value(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) return id;
  std::size_t digit = 0;
  for (char const c : text) {
    if (c == '-' || digit == 2 * id.size()) continue;
    auto const value = static_cast<std::uint8_t>(c <= '9' ? c - '0' : c - 'a' + 10);
    id[digit / 2] = static_cast<std::uint8_t>(id[digit / 2] << 4 | (value & 0x0f));
    ++digit;
  }
  return id;
}

std::string errorText(int error) {
  return std::generic_category().message(error);
}

[[noreturn]] void failToRead(std::string const& path, int error) {
  throw UnusableState(message("cannot read ", path, ": ", errorText(error)));
}

[[noreturn]] void failToWrite(std::string const& path, int error) {
  throw std::runtime_error(message("cannot write ", path, ": ", errorText(error)));
}

void writeWhole(int descriptor, std::string const& path, std::string_view content) {
  while (!content.empty()) {
    ssize_t const written = write(descriptor, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) failToWrite(path, errno);
    content.remove_prefix(static_cast<std::size_t>(written));
  }
}

void writeAnew(std::string const& path, std::string_view content) {
  Descriptor const file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, fileMode));
  if (file.value() < 0) failToWrite(path, errno);
  writeWhole(file.value(), path, content);
  if (fsync(file.value()) != 0) failToWrite(path, errno);
}

}  // namespace

Moment Moment::now(Time monotonic) {
  return {bootId(), monotonic, clockTime(CLOCK_BOOTTIME), clockTime(CLOCK_REALTIME)};
}

Time Moment::since(Moment const& earlier) const {
  return boot == earlier.boot ? sinceBoot - earlier.sinceBoot : wall - earlier.wall;
}

std::string seal(Moment const& written, std::string_view entries) {
  std::string checked(written.boot.begin(), written.boot.end());
  for (Time const time : {written.monotonic, written.sinceBoot, written.wall})
    putTime(checked, time);
  checked += entries;
  std::string file(magic);
  putNumber(file, version, 4);
  putNumber(file, checksum(checked), 4);
  return file += checked;
}

SealedState unseal(std::string_view file) {
  if (!file.starts_with(magic)) throw UnusableState("it is no state of igmpsnoopd");
  if (file.size() < sealSize) throw UnusableState("it is cut off");
  file.remove_prefix(magic.size());
  if (auto const found = takeNumber(file, 4); found != version)
    throw UnusableState(message("it is of version ", found, ", not ", version));
  if (takeNumber(file, 4) != checksum(file)) throw UnusableState("it is damaged");
  Moment written;
  for (std::uint8_t& byte : written.boot) byte = static_cast<std::uint8_t>(takeNumber(file, 1));
  for (Time* const time : {&written.monotonic, &written.sinceBoot, &written.wall})
    *time = takeTime(file);
  return {written, file};
}

std::optional<std::string> readStateFile(std::string const& path) {
  Descriptor const file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (file.value() < 0) {
    if (errno == ENOENT) return std::nullopt;
    failToRead(path, errno);
  }
  struct stat status {};
  if (fstat(file.value(), &status) != 0) failToRead(path, errno);
  if (!S_ISREG(status.st_mode)) throw UnusableState("it is no file");
  if (status.st_size > largest) throw UnusableState("it is too large");
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t filled = 0;
  while (filled < content.size()) {
    ssize_t const count = read(file.value(), &content[filled], content.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) failToRead(path, errno);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  content.resize(filled);
  return content;
}

void replaceStateFile(std::string const& path, std::string_view content) {
  std::string const newPath = path + ".new";
  try {
    writeAnew(newPath, content);
    if (rename(newPath.c_str(), path.c_str()) != 0) failToWrite(path, errno);
  } catch (...) {
    unlink(newPath.c_str());
    throw;
  }
  std::string const parent = std::filesystem::path(path).parent_path();
  Descriptor const directory(
      open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // Where the directory cannot be written out, the former file may be there after a power cut.
  if (directory.value() >= 0) fsync(directory.value());
}

}  // namespace Agent

#include "agent/replay/CaptureFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include <pcap.h>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

constexpr char const* howToCapture = "; capture on the port itself: tcpdump -i PORT -w FILE";

template <typename... Parts>
[[noreturn]] void fail(Parts const&... parts) {
  throw CaptureError(message(parts...));
}

[[noreturn]] void failToRead(std::string const& fileName, int error) {
  fail("cannot read capture ", fileName, ": ", std::generic_category().message(error),
       "; give the name of a readable file");
}

/// Reading the first byte tells what opening does not: directories open like files.
File openFile(std::string const& fileName) {
  File file(std::fopen(fileName.c_str(), "rb"), std::fclose);
  if (!file) failToRead(fileName, errno);
  int const first = std::getc(file.get());
  if (std::ferror(file.get())) failToRead(fileName, errno);
  if (first == EOF)
    fail("capture ", fileName, " is empty; give a file that tcpdump -w has written");
  std::ungetc(first, file.get());
  return file;
}

/// ", 1234 bytes into the file", or nothing where the input has no places, as a pipe.
std::string place(long offset) {
  return offset < 0 ? "" : message(", ", offset, " bytes into the file");
}

/// Nothing for a time so far from 1970 that differences of two could overflow. The fraction, of
/// nanoseconds, may exceed a second in a careless file.
std::optional<Horix::Time> timeOf(timeval const& stamp) {
  using std::chrono::seconds;
  constexpr auto furthest = std::chrono::floor<seconds>(Horix::Time::max() / 3);
  seconds const whole(stamp.tv_sec);
  if (whole < -furthest || whole > furthest) return std::nullopt;
  return whole + Horix::Time(stamp.tv_usec);
}

}  // namespace

void CaptureFile::Closer::operator()(pcap* capture) const noexcept {
  pcap_close(capture);
}

CaptureFile::CaptureFile(std::string fileName) : fileName_(std::move(fileName)) {
  File file = openFile(fileName_);
  std::array<char, PCAP_ERRBUF_SIZE> problem{};
  capture_.reset(pcap_fopen_offline_with_tstamp_precision(file.get(), PCAP_TSTAMP_PRECISION_NANO,
                                                          problem.data()));
  if (!capture_) {
    fail(fileName_, " is no capture (", problem.data(),
         "); give a file that tcpdump -w has written, in pcap or pcapng format");
  }
  static_cast<void>(file.release());  // now the capture's
  requireEthernet();
}

void CaptureFile::requireEthernet() const {
  int const linkType = pcap_datalink(capture_.get());
  if (linkType == DLT_EN10MB) return;
  char const* const name = pcap_datalink_val_to_name(linkType);
  char const* const description = pcap_datalink_val_to_description(linkType);
  fail("capture ", fileName_, " has link type ", name ? name : std::to_string(linkType),
       description ? message(" (", description, ")") : "", ", not Ethernet", howToCapture);
}

std::optional<CapturedPacket> CaptureFile::next() {
  long const offset = std::ftell(pcap_file(capture_.get()));
  pcap_pkthdr* header = nullptr;
  unsigned char const* bytes = nullptr;
  int const result = pcap_next_ex(capture_.get(), &header, &bytes);
  if (result == PCAP_ERROR_BREAK) return std::nullopt;
  if (result != 1) {
    fail("capture ", fileName_, " is damaged after its packet ", packetsRead_, place(offset), ": ",
         pcap_geterr(capture_.get()), "; keep the packets before: tcpdump -r ", fileName_,
         " -w FILE");
  }
  ++packetsRead_;
  auto const time = timeOf(header->ts);
  if (!time) {
    fail("capture ", fileName_, " has an impossible time in its packet ", packetsRead_,
         place(offset), "; correct it: editcap -t SECONDS ", fileName_, " FILE");
  }
  latest_ = std::max(latest_, *time);
  return CapturedPacket{latest_, Igmp::Bytes(bytes, header->caplen)};
}

}  // namespace Agent

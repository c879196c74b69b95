#include "agent/replay/PcapReader.h"

#include <array>

#include <pcap.h>

#include "agent/replay/CaptureError.h"

namespace Agent {

std::optional<Horix::Time> captureTime(std::chrono::seconds whole, Horix::Time fraction) {
  constexpr auto furthest = std::chrono::floor<std::chrono::seconds>(Horix::Time::max() / 3);
  if (whole < -furthest || whole > furthest) return std::nullopt;
  return whole + fraction;
}

void PcapReader::Closer::operator()(pcap* capture) const noexcept {
  pcap_close(capture);
}

PcapReader::PcapReader(std::FILE* file) {
  std::array<char, PCAP_ERRBUF_SIZE> problem{};
  capture_.reset(
      pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, problem.data()));
  if (!capture_) throw CaptureDamage(problem.data());
  interfaces_.push_back({"", 0, pcap_datalink(capture_.get())});
}

std::optional<RawPacket> PcapReader::next() {
  offset_ = std::ftell(pcap_file(capture_.get()));
  pcap_pkthdr* header = nullptr;
  unsigned char const* bytes = nullptr;
  int const result = pcap_next_ex(capture_.get(), &header, &bytes);
  if (result == PCAP_ERROR_BREAK) return std::nullopt;
  if (result != 1) throw CaptureDamage(pcap_geterr(capture_.get()));
  auto const time = captureTime(std::chrono::seconds(header->ts.tv_sec),
                                std::chrono::nanoseconds(header->ts.tv_usec));
  return RawPacket{0, time, false, {bytes, header->caplen}};
}

}  // namespace Agent

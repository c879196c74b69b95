#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <pcap.h>

#include "platform/horix/Clock.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace Agent {

/// When captures begin.
inline constexpr std::chrono::seconds someTime{1'700'000'000};

/// A directory that goes with its files.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "igmpsnoopXXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary directory");
    path_ = name;
  }
  TemporaryDirectory(TemporaryDirectory const&) = delete;
  TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

  std::string file(std::string const& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

/// Writes a pcap file with nanoseconds.
class CaptureBuilder {
 public:
  /// @param captured as many of the frame's bytes as the capture holds.
  CaptureBuilder& at(Horix::Time time, IgmpTest::ByteVector frame,
                     std::size_t captured = SIZE_MAX) {
    packets_.push_back({time, std::move(frame), captured});
    return *this;
  }
  CaptureBuilder& at(Horix::Time time, IgmpTest::FrameBuilder const& frame) {
    return at(time, frame.bytes());
  }
  CaptureBuilder& linkType(int linkType) {
    linkType_ = linkType;
    return *this;
  }

  /// Returns the file's name.
  std::string write(std::string const& fileName) const {
    constexpr int snapLength = 65535;
    std::unique_ptr<pcap_t, void (*)(pcap_t*)> const handle(
        pcap_open_dead_with_tstamp_precision(linkType_, snapLength, PCAP_TSTAMP_PRECISION_NANO),
        pcap_close);
    std::unique_ptr<pcap_dumper_t, void (*)(pcap_dumper_t*)> const dumper(
        pcap_dump_open(handle.get(), fileName.c_str()), pcap_dump_close);
    if (!dumper) throw std::runtime_error(pcap_geterr(handle.get()));
    for (Packet const& packet : packets_) {
      auto const seconds = std::chrono::floor<std::chrono::seconds>(packet.time);
      pcap_pkthdr header{};
      header.ts.tv_sec = seconds.count();
      header.ts.tv_usec = (packet.time - seconds).count();
      header.len = static_cast<bpf_u_int32>(packet.frame.size());
      header.caplen = static_cast<bpf_u_int32>(std::min(packet.frame.size(), packet.captured));
      pcap_dump(reinterpret_cast<unsigned char*>(dumper.get()), &header, packet.frame.data());
    }
    return fileName;
  }

 private:
  struct Packet {
    Horix::Time time;
    IgmpTest::ByteVector frame;
    std::size_t captured;
  };

  int linkType_ = DLT_EN10MB;
  std::vector<Packet> packets_;
};

}  // namespace Agent

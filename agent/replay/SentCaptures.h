#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/types/IntfId.h"
#include "platform/horix/Clock.h"
#include "platform/wirex/Ethernet.h"

struct pcap;
struct pcap_dumper;

namespace Agent {

/// What was sent, in one capture per port with nanoseconds, PORT.pcap in a directory. A capture has
/// its name when it is whole; until then, and for good if something fails before, it is
/// PORT.pcap.part. Errors are CaptureErrors.
class SentCaptures {
 public:
  /// Makes the directory if it is missing, and removes the ports' captures of former replays.
  /// @param inputs files that are being read; it is an error if one of them would be replaced.
  SentCaptures(std::string const& directory, std::vector<Wirex::IntfId> const& ports,
               std::vector<std::string> const& inputs = {});
  ~SentCaptures();

  /// @param time since the epoch, or before it.
  void write(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes frame);

  /// Everything has been sent: gives the captures their names.
  void finish();

 private:
  struct Closer {
    void operator()(pcap* handle) const noexcept;
    void operator()(pcap_dumper* dumper) const noexcept;
  };
  using Dumper = std::unique_ptr<pcap_dumper, Closer>;

  std::string wholeName(Wirex::IntfId const& port) const;
  std::string partialName(Wirex::IntfId const& port) const;
  Dumper open(Wirex::IntfId const& port) const;

  std::filesystem::path directory_;
  std::unique_ptr<pcap, Closer> format_;
  std::map<Wirex::IntfId, Dumper> captures_;
};

}  // namespace Agent

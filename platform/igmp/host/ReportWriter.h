#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "framework/types/IgmpV3GroupRecordType.h"
#include "platform/igmp/IgmpHost.h"
#include "platform/igmp/SentRecords.h"
#include "platform/igmp/wire/FrameWriter.h"
#include "platform/igmp/wire/Message.h"

namespace Igmp {

/// Writes what a host has to say at one time into as few frames as the MTU allows, and counts it.
/// They are sent when all is written, because sending may change what is being said.
class ReportWriter {
 public:
  using RecordType = Wirex::IgmpV3GroupRecordType;

  /// Where it is noted what is written.
  struct Notes {
    HostCounters& counters;
    SentRecords& sent;
    std::uint32_t host;  ///< the host's number there
    Horix::Time now;
  };

  /// What `notes` refers to outlives the writer.
  ReportWriter(HostSettings const& settings, Notes const& notes);

  /// A group record of an IGMPv3 report; its sources are ascending.
  void record(RecordType type, Wirex::IpAddr group, std::span<Wirex::IpAddr const> sources);

  /// A report of an older version.
  void report(IgmpVersion version, Wirex::IpAddr group);

  /// An IGMPv2 leave.
  void leave(Wirex::IpAddr group);

  /// Whether there are as many frames as are to be sent at one time: more would fill the device's
  /// queue, which drops what it cannot hold. What is written all the same is in the frames, too.
  bool full() const { return frames_.size() >= framesAtOnce; }

  /// The frames, in the order in which they were written.
  std::vector<Wirex::Pkt::Ptr> takeFrames();

 private:
  static constexpr std::size_t framesAtOnce = 64;

  std::size_t room() const { return capacity_ - message_.size(); }
  void append(RecordType type, Wirex::IpAddr group, std::span<Wirex::IpAddr const> sources);
  void closeReport();
  void note(Wirex::IpAddr group, MessageType message, RecordType record = {},
            std::size_t sources = 0);
  void groupMessage(MessageType type, Wirex::IpAddr group, Wirex::IpAddr destination);

  Sender sender_;
  std::size_t capacity_;  // of an IGMP message
  Notes notes_;
  std::uint16_t records_ = 0;
  std::vector<std::uint8_t> message_;  // the IGMPv3 report that is being written; empty if none is
  std::vector<Wirex::Pkt::Ptr> frames_;
};

}  // namespace Igmp

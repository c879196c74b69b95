#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "framework/kel/Export.h"
#include "framework/kel/Ptr.h"
#include "framework/types/IgmpV3GroupRecordType.h"
#include "framework/types/IpAddr.h"
#include "platform/horix/Clock.h"
#include "platform/igmp/wire/Message.h"

namespace Igmp {

/// What hosts last sent of each group, so that an operator can ask for it afterwards. It takes
/// memory once a host has sent something, and no more after that: when it is full, what was sent
/// longest ago is forgotten.
class KEL_EXPORT SentRecords : public Kel::PtrInterface {
 public:
  /// What was sent of a group.
  struct Sent {
    Horix::Time time{};                     ///< by the clock of the timer wheel
    MessageType message{};                  ///< a report of one of the versions, or a leave
    Wirex::IgmpV3GroupRecordType record{};  ///< of an IGMPv3 report
    std::uint16_t sources = 0;              ///< of that record
  };

  /// The bytes it takes once a host has sent something.
  static std::size_t mostBytes() noexcept;

  /// The number of another host.
  std::uint32_t newHost() noexcept { return ++hosts_; }

  /// Remembers what a host has just sent of a group.
  void note(std::uint32_t host, Wirex::IpAddr group, Sent const& sent);

  /// What a host last sent of a group, if that is remembered.
  std::optional<Sent> find(std::uint32_t host, Wirex::IpAddr group) const;

 private:
  static constexpr std::size_t sets = 4096;

  struct Entry {
    std::uint32_t host = 0;
    Wirex::IpAddr group;
    Sent sent;
  };
  /// The entries in which a group of a host may stand.
  using Set = std::array<Entry, 4>;

  static std::size_t setOf(std::uint32_t host, Wirex::IpAddr group) noexcept;

  std::uint32_t hosts_ = 0;
  std::vector<Set> sets_;
};

}  // namespace Igmp

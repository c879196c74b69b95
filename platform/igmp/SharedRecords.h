#pragma once

#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

#include "framework/kel/Notification.h"
#include "framework/kel/Table.h"
#include "framework/types/IpAddr.h"
#include "platform/igmp/RecordPages.h"

namespace Igmp {

/// What the hosts of a VLAN have in common: numbers for the groups, by which each keeps the records
/// of its own, and for each group a record that all hosts have but those that part from it. So
/// where nobody looks, a change for all hosts is one. A number is given to another group once
/// nobody uses it.
class SharedRecords : public Kel::PtrInterface {
 public:
  using Record = RecordPages::Record;

  class Renewal;

  static constexpr std::uint32_t none = UINT32_MAX;  ///< no number

  // ---- The groups' numbers

  /// All numbers in use are below.
  std::uint32_t end() const noexcept { return static_cast<std::uint32_t>(numbered_.size()); }

  /// The group's number, or `none`.
  std::uint32_t find(Wirex::IpAddr group) const noexcept {
    std::uint32_t const at = numbers_.position(group);
    return at == numbers_.absent ? none : numbers_.mappedAt(at);
  }
  /// The same, found without hashing where the group still has its former number.
  std::uint32_t find(Wirex::IpAddr group, std::uint32_t formerNumber) const noexcept {
    bool const still = formerNumber < end() && numbered_[formerNumber].uses > 0 &&
                       numbered_[formerNumber].group == group;
    return still ? formerNumber : find(group);
  }

  /// The group of a number that is in use.
  Wirex::IpAddr group(std::uint32_t number) const noexcept { return numbered_[number].group; }

  /// Uses the group's number once more, or one that is free.
  /// @param number the group's, or `none` if it has none
  std::uint32_t use(Wirex::IpAddr group, std::uint32_t number) {
    if (number == none) number = give(group);
    ++numbered_[number].uses;
    return number;
  }

  /// Takes one use back.
  void disuse(std::uint32_t number) {
    if (--numbered_[number].uses > 0) return;
    numbers_.takeAt(numbers_.position(numbered_[number].group));
    free_.push_back(number);
  }

  // ---- The hosts' numbers

  /// Adds a host that parts from all records. Returns its number.
  /// @param own the records of its own, of which there are none yet
  std::uint32_t hostIs(RecordPages& own) {
    std::uint32_t host = 0;
    while (host < hosts_.size() && hosts_[host].own) ++host;
    if (host == hosts_.size()) hosts_.emplace_back();
    hosts_[host] = {&own, commons_};
    while (words_ * wordBits <= host) addWord();
    present_[host / wordBits] |= bit(host);
    ++hostVersion_;
    for (std::uint32_t number = 0; number < end(); ++number) word(number, host) |= bit(host);
    return host;
  }
  void hostDel(std::uint32_t host) {
    hosts_[host] = {};
    present_[host / wordBits] &= ~bit(host);
    ++hostVersion_;
  }
  /// Another one once hosts have come or gone.
  std::uint32_t hostVersion() const noexcept { return hostVersion_; }

  // ---- The common records

  /// The one that a host has too; null if it parts from it, or if there is none.
  inline IgmpV3GroupRecord* common(std::uint32_t number, std::uint32_t host) const noexcept;

  /// How many of them a host has.
  inline std::uint32_t commons(std::uint32_t host) const noexcept;

  /// A host has a record of its own from now on, or none.
  void part(std::uint32_t number, std::uint32_t host) {
    if (parts(number, host)) return;
    word(number, host) |= bit(host);
    if (numbered_[number].common) ++hosts_[host].parted;
  }

  /// Whether a group's common record is this one.
  bool isCommon(std::uint32_t number, IgmpV3GroupRecord const& record) const noexcept {
    return number < end() && numbered_[number].common.get() == &record;
  }
  /// Has a host that has no record of its own have the common one.
  inline void join(std::uint32_t number, std::uint32_t host);

 private:
  static constexpr std::uint32_t wordBits = 64;

  struct Numbered {
    Wirex::IpAddr group;
    std::uint32_t uses = 0;
    Record common;
  };
  struct Host {
    RecordPages* own = nullptr;
    std::uint32_t parted = 0;  // common records that it has not
  };

  static constexpr std::uint64_t bit(std::uint32_t host) noexcept {
    return std::uint64_t{1} << host % wordBits;
  }
  std::uint64_t& word(std::uint32_t number, std::uint32_t host) noexcept {
    return parting_[std::size_t{number} * words_ + host / wordBits];
  }
  std::uint64_t word(std::uint32_t number, std::uint32_t host) const noexcept {
    return parting_[std::size_t{number} * words_ + host / wordBits];
  }
  bool parts(std::uint32_t number, std::uint32_t host) const noexcept {
    return (word(number, host) & bit(host)) != 0;
  }

  inline Renewal* renewalOf(std::uint32_t number) const noexcept;

  std::uint32_t give(Wirex::IpAddr group) {
    std::uint32_t number = end();
    if (free_.empty()) {
      numbered_.emplace_back();
      parting_.resize(parting_.size() + words_);
    } else {
      number = free_.back();
      free_.pop_back();
      for (std::uint32_t first = 0; first < words_ * wordBits; first += wordBits)
        word(number, first) = 0;
    }
    numbered_[number].group = group;
    numbers_.add(group, number);
    return number;
  }

  inline void addWord();

  template <class Visit>
  static void forEachHost(std::uint64_t bits, std::uint32_t first, Visit visit) {
    for (; bits != 0; bits &= bits - 1)
      visit(first + static_cast<std::uint32_t>(std::countr_zero(bits)));
  }
  template <class Visit>
  void forEachParting(std::uint32_t number, Visit visit) {
    for (std::uint32_t first = 0; first < words_ * wordBits; first += wordBits)
      forEachHost(word(number, first) & present_[first / wordBits], first, visit);
  }

  /// Returns the former one.
  Record commonIs(std::uint32_t number, Record common) {
    Record& present = numbered_[number].common;
    if (present == common) return common;
    ++Kel::mutations;
    if (common && !present) {
      ++commons_;
      use(numbered_[number].group, number);
      forEachParting(number, [this](std::uint32_t host) { ++hosts_[host].parted; });
    } else if (!common) {
      --commons_;
      disuse(number);
      forEachParting(number, [this](std::uint32_t host) { --hosts_[host].parted; });
    }
    return std::exchange(present, std::move(common));
  }

  Kel::Table<Wirex::IpAddr, std::uint32_t> numbers_;
  std::vector<Numbered> numbered_;
  std::vector<std::uint32_t> free_;
  std::vector<Host> hosts_;
  std::uint32_t hostVersion_ = 0;
  std::vector<std::uint64_t> present_{0};  // a bit for each host, in whole words
  std::vector<std::uint64_t> parting_;     // of each number a bit for each host, in as many
  std::uint32_t words_ = 1;
  std::uint32_t commons_ = 0;
  Renewal* renewal_ = nullptr;               // the innermost that is under way
  std::vector<std::uint64_t> spareReached_;  // memory for the next one
};

/// Gives hosts another common record of a group, one after the other. Handlers that run meanwhile
/// find the former one in hosts that it has not reached, and these keep that if it never does.
class SharedRecords::Renewal {
 public:
  /// Within a renewal of the same group it reaches nobody.
  /// @param common may be null
  /// @param number the group's as far as it is known; afterwards what it is
  Renewal(Kel::Ptr<SharedRecords> const& records, Wirex::IpAddr group, Record const& common,
          std::uint32_t& number) {
    number = records->find(group, number);
    if (records->renewalOf(number) || (number == none && !common)) return;
    number = number_ = records->use(group, number);
    records_ = records;
    former_ = records->commonIs(number, common);
    ofPresence_ = !former_ != !common;
    reached_.swap(records->spareReached_);
    reached_.assign(records->words_, 0);
    outer_ = std::exchange(records->renewal_, this);
  }
  Renewal(Renewal const&) = delete;
  Renewal& operator=(Renewal const&) = delete;
  ~Renewal() {
    if (!records_) return;
    records_->renewal_ = outer_;
    bool isCommon = false;
    for (std::uint32_t first = 0; first < records_->words_ * wordBits; first += wordBits) {
      forEachHost(owed(first), first, [this](std::uint32_t host) { keepFormer(host); });
      isCommon |= (records_->present_[first / wordBits] & ~records_->word(number_, first)) != 0;
    }
    if (!isCommon) records_->commonIs(number_, nullptr);
    records_->disuse(number_);
    reached_.swap(records_->spareReached_);
  }

  /// Whether a host comes to have a record by it, or has none any more.
  bool isOfPresence() const noexcept { return ofPresence_; }

  /// Whether the host has the new record from now on. One that parts from it has not.
  bool reaches(std::uint32_t host) {
    if (!records_ || records_->parts(number_, host)) return false;
    reached_[host / wordBits] |= bit(host);
    return true;
  }

 private:
  friend class SharedRecords;

  /// Bits of the hosts that still have the former record.
  std::uint64_t owed(std::uint32_t first) const noexcept {
    std::size_t const at = first / wordBits;
    return records_->present_[at] & ~records_->word(number_, first) & ~reached_[at];
  }
  bool isOwedTo(std::uint32_t host) const noexcept { return owed(host) & bit(host); }
  void keepFormer(std::uint32_t host) {
    records_->part(number_, host);
    if (!former_) return;
    records_->use(former_->group(), number_);
    records_->hosts_[host].own->add(number_, former_);
  }

  Kel::Ptr<SharedRecords> records_;
  std::uint32_t number_ = none;
  Record former_;
  bool ofPresence_ = true;
  std::vector<std::uint64_t> reached_;  // a bit for each host
  Renewal* outer_ = nullptr;
};

inline SharedRecords::Renewal* SharedRecords::renewalOf(std::uint32_t number) const noexcept {
  Renewal* renewal = renewal_;
  while (renewal && renewal->number_ != number) renewal = renewal->outer_;
  return renewal;
}

inline void SharedRecords::addWord() {
  std::vector<std::uint64_t> wider;
  wider.reserve(std::size_t{end()} * (words_ + 1));
  for (std::uint32_t number = 0; number < end(); ++number) {
    for (std::uint32_t i = 0; i < words_; ++i) wider.push_back(word(number, i * wordBits));
    wider.push_back(0);
  }
  parting_ = std::move(wider);
  present_.push_back(0);
  ++words_;
  for (Renewal* renewal = renewal_; renewal; renewal = renewal->outer_)
    renewal->reached_.push_back(0);
}

inline IgmpV3GroupRecord* SharedRecords::common(std::uint32_t number,
                                                std::uint32_t host) const noexcept {
  if (number >= end() || parts(number, host)) return nullptr;
  Renewal const* const renewal = renewalOf(number);
  return (renewal && renewal->isOwedTo(host) ? renewal->former_ : numbered_[number].common).get();
}

inline std::uint32_t SharedRecords::commons(std::uint32_t host) const noexcept {
  std::uint32_t commons = commons_ - hosts_[host].parted;
  for (Renewal const* renewal = renewal_; renewal; renewal = renewal->outer_)
    if (renewal->isOwedTo(host))
      commons =
          commons + (renewal->former_ ? 1u : 0u) - (numbered_[renewal->number_].common ? 1u : 0u);
  return commons;
}

inline void SharedRecords::join(std::uint32_t number, std::uint32_t host) {
  if (parts(number, host)) {
    word(number, host) &= ~bit(host);
    --hosts_[host].parted;
  }
  if (Renewal* const renewal = renewalOf(number)) renewal->reaches(host);
}

}  // namespace Igmp

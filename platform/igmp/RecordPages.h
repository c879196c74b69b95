#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "platform/igmp/IgmpV3GroupRecord.h"

namespace Igmp {

/// Records by number, in pages, so that a host that has few of the numbers in use takes little
/// memory, and none is copied when there are more of them.
class RecordPages {
 public:
  using Record = Kel::Ptr<IgmpV3GroupRecord>;

  std::uint32_t size() const noexcept { return size_; }

  /// All numbers in use are below.
  std::uint32_t end() const noexcept {
    return static_cast<std::uint32_t>(pages_.size()) * Page::records;
  }

  /// The first number in use that is not below, or `end()`.
  std::uint32_t next(std::uint32_t number) const noexcept {
    for (; number < end(); number = (number / Page::records + 1) * Page::records)
      if (Page const* const page = pages_[number / Page::records].get())
        if (std::uint32_t const rest = page->used >> number % Page::records)
          return number + static_cast<std::uint32_t>(std::countr_zero(rest));
    return end();
  }

  /// Where a number's record is, until it is removed; null if there is none.
  Record* find(std::uint32_t number) const noexcept {
    if (number >= end()) return nullptr;
    Page* const page = pages_[number / Page::records].get();
    return page && (page->used & bit(number)) ? &page->record[number % Page::records] : nullptr;
  }

  /// Adds a record for a number that has none.
  void add(std::uint32_t number, Record record) {
    if (number >= end()) pages_.resize(number / Page::records + 1);
    std::unique_ptr<Page>& page = pages_[number / Page::records];
    if (!page) page = std::make_unique<Page>();
    page->used |= bit(number);
    page->record[number % Page::records] = std::move(record);
    ++size_;
  }

  /// Removes the record of a number that has one, and returns it.
  Record take(std::uint32_t number) noexcept {
    std::unique_ptr<Page>& page = pages_[number / Page::records];
    Record taken = std::move(page->record[number % Page::records]);
    page->used &= ~bit(number);
    if (page->used == 0) page.reset();
    if (--size_ == 0) pages_.clear();
    return taken;
  }

 private:
  struct Page {
    static constexpr std::uint32_t records = 32;

    std::uint32_t used = 0;  // a bit for each record
    std::array<Record, records> record;
  };

  static constexpr std::uint32_t bit(std::uint32_t number) noexcept {
    return 1u << number % Page::records;
  }

  std::vector<std::unique_ptr<Page>> pages_;
  std::uint32_t size_ = 0;
};

}  // namespace Igmp

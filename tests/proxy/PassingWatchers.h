#pragma once

#include <cstdint>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "framework/kel/Trace.h"
#include "platform/igmp/IgmpHost.h"
#include "tests/TraceCapture.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {

/// Lets the adapter trace its decisions, and drops the messages.
class TracesOfDecisions {
 public:
  TracesOfDecisions() : handle_(Kel::traceHandle(TraceCapture::adapter)) {
    Kel::traceSinkIs([this](Kel::TraceMessage const&) { ++messages_; });
    switchTo(true);
  }
  TracesOfDecisions(TracesOfDecisions const&) = delete;
  TracesOfDecisions& operator=(TracesOfDecisions const&) = delete;
  ~TracesOfDecisions() {
    switchTo(false);
    Kel::traceSinkIs({});
  }

  std::size_t messages() const { return messages_; }

  void switchTo(bool on) {
    handle_.enabledIs(on);
    handle_.levelEnabledIs(4, on);
  }

 private:
  Kel::TraceHandle& handle_;
  std::size_t messages_ = 0;
};

/// Watches a record and its list, and keeps a copy in step by what it hears.
class RecordMirror {
 public:
  explicit RecordMirror(Kel::Ptr<Igmp::IgmpV3GroupRecord> const& record)
      : record_(Kel::make<OfRecord>(record)), list_(Kel::make<OfList>(record->source())) {}

  bool isInStep() const {
    std::set<Wirex::IpAddr> sources;
    for (auto const& [source, value] : list_->notifier()->sourceIp()) sources.insert(source);
    return record_->mode == record_->notifier()->filterMode() && list_->sources == sources;
  }

 private:
  struct OfRecord : Igmp::IgmpV3GroupRecord::NotifieeConst {
    explicit OfRecord(Kel::Ptr<Igmp::IgmpV3GroupRecord const> record) : mode(record->filterMode()) {
      NotifieeConst::watch(std::move(record));
    }
    void onFilterMode() override { mode = notifier()->filterMode(); }
    Igmp::IgmpV3GroupRecord::RecordType mode;
  };
  struct OfList : Igmp::IgmpV3HostGroupSourceList::NotifieeConst {
    explicit OfList(Kel::Ptr<Igmp::IgmpV3HostGroupSourceList const> list) {
      for (auto const& [source, value] : list->sourceIp()) sources.insert(source);
      NotifieeConst::watch(std::move(list));
    }
    void onSourceIp(Wirex::IpAddr source) override {
      if (notifier()->sourceIp().contains(source))
        sources.insert(source);
      else
        sources.erase(source);
    }
    std::set<Wirex::IpAddr> sources;
  };

  Kel::Ptr<OfRecord> record_;
  Kel::Ptr<OfList> list_;
};

/// Watches some records for a while; and now and then somebody begins and ceases to trace.
class PassingWatchers {
 public:
  explicit PassingWatchers(std::uint64_t seed) : random_(seed) {}

  void moveOn(Igmp::IgmpHostDir const& hosts) {
    if (random_() % 16 == 0) traces_.switchTo(random_() % 4 == 0);
    for (RecordMirror const& mirror : mirrors_) outOfStep_ += mirror.isInStep() ? 0u : 1u;
    if (random_() % 32 == 0) leave();
    if (mirrors_.size() > 8) return;
    for (auto const& [name, host] : hosts.igmpHost()) {
      if (random_() % 32 != 0 || host->v3group().empty()) continue;
      auto const& records = host->v3group();
      auto const record = records.get(records.keys()[random_() % records.size()]);
      if (!record->source()) continue;
      mirrors_.emplace_back(record);
      ++watched_;
    }
  }

  void leave() { mirrors_.clear(); }

  std::size_t outOfStep() const { return outOfStep_; }
  std::size_t watched() const { return watched_; }
  std::size_t messages() const { return traces_.messages(); }

 private:
  std::mt19937_64 random_;
  TracesOfDecisions traces_;
  std::vector<RecordMirror> mirrors_;
  std::size_t outOfStep_ = 0;
  std::size_t watched_ = 0;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Testing

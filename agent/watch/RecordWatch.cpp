#include "agent/watch/RecordWatch.h"

#include <algorithm>
#include <utility>

#include "agent/text/NaturalOrder.h"
#include "agent/watch/ChunkedWalk.h"
#include "agent/watch/FollowOrNull.h"

namespace Agent {

using Bridging::IgmpSnooping::Proxy::PortKey;
using Wirex::IpAddr;

/// Follows the source list of a record, which may be none.
class RecordWatch::SourceList final : public Igmp::IgmpV3HostGroupSourceList::NotifieeConst {
 public:
  explicit SourceList(Record& record) : record_(record) {}

  void onSourceIp(IpAddr source) override;

 private:
  Record& record_;
};

/// Follows a host's record of a group, which may be none, and knows its last settled state.
class RecordWatch::Record final : public Igmp::IgmpV3GroupRecord::NotifieeConst {
 public:
  Record(Kel::Ptr<Igmp::IgmpV3GroupRecord const> const& record, IpAddr group, Host& host);

  IpAddr group() const { return group_; }
  Host& host() const { return host_; }

  void notifierIs(Kel::Ptr<Igmp::IgmpV3GroupRecord const> record) override;
  void onFilterMode() override;
  void onSource() override;

  void touch();
  std::optional<RecordChange> takeChange();

 private:
  void followSourceList();

  IpAddr group_;
  Host& host_;
  bool touched_ = false;
  std::optional<SourceFilter> settled_;
  Kel::Ptr<SourceList> sourceList_ = Kel::make<SourceList>(*this);
};

/// Follows a host, which may be none, and watches its records.
class RecordWatch::Host final : public Igmp::IgmpHost::NotifieeConst {
 public:
  Host(Kel::Ptr<Igmp::IgmpHost const> const& host, PortKey key, RecordWatch& watch);

  PortKey const& key() const { return key_; }
  RecordWatch& recordWatch() const { return watch_; }

  void notifierIs(Kel::Ptr<Igmp::IgmpHost const> host) override;
  void onV3group(IpAddr group) override;

  void forget(IpAddr group) { records_.del(group); }

  void followAll();
  bool watchSome(std::size_t& records);
  bool unwatchSome(std::size_t& records);

 private:
  void follow(IpAddr group);

  PortKey key_;
  RecordWatch& watch_;
  std::uint32_t taken_ = 0;  // records with lower numbers are watched
  Kel::Reactors<IpAddr, Record> records_;
};

/// Follows the directory and watches its hosts.
class RecordWatch::Directory final : public Igmp::IgmpHostDir::NotifieeConst {
 public:
  Directory(Kel::Ptr<Igmp::IgmpHostDir const> const& hosts, RecordWatch& watch);

  void onIgmpHost(Kel::Name const& name) override;

  /// Gives up a host that has not come back.
  void forget(Kel::Name const& name);

  bool watchSome(std::size_t records);
  bool unwatchSome(std::size_t records);

 private:
  void follow(Kel::Name const& name);

  RecordWatch& watch_;
  Kel::Reactors<Kel::Name, Host> hosts_;
};

// ---- RecordWatch

RecordWatch::RecordWatch(Kel::Ptr<Igmp::IgmpHostDir> const& hosts, Selection of)
    : of_(std::move(of)), directory_(Kel::make<Directory>(hosts, *this)) {}

RecordWatch::~RecordWatch() = default;

bool RecordWatch::watchSome(std::size_t records) {
  bool const more = directory_->watchSome(records);
  takeChanges();
  return more;
}

bool RecordWatch::unwatchSome(std::size_t records) {
  touched_.clear();
  return directory_->unwatchSome(records);
}

std::vector<RecordChange> RecordWatch::takeChanges() {
  std::vector<RecordChange> changes;
  for (Record* const record : std::exchange(touched_, {})) {
    if (auto change = record->takeChange()) changes.push_back(std::move(*change));
    if (!record->notifier()) record->host().forget(record->group());
  }
  for (Kel::Name const& name : std::exchange(gone_, {})) directory_->forget(name);

  std::sort(changes.begin(), changes.end(), [](RecordChange const& a, RecordChange const& b) {
    if (a.host == b.host) return a.group < b.group;
    if (a.host.vlanId() != b.host.vlanId()) return a.host.vlanId() < b.host.vlanId();
    return precedesNaturally(a.host.intfId().stringValue().view(),
                             b.host.intfId().stringValue().view());
  });
  return changes;
}

// ---- SourceList and Record

void RecordWatch::SourceList::onSourceIp(IpAddr /*source*/) {
  if (notificationActive()) record_.touch();
}

RecordWatch::Record::Record(Kel::Ptr<Igmp::IgmpV3GroupRecord const> const& record, IpAddr group,
                            Host& host)
    : group_(group), host_(host) {
  watch(record);
  followSourceList();
  touch();
}

void RecordWatch::Record::notifierIs(Kel::Ptr<Igmp::IgmpV3GroupRecord const> record) {
  NotifieeConst::notifierIs(std::move(record));
  followSourceList();
  touch();
}

void RecordWatch::Record::onFilterMode() {
  if (notificationActive()) touch();
}

void RecordWatch::Record::onSource() {
  if (!notificationActive()) return;
  followSourceList();
  touch();
}

void RecordWatch::Record::followSourceList() {
  sourceList_->notifierIs(notifier() ? notifier()->source() : nullptr);
}

void RecordWatch::Record::touch() {
  if (!std::exchange(touched_, true)) host_.recordWatch().touched_.push_back(this);
}

std::optional<RecordChange> RecordWatch::Record::takeChange() {
  touched_ = false;
  std::optional<SourceFilter> present;
  if (notifier()) present = filterOf(*notifier());
  if (present == settled_) return std::nullopt;
  return RecordChange{host_.key(), group_, std::exchange(settled_, present), present};
}

// ---- Host

RecordWatch::Host::Host(Kel::Ptr<Igmp::IgmpHost const> const& host, PortKey key, RecordWatch& watch)
    : key_(std::move(key)), watch_(watch) {
  NotifieeConst::watch(host);
}

void RecordWatch::Host::notifierIs(Kel::Ptr<Igmp::IgmpHost const> host) {
  NotifieeConst::notifierIs(std::move(host));
  for (IpAddr const group : records_.keys()) follow(group);
  followAll();
}

void RecordWatch::Host::onV3group(IpAddr group) {
  if (notificationActive()) follow(group);
}

void RecordWatch::Host::followAll() {
  if (!notifier()) return;
  for (IpAddr const group : notifier()->v3group().keys()) follow(group);
}

bool RecordWatch::Host::watchSome(std::size_t& records) {
  for (; notifier() && records > 0; --records)
    if (!notifier()->v3group().visitNext(taken_, [this](IpAddr group) { follow(group); }))
      return false;
  return notifier() != nullptr;
}

bool RecordWatch::Host::unwatchSome(std::size_t& records) {
  NotifieeConst::notifierIs(nullptr);
  return delSome(records_, records);
}

void RecordWatch::Host::follow(IpAddr group) {
  if (!watch_.of_.has(group)) return;
  Kel::Ptr<Igmp::IgmpV3GroupRecord const> const record =
      notifier() ? notifier()->v3group(group) : nullptr;
  followOrNull(records_, group, record, [&] { return Kel::make<Record>(record, group, *this); });
}

// ---- Directory

RecordWatch::Directory::Directory(Kel::Ptr<Igmp::IgmpHostDir const> const& hosts,
                                  RecordWatch& watch)
    : watch_(watch) {
  NotifieeConst::watch(hosts);
  for (Kel::Name const& name : hosts->igmpHost().keys()) follow(name);
}

void RecordWatch::Directory::onIgmpHost(Kel::Name const& name) {
  if (!notificationActive()) return;
  follow(name);
  if (auto const followed = hosts_.get(name)) followed->followAll();
}

bool RecordWatch::Directory::watchSome(std::size_t records) {
  bool more = false;
  for (auto const& [name, host] : hosts_) more |= host->watchSome(records);
  return more;
}

bool RecordWatch::Directory::unwatchSome(std::size_t records) {
  bool more = false;
  for (auto const& [name, host] : hosts_) more |= host->unwatchSome(records);
  return more;
}

void RecordWatch::Directory::follow(Kel::Name const& name) {
  PortKey key;
  key.handleInit(name.stringValue());
  if (!watch_.of_.has(key.vlanId()) || !watch_.of_.has(key.intfId())) return;
  Kel::Ptr<Igmp::IgmpHost const> const host = notifier()->igmpHost(name);
  followOrNull(hosts_, name, host, [&] { return Kel::make<Host>(host, std::move(key), watch_); });
  if (!host && hosts_.find(name)) watch_.gone_.push_back(name);
}

void RecordWatch::Directory::forget(Kel::Name const& name) {
  Host const* const host = hosts_.find(name);
  if (host && !host->notifier()) hosts_.del(name);
}

}  // namespace Agent

#include "platform/igmp/host/GroupReporting.h"

#include <utility>

#include "platform/igmp/host/UnaskedReports.h"

namespace Igmp {

using Wirex::IpAddr;

/// Watches the source list of the record, if there is one.
class GroupReporting::KelSourceList final
    : public Kel::ReactorFor<GroupReporting, IgmpV3HostGroupSourceList::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onSourceIp(IpAddr /*source*/) override {
    if (notificationActive()) owner().touch();
  }
};

GroupReporting::GroupReporting(Kel::Ptr<IgmpV3GroupRecord const> const& record, IpAddr group,
                               UnaskedReports& reports)
    : reports_(reports),
      sourceList_(Kel::make<KelSourceList>(Kel::Ptr<IgmpV3HostGroupSourceList const>(), this)),
      group_(group) {
  watch(record);
  followSourceList();
  touch();
}

GroupReporting::~GroupReporting() {
  sourceList_->kelDoZombieReactors(true);
}

void GroupReporting::tellAsNew() {
  asNew_ = true;
  touch();
}

void GroupReporting::tellLater() {
  asNew_ = true;
  touched_ = false;
  // An answer may tell it before, so that from now on a change is one of what was told.
  if (reported_.empty()) reported_ = receptionState(notifier().get());
}

std::optional<HostMemory::Told> GroupReporting::told(IgmpVersion mode) const {
  if (asNew_ || (reported_.empty() && !pending())) return std::nullopt;
  HostMemory::Told told{group_, reported_.excludes, reported_.sources};
  if (mode == IgmpVersion::v3)
    change_.remember(told);
  else
    told.transmissions = repetitions_;
  return told;
}

void GroupReporting::goOnFrom(HostMemory::Told const& told, IgmpVersion mode) {
  reported_ = {told.excludes, told.sources};
  if (mode == IgmpVersion::v3)
    change_.rememberedIs(told);
  else
    repetitions_ = told.transmissions;
  touched_ = notifier() != nullptr;
  if (!touched_ || pending()) reports_.scheduleRepetition(*this, mode);
}

void GroupReporting::cancelPending() {
  if (!asNew_) cancel();
  change_.clear();
  repetitions_ = 0;
  due_ = false;
}

void GroupReporting::suspend() {
  NotifieeConst::notifierIs(nullptr);
  followSourceList();
  cancel();
  repetitions_ = 0;
  marked_ = touched_ = asNew_ = due_ = false;
}

bool GroupReporting::suppressRepetition(IgmpVersion mode) {
  if (mode == IgmpVersion::v3 || repetitions_ == 0) return false;
  cancelPending();
  return true;
}

void GroupReporting::notifierIs(Kel::Ptr<IgmpV3GroupRecord const> record) {
  NotifieeConst::notifierIs(std::move(record));
  followSourceList();
  touch();
}

void GroupReporting::onFilterMode() {
  if (notificationActive()) touch();
}

void GroupReporting::onSource() {
  if (!notificationActive()) return;
  followSourceList();
  touch();
}

void GroupReporting::onHeardBack() {
  if (notificationActive()) touch();
}

void GroupReporting::followSourceList() {
  sourceList_->notifierIs(notifier() ? notifier()->source() : nullptr);
}

void GroupReporting::touch() {
  touched_ = true;
  mark();
}

void GroupReporting::onExpiry() {
  due_ = true;
  touched_ = true;
  mark();
}

void GroupReporting::mark() {
  if (!std::exchange(marked_, true)) reports_.mark(*this);
}

void GroupReporting::write(ReportWriter& writer, IgmpVersion mode,
                           std::uint8_t robustnessVariable) {
  marked_ = false;
  if (std::exchange(touched_, false)) compare(writer, mode, robustnessVariable);
  if (!std::exchange(due_, false) || !pending()) return;
  if (mode == IgmpVersion::v3) {
    change_.write(group_, reported_, writer);
  } else {
    writer.report(mode, group_);
    otherMemberReported_ = false;
    --repetitions_;
  }
  if (pending()) reports_.scheduleRepetition(*this, mode);
}

void GroupReporting::compare(ReportWriter& writer, IgmpVersion mode, std::uint8_t transmissions) {
  ReceptionState state = receptionState(notifier().get());
  if (!asNew_ && state == reported_) return;
  changeTo(std::move(state), writer, mode, transmissions);
}

void GroupReporting::changeTo(ReceptionState state, ReportWriter& writer, IgmpVersion mode,
                              std::uint8_t transmissions) {
  bool const asNew = std::exchange(asNew_, false);
  ReceptionState const before = std::exchange(reported_, std::move(state));
  if (mode == IgmpVersion::v3) {
    due_ = true;
    if (asNew)
      change_.addAsNew(before, reported_, transmissions);
    else
      change_.add(before, reported_, transmissions);
    return;
  }
  // Older versions know members and no sources, so who includes some sources is a member too.
  bool const joins = !reported_.empty() && (asNew || before.empty());
  bool const leaves = reported_.empty() && !before.empty();
  if (joins) {
    repetitions_ = transmissions;
    due_ = true;
  }
  if (leaves) {
    cancelPending();
    // Where another member was the last to report, the group keeps a member (RFC 2236 section 3).
    // IGMPv1 has no leaves.
    if (mode == IgmpVersion::v2 && !otherMemberReported_) writer.leave(group_);
    otherMemberReported_ = false;
  }
}

void GroupReporting::writeLeave(ReportWriter& writer, IgmpVersion mode) {
  asNew_ = touched_ = false;
  changeTo(ReceptionState(), writer, mode, 1);
  write(writer, mode, 1);
}

}  // namespace Igmp

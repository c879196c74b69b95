#include "agent/forwarding/EntryRemoval.h"

#include <linux/rtnetlink.h>

namespace Agent {

/// What goes while the kernel walks through its entries makes it pass over others: so it walks
/// until nothing more is found.
bool EntryRemoval::advance() {
  if (!found_.empty()) {
    remove();
    return true;
  }
  if (!listing_) {
    listing_ = std::make_unique<RequestSocket>(NETLINK_ROUTE);
    NetlinkBatch request;
    addEntriesRequest(request);
    listing_->begin(request);
    deleted_ = false;
  }
  bool const more = listing_->next([this](nlmsghdr const& header) { readEntries(header, found_); });
  std::erase_if(found_, [this](FoundEntry const& found) { return !isOurs(found); });
  remove();
  if (!more) listing_.reset();
  return more || deleted_;
}

bool EntryRemoval::isOurs(FoundEntry const& found) const {
  if (!found.permanent || found.derived) return false;
  return found.ours || (kind_ == EntryKind::singleSources && listed_.contains(found.place.group));
}

void EntryRemoval::remove() {
  NetlinkBatch batch;
  while (!found_.empty() && !batch.isFull()) {
    addDeletion(batch, found_.back().place, found_.back().entry.source);
    found_.pop_back();
  }
  std::size_t const requests = batch.count();
  // One that went with another is complained of.
  if (socket_.send(batch).size() < requests) deleted_ = true;
}

}  // namespace Agent

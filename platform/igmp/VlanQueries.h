#pragma once

#include "framework/kel/Notification.h"
#include "framework/types/IntfId.h"
#include "platform/igmp/host/QuerierVersions.h"
#include "platform/igmp/wire/Message.h"

namespace Igmp {

/// The queries of one VLAN, wherever they are heard and whoever sends them. A host on a router port
/// follows them, so that what a router knows does not depend on whether it is the one that asks
/// (RFC 9776 section 6.6.1; RFC 4541 section 2.1.1). Whoever snoops writes it.
class KEL_EXPORT VlanQueries : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<VlanQueries const> {
   public:
    /// Delivered at once only: the query is gone afterwards.
    virtual void onQuery() {}
    virtual void onOldestVersion() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  /// A query, and where it comes from.
  struct Heard {
    Wirex::IntfId intfId;  ///< empty if the switch itself sent it
    Wirex::IpAddr source;
    Query query;  ///< lists in it last as long as onQuery()
  };

  explicit VlanQueries(Kel::Ptr<Horix::TimerWheel const> timerWheel);

  /// A query that was heard on a port.
  void heard(Heard const& query);

  /// A query that the switch itself has sent. Its version does not count as another querier's.
  void sent(Query const& query);

  /// A querier of an older version that was heard before, by this or a former snooper.
  void olderQuerierIs(QuerierVersions::Present const& querier);

  /// The query that onQuery() tells of; null at any other time.
  Heard const* query() const noexcept { return query_; }

  /// The versions of all queriers that were heard.
  QuerierVersions const& versions() const noexcept { return versions_; }

 private:
  void tell(Heard const& query);

  QuerierVersions versions_;
  Heard const* query_ = nullptr;
};

}  // namespace Igmp

#include "agent/report/History.h"

#include <tuple>

#include "agent/text/NaturalOrder.h"

namespace Agent {

bool precedes(HistoryRow const& a, HistoryRow const& b) {
  auto const place = [](HistoryRow const& row) {
    bool const isOfGroup = row.kind >= HistoryRow::Kind::membership;
    auto const rank = static_cast<int>(row.kind);
    return std::tuple(row.vlan, isOfGroup, row.group, rank);
  };
  if (place(a) != place(b)) return place(a) < place(b);
  if (a.interface != b.interface) return precedesNaturally(a.interface, b.interface);
  return a.reporter < b.reporter;
}

}  // namespace Agent

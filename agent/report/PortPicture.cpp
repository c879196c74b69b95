#include "agent/report/PortPicture.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <set>

#include "agent/report/Markup.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr std::size_t mostPorts = 128;
constexpr int rowHeight = 20;
constexpr int headHeight = 28;
constexpr int listensX = 280;
constexpr int reportsX = 760;
constexpr int barWidth = 340;
constexpr int pictureWidth = 1200;

struct PortCounts {
  std::size_t listens = 0;
  std::size_t reports = 0;
  bool isRouterPort = false;
};

std::map<std::string, PortCounts> countsIn(ReportData const& data, ReportedVlan const& vlan) {
  std::map<std::string, PortCounts> counts;
  Wirex::IpAddr group;
  std::set<std::string> listening;  // to the group
  for (ReportedMembership const& each : data.memberships) {
    if (each.vlan != vlan.learnedIn()) continue;
    if (each.group != group) listening.clear();
    group = each.group;
    if (listening.insert(each.interface).second) ++counts[each.interface].listens;
  }
  for (HostRecords const& host : data.hosts)
    if (host.vlan == vlan.id) counts[host.interface].reports = host.groups.size();
  for (ReportedRouterPort const& port : data.routerPorts)
    if (port.vlan == vlan.id) counts[port.interface].isRouterPort = true;
  return counts;
}

class Bars {
 public:
  Bars(std::ostream& out, std::size_t most)
      : out_(out), scale_(barWidth / static_cast<double>(std::max<std::size_t>(most, 1))) {}

  void draw(int x, int y, std::string const& kind, std::size_t count) {
    double const width = static_cast<double>(count) * scale_;
    out_ << "<rect class=\"" << kind << "\" x=\"" << x << "\" y=\"" << y + 3 << "\" width=\""
         << width << "\" height=\"" << rowHeight - 6 << "\"/><text class=\"row\" x=\""
         << x + width + 6 << "\" y=\"" << y + 14 << "\">" << grouped(count) << "</text>";
  }

 private:
  std::ostream& out_;
  double scale_;
};

}  // namespace

void drawPorts(std::ostream& out, std::string const& id, ReportData const& data,
               ReportedVlan const& vlan, PortColours const& colours) {
  auto counts = countsIn(data, vlan);
  std::size_t const shown = std::min(vlan.ports.size(), mostPorts);
  std::size_t most = 0;
  for (auto const& [name, port] : counts) most = std::max({most, port.listens, port.reports});
  int const height = headHeight + static_cast<int>(shown + 1) * rowHeight;
  out << "<svg class=\"ports\" id=\"" << id << "\" viewBox=\"0 0 " << pictureWidth << ' ' << height
      << "\" role=\"img\" aria-labelledby=\"" << id << "-t " << id << "-d\"><title id=\"" << id
      << "-t\">Ports of VLAN " << vlan.id << "</title><desc id=\"" << id << "-d\">For each of "
      << vlan.ports.size()
      << " ports a bar for the groups to which somebody listens there, and a bar for those that "
         "its host reports. The tables have the same numbers.</desc>\n"
      << "<text class=\"group\" x=\"4\" y=\"18\">Port</text><text class=\"group\" x=\"" << listensX
      << "\" y=\"18\">listens to so many groups</text><text class=\"group\" x=\"" << reportsX
      << "\" y=\"18\">its host reports so many</text>\n";
  Bars bars(out, most);
  int y = headHeight;
  for (std::size_t i = 0; i < shown; ++i, y += rowHeight) {
    std::string const& name = vlan.ports[i];
    PortCounts const& port = counts[name];
    out << "<text class=\"row\" x=\"14\" y=\"" << y + 14 << "\">" << escaped(shortened(name, 18))
        << (port.isRouterPort ? " \u2192 router" : "") << "</text>";
    bars.draw(listensX, y, "bar " + colours.of(name), port.listens);
    bars.draw(reportsX, y, "record " + colours.of(name), port.reports);
    out << '\n';
  }
  if (shown < vlan.ports.size())
    out << "<text class=\"faint\" x=\"14\" y=\"" << y + 14 << "\">and " << vlan.ports.size() - shown
        << " more: see the tables</text>";
  out << "</svg>\n";
}

}  // namespace Agent

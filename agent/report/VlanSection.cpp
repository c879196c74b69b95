#include "agent/report/VlanSection.h"

#include <algorithm>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "agent/report/Feeding.h"
#include "agent/report/FeedingPicture.h"
#include "agent/report/Markup.h"
#include "agent/report/PortPicture.h"
#include "agent/report/TimePicture.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

// So much is shown at once; what is more can be opened, and what is more still is in the tables.
constexpr std::size_t flowsAtOnce = 8;
constexpr std::size_t mostFlows = 60;
constexpr std::size_t rowsAtOnce = 60;
constexpr std::size_t mostRows = 400;
constexpr std::size_t manyPorts = 16;

class VlanSection {
 public:
  VlanSection(std::ostream& out, ReportData const& data, ReportedVlan const& vlan,
              PortColours const& colours)
      : out_(out),
        data_(data),
        vlan_(vlan),
        id_(message("vlan-", vlan.id)),
        colours_(colours),
        flows_(flowsIn(data, vlan)) {}

  void print() {
    out_ << "<section aria-labelledby=\"" << id_ << "\">\n<h2 id=\"" << id_ << "\">VLAN "
         << vlan_.id << "</h2>\n<p>" << escaped(summary()) << "</p>\n";
    printFlows();
    printHistory();
    out_ << "</section>\n";
  }

 private:
  std::string summary() const {
    std::size_t groups = 0;
    for (Flow const& flow : flows_) groups += flow.groups.size();
    std::size_t memberships = 0;
    for (ReportedMembership const& each : data_.memberships)
      if (each.vlan == vlan_.learnedIn()) ++memberships;
    std::string text = message(counted(vlan_.ports.size(), "port"), ", ", grouped(groups),
                               groups == 1 ? " group, " : " groups, ", grouped(memberships),
                               memberships == 1 ? " membership. " : " memberships. ", routersText(),
                               ' ', querierText());
    if (vlan_.primary)
      text += message(" It is a secondary VLAN of VLAN ", *vlan_.primary,
                      ", whose listeners feed its records.");
    if (!vlan_.isProxied()) text += " It is not proxied, so nothing is reported.";
    return text;
  }

  std::string routersText() const {
    std::vector<std::string> names;
    for (ReportedRouterPort const& port : data_.routerPorts)
      if (port.vlan == vlan_.id) names.push_back(port.interface);
    if (names.empty()) return "No router port is known.";
    return message(names.size() == 1 ? "Router port: " : "Router ports: ", portsText(names, 60),
                   '.');
  }

  std::string querierText() const {
    if (!vlan_.otherQuerier.empty()) return message("Querier: ", vlan_.otherQuerier, '.');
    return vlan_.sendsQueries ? "This switch is the querier." : "No querier is heard.";
  }

  // ---- Who feeds which record

  void printFlows() {
    if (vlan_.ports.size() > manyPorts) {
      figure(message("VLAN ", vlan_.id, ": ports"),
             "Ports at a glance: groups to which somebody listens there, and groups that the "
             "switch\u2019s host on the port reports for all others.");
      drawPorts(out_, id_ + "-ports", data_, vlan_, colours_);
      out_ << "</div></figure>\n";
    }
    if (flows_.empty()) {
      out_ << "<p>Nobody listens to anything.</p>\n";
      return;
    }
    out_ << "<h3>Who feeds which record</h3>\n";
    std::size_t const first = std::min(flows_.size(), flowsAtOnce);
    figure(flowsTitle(),
           "On the left who listens on which port; on the right what the switch\u2019s host on "
           "each port reports to whoever is beyond it. A line leads from listeners to each record "
           "that they feed. It is crossed out where a port would hear its own listeners: split "
           "horizon.");
    draw(id_ + "-flows", 0, first);
    out_ << "</div></figure>\n";
    printMoreFlows(first);
  }

  void printMoreFlows(std::size_t first) {
    std::size_t const end = std::min(flows_.size(), mostFlows);
    if (first == end) return;
    out_ << "<details><summary>" << grouped(end - first)
         << (end < flows_.size() ? message(" of ", grouped(flows_.size() - first)) : "")
         << " more pictures of groups</summary>\n";
    beginScrolled(out_, flowsTitle() + ", more groups");
    draw(id_ + "-more", first, end);
    out_ << "</div></details>\n";
  }

  void draw(std::string const& id, std::size_t begin, std::size_t end) {
    std::vector<Flow> const some(flows_.begin() + static_cast<std::ptrdiff_t>(begin),
                                 flows_.begin() + static_cast<std::ptrdiff_t>(end));
    drawFlows(out_, id, flowsTitle(), some, colours_);
  }

  std::string flowsTitle() const { return message("VLAN ", vlan_.id, ": who feeds which record"); }

  // ---- Time line

  void printHistory() {
    auto const ofVlan = [&](HistoryRow const& row) { return row.vlan == vlan_.id; };
    auto const begin = std::find_if(data_.history.rows.begin(), data_.history.rows.end(), ofVlan);
    auto const end = std::find_if_not(begin, data_.history.rows.end(), ofVlan);
    std::span<HistoryRow const> const rows(begin, end);
    if (rows.empty()) return;
    bool const ahead = data_.history.isAhead;
    std::string const title = ahead ? message("VLAN ", vlan_.id, ": until when each holds")
                                    : message("VLAN ", vlan_.id, ": what held from when to when");
    out_ << "<h3>" << (ahead ? "The time to come" : "The course of time") << "</h3>\n";
    if (rows.size() > rowsAtOnce) {
      figure(message("VLAN ", vlan_.id, ": how many there were"), "How many there were.");
      drawCounts(out_, id_ + "-counts", title, data_.history, rows);
      out_ << "</div></figure>\n";
    }
    figure(title,
           ahead ? "Until when each membership and router port holds if no more is heard."
                 : "Full bars: who listened, and where routers were. Hollow bars: what the host on "
                   "a port had to report.");
    std::size_t const first = std::min(rows.size(), rowsAtOnce);
    drawTimeLine(out_, id_ + "-time", title, data_.history, rows.first(first), colours_);
    out_ << "</div></figure>\n";
    std::size_t const last = std::min(rows.size(), mostRows);
    if (first == last) return;
    out_ << "<details><summary>" << grouped(last - first)
         << (last < rows.size() ? message(" of ", grouped(rows.size() - first)) : "")
         << " more rows</summary>\n";
    beginScrolled(out_, title + ", more rows");
    drawTimeLine(out_, id_ + "-later", title, data_.history, rows.subspan(first, last - first),
                 colours_);
    out_ << "</div></details>\n";
  }

  /// Opens a figure, in which a picture that is too wide can be moved.
  void figure(std::string const& title, char const* caption) {
    out_ << "<figure><figcaption>" << caption << "</figcaption>";
    beginScrolled(out_, title);
  }

  std::ostream& out_;
  ReportData const& data_;
  ReportedVlan const& vlan_;
  std::string id_;
  PortColours const& colours_;
  std::vector<Flow> flows_;
};

}  // namespace

void printVlan(std::ostream& out, ReportData const& data, ReportedVlan const& vlan,
               PortColours const& colours) {
  VlanSection(out, data, vlan, colours).print();
}

}  // namespace Agent

#include "agent/report/FeedingPicture.h"

#include <algorithm>
#include <ostream>

#include "agent/report/FilterWords.h"
#include "agent/report/Markup.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

// All lengths are pixels at full size. Letters are taken for as wide as in the widest fonts.
constexpr double letterWidth = 7.4;
constexpr int leftWidth = 214;
constexpr int gapWidth = 110;
constexpr int rightWidth = 290;
constexpr int laneWidth = leftWidth + gapWidth + rightWidth;
constexpr int laneGap = 24;
constexpr int padding = 12;
constexpr int titleHeight = 34;
constexpr int chipHeight = 42;
constexpr int chipStep = 50;
constexpr std::size_t mostChips = 8;

constexpr std::size_t lettersIn(int width) {
  return static_cast<std::size_t>((width - 24) / letterWidth);
}

struct Place {
  int x;
  int y;
};

std::string groupsText(Flow const& flow) {
  if (flow.groups.size() == 1) return message(flow.groups.front());
  bool const isRange =
      flow.groups.back().value() - flow.groups.front().value() + 1 == flow.groups.size();
  if (isRange)
    return message(flow.groups.front(), " \u2013 ", flow.groups.back(), " (",
                   grouped(flow.groups.size()), " groups)");
  return message(flow.groups.front(), " and ", grouped(flow.groups.size() - 1),
                 flow.groups.size() == 2 ? " group" : " groups", " alike");
}

std::string reportersText(ListeningPorts const& ports) {
  std::size_t const count = ports.reporters.size();
  if (ports.names.size() > 1) return {};
  if (count == 1) return message(ports.reporters.front());
  return message(ports.reporters.front(), " +", count - 1);
}

std::string feedersText(ReportingPorts const& reporting, Flow const& flow, std::size_t most) {
  std::vector<std::string> names;
  for (std::size_t const place : reporting.fedBy) {
    auto const& each = flow.listening[place].names;
    if (place == reporting.own && reporting.names.size() > 1)
      return message("from the other ", flow.listening.size() > 1 ? "listening ports" : "ports");
    for (std::string const& name : each)
      if (place != reporting.own || name != reporting.names.front()) names.push_back(name);
  }
  std::string const text = "from " + enumerated(names, "and");
  return text.size() <= most ? text : message("from ", counted(names.size(), "port"));
}

int heightOf(Flow const& flow) {
  std::size_t const most = std::max({flow.listening.size(), flow.reporting.size(), std::size_t{1}});
  auto const rows = static_cast<int>(std::min(most, mostChips + 1));
  return titleHeight + rows * chipStep + padding;
}

/// Draws one flow with its upper left corner in a place.
class Lane {
 public:
  Lane(std::ostream& out, Flow const& flow, PortColours const& colours, Place place)
      : out_(out), flow_(flow), colours_(colours), place_(place) {}

  void draw(int height) {
    out_ << "<g><rect class=\"lane\" x=\"" << place_.x << "\" y=\"" << place_.y << "\" width=\""
         << laneWidth + 2 * padding << "\" height=\"" << height << "\" rx=\"8\"/>";
    text(place_.x + padding, place_.y + 23, "group", groupsText(flow_));
    for (std::size_t to = 0; to < std::min(flow_.reporting.size(), mostChips); ++to) drawLines(to);
    drawListening();
    drawReporting();
    out_ << "</g>\n";
  }

 private:
  int leftX() const { return place_.x + padding; }
  int rightX() const { return leftX() + leftWidth + gapWidth; }
  int chipY(std::size_t index) const {
    return place_.y + titleHeight + static_cast<int>(index) * chipStep;
  }

  void text(int x, int y, std::string const& kind, std::string const& what) {
    out_ << "<text x=\"" << x << "\" y=\"" << y << "\" class=\"" << kind << "\">" << escaped(what)
         << "</text>";
  }

  void chip(int x, int y, int width, std::string const& kind) {
    out_ << "<rect class=\"chip " << kind << "\" x=\"" << x << "\" y=\"" << y << "\" width=\""
         << width << "\" height=\"" << chipHeight << "\" rx=\"5\"/>";
  }

  void drawLines(std::size_t to) {
    ReportingPorts const& reporting = flow_.reporting[to];
    for (std::size_t const from : reporting.fedBy)
      if (from < mostChips)
        drawLine(from, to, reporting.record ? colourOf(flow_.listening[from]) : "none");
    bool const ownFeeds = std::find(reporting.fedBy.begin(), reporting.fedBy.end(),
                                    reporting.own.value_or(mostChips)) != reporting.fedBy.end();
    if (reporting.own && *reporting.own < mostChips && !ownFeeds) drawCross(*reporting.own, to);
  }

  void drawLine(std::size_t from, std::size_t to, std::string const& colour) {
    int const x = leftX() + leftWidth;
    int const end = rightX() - 7;
    int const middle = (x + end) / 2;
    int const y = chipY(from) + chipHeight / 2;
    int const endY = chipY(to) + chipHeight / 2;
    out_ << "<path class=\"line " << colour << "\" d=\"M" << x << ' ' << y << 'C' << middle << ' '
         << y << ' ' << middle << ' ' << endY << ' ' << end << ' ' << endY
         << "\"/><path class=\"head " << colour << "\" d=\"M" << end + 6 << ' ' << endY << 'l'
         << "-8 -4v8z\"/>";
  }

  /// Towards the port's own host, where it stops.
  void drawCross(std::size_t from, std::size_t to) {
    int const x = leftX() + leftWidth;
    int const end = rightX() - 16;
    int const y = chipY(from) + chipHeight / 2;
    int const endY = chipY(to) + chipHeight - 10;
    out_ << "<path class=\"own\" d=\"M" << x << ' ' << y << 'C' << (x + end) / 2 << ' ' << y << ' '
         << (x + end) / 2 << ' ' << endY << ' ' << end << ' ' << endY
         << "\"/><path class=\"cross\" d=\"M" << end - 1 << ' ' << endY - 5 << "l10 10m0 -10l-10 10"
         << "\"/>";
  }

  std::string colourOf(ListeningPorts const& ports) const {
    return colours_.of(ports.names.front());
  }

  void drawListening() {
    std::size_t drawn = 0;
    for (ListeningPorts const& ports : flow_.listening) {
      if (drawn == mostChips) break;
      int const y = chipY(drawn++);
      chip(leftX(), y, leftWidth, "");
      out_ << "<rect class=\"edge " << colourOf(ports) << "\" x=\"" << leftX() + leftWidth - 6
           << "\" y=\"" << y << "\" width=\"6\" height=\"" << chipHeight << "\"/>";
      std::string const reporters = reportersText(ports);
      std::size_t const room = lettersIn(leftWidth);
      std::size_t const taken = reporters.empty() ? 0 : reporters.size() + 2;
      out_ << "<text x=\"" << leftX() + 10 << "\" y=\"" << y + 17 << "\"><tspan class=\"port\">"
           << escaped(portsText(ports.names, room - taken)) << "</tspan>";
      if (!reporters.empty()) out_ << "<tspan class=\"faint\" dx=\"7\">" << reporters << "</tspan>";
      out_ << "</text>";
      text(leftX() + 10, y + 34, "want", wordsFor(ports.wants, room));
    }
    if (drawn < flow_.listening.size()) drawMore(leftX(), drawn, flow_.listening);
    if (flow_.listening.empty()) text(leftX(), chipY(0) + 17, "faint", "nobody listens");
  }

  void drawReporting() {
    std::size_t drawn = 0;
    for (ReportingPorts const& ports : flow_.reporting) {
      if (drawn == mostChips) break;
      drawReport(ports, chipY(drawn++));
    }
    if (drawn < flow_.reporting.size()) drawMore(rightX(), drawn, flow_.reporting);
    if (flow_.reporting.empty()) text(rightX(), chipY(0) + 17, "faint", "nothing is reported");
  }

  void drawReport(ReportingPorts const& ports, int y) {
    std::size_t const room = lettersIn(rightWidth);
    std::string const router = ports.isRouterPort ? "\u2192 router" : "";
    chip(rightX(), y, rightWidth, !ports.record ? "silent" : ports.isRouterPort ? "router" : "");
    std::string const name =
        portsText(ports.names, ports.names.size() > 1 ? room : room / 2 - router.size() / 2);
    std::string const feeders =
        ports.record ? feedersText(ports, flow_, room - std::min(room, name.size() + 10)) : "";
    out_ << "<text x=\"" << rightX() + 12 << "\" y=\"" << y + 17 << "\"><tspan class=\"port\">"
         << escaped(name) << "</tspan>";
    if (ports.isRouterPort) out_ << "<tspan class=\"torouter\" dx=\"5\">" << router << "</tspan>";
    if (ports.names.size() == 1 && ports.record)
      out_ << "<tspan class=\"faint\" dx=\"7\">" << escaped(feeders) << "</tspan>";
    out_ << "</text>";
    text(rightX() + 12, y + 34, ports.record ? "want" : "faint",
         ports.record ? wordsFor(*ports.record, room) : "nothing: only its own listen");
  }

  template <class Ports>
  void drawMore(int x, std::size_t drawn, std::vector<Ports> const& all) {
    std::size_t ports = 0;
    for (std::size_t i = drawn; i < all.size(); ++i) ports += all[i].names.size();
    text(x + 10, chipY(drawn) + 17, "faint",
         message("and ", counted(ports, "port"), " more: see the tables"));
  }

  std::ostream& out_;
  Flow const& flow_;
  PortColours const& colours_;
  Place place_;
};

/// What the picture says, in sentences.
std::string described(std::vector<Flow> const& flows) {
  constexpr std::size_t enough = 40;
  std::string text;
  std::size_t sentences = 0;
  for (Flow const& flow : flows)
    for (ReportingPorts const& ports : flow.reporting) {
      if (!ports.record || ++sentences > enough) continue;
      text += message(groupsText(flow), ": ", portsText(ports.names, 60), " reports ",
                      wordsFor(*ports.record, 80), ", ", feedersText(ports, flow, 80), ". ");
    }
  if (sentences > enough) text += message("And ", sentences - enough, " more.");
  return text.empty() ? "Nothing is reported." : text;
}

}  // namespace

void drawFlows(std::ostream& out, std::string const& id, std::string const& title,
               std::vector<Flow> const& flows, PortColours const& colours) {
  constexpr int width = 2 * (laneWidth + 2 * padding) + laneGap;
  int height = 0;
  for (std::size_t i = 0; i < flows.size(); i += 2)
    height +=
        laneGap + std::max(heightOf(flows[i]), i + 1 < flows.size() ? heightOf(flows[i + 1]) : 0);
  height -= laneGap;
  out << "<svg class=\"flows\" id=\"" << id << "\" viewBox=\"0 0 " << width << ' ' << height
      << "\" role=\"img\" aria-labelledby=\"" << id << "-t " << id << "-d\"><title id=\"" << id
      << "-t\">" << escaped(title) << "</title><desc id=\"" << id << "-d\">"
      << escaped(described(flows)) << "</desc>\n";
  int y = 0;
  for (std::size_t i = 0; i < flows.size(); i += 2) {
    int const second = i + 1 < flows.size() ? heightOf(flows[i + 1]) : 0;
    int const rowHeight = std::max(heightOf(flows[i]), second);
    Lane(out, flows[i], colours, {0, y}).draw(rowHeight);
    if (second > 0)
      Lane(out, flows[i + 1], colours, {laneWidth + 2 * padding + laneGap, y}).draw(rowHeight);
    y += rowHeight + laneGap;
  }
  out << "</svg>\n";
}

}  // namespace Agent

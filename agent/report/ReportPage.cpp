#include "agent/report/ReportPage.h"

#include <algorithm>
#include <ostream>
#include <set>

#include "agent/report/Markup.h"
#include "agent/report/ReportTables.h"
#include "agent/report/Style.h"
#include "agent/report/TimeAxis.h"
#include "agent/report/VlanSection.h"
#include "agent/report/Warnings.h"
#include "agent/text/Dates.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// So many VLANs get pictures.
constexpr std::size_t mostVlans = 64;

void printHead(std::ostream& out, ReportData const& data) {
  out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
         "'unsafe-inline'; img-src data:\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta name=\"referrer\" content=\"no-referrer\">\n"
         "<link rel=\"icon\" href=\"data:,\">\n"
      << "<title>IGMP report: " << escaped(data.subject) << "</title>\n<style>" << pageStyle
      << "</style>\n</head>\n<body>\n<a class=\"skip\" href=\"#main\">To the content</a>\n";
}

void printSum(std::ostream& out, char const* name, std::uint64_t count) {
  out << "<div><dt>" << name << "</dt><dd>" << grouped(count) << "</dd></div>";
}

std::size_t groupsIn(ReportData const& data) {
  std::set<std::pair<unsigned, Wirex::IpAddr>> groups;
  for (ReportedMembership const& each : data.memberships) groups.emplace(each.vlan, each.group);
  return groups.size();
}

void printSums(std::ostream& out, ReportData const& data, std::size_t warnings) {
  std::uint64_t records = 0;
  for (HostRecords const& host : data.hosts) records += host.groups.size();
  std::uint64_t ignored = 0;
  for (ReportedRefusals const& each : data.ignored) ignored += each.count;
  out << "<dl class=\"sums\">";
  printSum(out, "VLANs", data.vlans.size());
  printSum(out, "interfaces", data.interfaces.size());
  printSum(out, "groups", groupsIn(data));
  printSum(out, "memberships", data.memberships.size());
  printSum(out, "records", records);
  printSum(out, "ignored", ignored);
  printSum(out, "warnings", warnings);
  out << "</dl>\n";
}

void printTop(std::ostream& out, ReportData const& data, std::size_t warnings) {
  out << "<header>\n<h1>IGMP report: " << escaped(data.subject) << "</h1>\n<p>"
      << (data.isReplay ? "A replay, " : "A running agent, ") << timeWords(data.time)
      << (data.isReplay ? " after the first packet." : " after its start.")
      << (data.date.empty() ? "" : " It was " + spelledDate(data.date) + ".") << "</p>\n";
  printSums(out, data, warnings);
  out << "</header>\n<nav aria-label=\"Contents\"><ul>";
  for (std::size_t i = 0; i < std::min(data.vlans.size(), mostVlans); ++i)
    out << "<li><a href=\"#vlan-" << data.vlans[i].id << "\">VLAN " << data.vlans[i].id
        << "</a></li>";
  out << "<li><a href=\"#ignored\">Ignored</a></li><li><a href=\"#tables\">Tables</a></li>"
         "<li><a href=\"#changes\">Changes</a></li></ul></nav>\n<main id=\"main\">\n";
}

void printWarnings(std::ostream& out, std::vector<Warning> const& warnings) {
  out << "<section aria-labelledby=\"warnings\">\n<h2 id=\"warnings\">Warnings</h2>\n";
  if (warnings.empty()) out << "<p>None.</p>\n";
  if (!warnings.empty()) out << "<ul class=\"warnings\">\n";
  for (Warning const& warning : warnings)
    out << "<li><strong>" << escaped(warning.what) << "</strong> " << escaped(warning.remedy)
        << "</li>\n";
  if (!warnings.empty()) out << "</ul>\n";
  out << "</section>\n";
}

void printVlans(std::ostream& out, ReportData const& data) {
  std::vector<std::string> ports;
  for (ReportedInterface const& each : data.interfaces) ports.push_back(each.name);
  PortColours const colours(ports);
  if (data.vlans.empty()) out << "<p>No VLAN is configured.</p>\n";
  std::size_t const shown = std::min(data.vlans.size(), mostVlans);
  for (std::size_t i = 0; i < shown; ++i) printVlan(out, data, data.vlans[i], colours);
  if (shown < data.vlans.size())
    out << "<p>" << data.vlans.size() - shown << " more VLANs are in the tables alone.</p>\n";
}

void printRest(std::ostream& out, ReportData const& data) {
  out << "<section aria-labelledby=\"ignored\">\n<h2 id=\"ignored\">What was ignored</h2>\n";
  printIgnored(out, data);
  out << "</section>\n<section aria-labelledby=\"tables\">\n<h2 id=\"tables\">Tables</h2>\n";
  printTables(out, data);
  out << "</section>\n<section aria-labelledby=\"changes\">\n<h2 id=\"changes\">Changes</h2>\n";
  if (data.history.isAhead)
    out << "<p>A running agent remembers no past: what changed is told by igmpsnoopctl monitor as "
           "it happens. Times are seconds from the report on.</p>\n";
  else
    out << "<p>Times are seconds since the first packet.</p>\n";
  printChanges(out, data.history);
  out << "</section>\n</main>\n</body>\n</html>\n";
}

}  // namespace

void printReport(std::ostream& out, ReportData const& data) {
  auto const warnings = warningsOf(data);
  printHead(out, data);
  printTop(out, data, warnings.size());
  printWarnings(out, warnings);
  printVlans(out, data);
  printRest(out, data);
}

}  // namespace Agent

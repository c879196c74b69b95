#include "tests/proxy/model/Picture.h"

#include <ostream>
#include <sstream>

namespace Bridging::IgmpSnooping::Proxy::Model {

namespace {

std::ostream& operator<<(std::ostream& out, HostKey const& key) {
  return out << "host of port " << key.port << " in VLAN " << key.vlan;
}

std::ostream& operator<<(std::ostream& out, Counts const& counts) {
  out << '{';
  char const* separator = "";
  for (auto const& [source, count] : counts) {
    out << separator << 's' << source << " x" << count;
    separator = ", ";
  }
  return out << '}';
}

std::ostream& operator<<(std::ostream& out, PortPicture const& port) {
  out << (port.includeMode ? "include" : "exclude") << " mode" << (port.starG ? ", *,G" : "")
      << ", changes " << port.changes << ", includes " << port.include << ", excludes "
      << port.exclude << ", reporters";
  for (int const reporter : port.reporters) out << ' ' << reporter;
  return out;
}

std::ostream& operator<<(std::ostream& out, GroupPicture const& group) {
  return out << "starGCount " << group.starGCount << ", include " << group.include << ", exclude "
             << group.exclude << (group.hostChanged ? ", host changed" : "") << ", "
             << group.ports.size() << " ports";
}

std::ostream& operator<<(std::ostream& out, RecordPicture const& record) {
  out << "record of type " << record.type << ", sources ";
  return record.sources ? out << *record.sources : out << "missing";
}

std::ostream& operator<<(std::ostream& out, HostPicture const& host) {
  return out << host.size() << " records";
}

/// Compares what both have under one name, and below it.
class Comparison {
 public:
  std::string text() const { return text_.str(); }

  void compare(std::string const& name, PortPicture const& adapter, PortPicture const& model) {
    sayIfDifferent(name, adapter, model);
  }
  void compare(std::string const& name, RecordPicture const& adapter, RecordPicture const& model) {
    sayIfDifferent(name, adapter, model);
  }
  void compare(std::string const& name, GroupPicture const& adapter, GroupPicture const& model) {
    sayIfDifferent(name, adapter, model);
    compareEach(name + ", port ", adapter.ports, model.ports);
  }
  void compare(std::string const& name, HostPicture const& adapter, HostPicture const& model) {
    compareEach(name + ", group ", adapter, model);
  }

  template <class Key, class Part>
  void compareEach(std::string const& prefix, std::map<Key, Part> const& adapter,
                   std::map<Key, Part> const& model) {
    for (auto const& [key, part] : adapter) {
      auto const other = model.find(key);
      if (other == model.end())
        text_ << prefix << key << "\n  adapter: " << part << "\n  model:   has none\n";
      else if (!(part == other->second))
        compare(named(prefix, key), part, other->second);
    }
    for (auto const& [key, part] : model)
      if (!adapter.contains(key))
        text_ << prefix << key << "\n  adapter: has none\n  model:   " << part << '\n';
  }

 private:
  template <class Key>
  static std::string named(std::string const& prefix, Key const& key) {
    std::ostringstream name;
    name << prefix << key;
    return name.str();
  }

  template <class Part>
  void sayIfDifferent(std::string const& name, Part const& adapter, Part const& model) {
    text_ << name << "\n  adapter: " << adapter << "\n  model:   " << model << '\n';
  }

  std::ostringstream text_;
};

}  // namespace

std::string difference(VlanPicture const& adapter, VlanPicture const& model) {
  if (adapter == model) return {};
  Comparison comparison;
  comparison.compareEach("group ", adapter.groups, model.groups);
  comparison.compareEach("", adapter.hosts, model.hosts);
  return comparison.text();
}

}  // namespace Bridging::IgmpSnooping::Proxy::Model

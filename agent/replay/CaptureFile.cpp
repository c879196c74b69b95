#include "agent/replay/CaptureFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include <pcap.h>

#include "agent/replay/CookedFrame.h"
#include "agent/replay/PcapReader.h"
#include "agent/replay/PcapngReader.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

constexpr char const* howToCapture = "; capture on the port itself: tcpdump -Q in -i PORT -w FILE";

template <typename... Parts>
[[noreturn]] void fail(Parts const&... parts) {
  throw CaptureError(message(parts...));
}

[[noreturn]] void failToRead(std::string const& fileName, int error) {
  fail("cannot read capture ", fileName, ": ", std::generic_category().message(error),
       "; give the name of a readable file");
}

/// What a file that is no capture by itself begins with.
struct Compression {
  std::string_view begin;
  char const* name;
  char const* unpack;
};

constexpr std::array<Compression, 5> compressions{{
    {"\x1f\x8b", "gzip", "zcat"},
    {"\x28\xb5\x2f\xfd", "zstd", "zstdcat"},
    {"\xfd"
     "7zXZ",
     "xz", "xzcat"},
    {"BZh", "bzip2", "bzcat"},
    {"\x04\x22\x4d\x18", "lz4", "lz4cat"},
}};

constexpr std::string_view beginOfPcapng = "\x0a\x0d\x0d\x0a";

/// Looks at a file's first bytes and leaves them to be read.
std::string beginOf(std::FILE* file) {
  std::string begin;
  while (begin.size() < 5) {
    int const byte = std::getc(file);
    if (byte == EOF) break;
    begin += static_cast<char>(byte);
  }
  for (auto byte = begin.rbegin(); byte != begin.rend(); ++byte)
    std::ungetc(static_cast<unsigned char>(*byte), file);
  return begin;
}

void requireUncompressed(std::string const& fileName, std::string_view begin) {
  for (Compression const& compression : compressions)
    if (begin.starts_with(compression.begin))
      fail("capture ", fileName, " is compressed with ", compression.name,
           "; unpack it, or give it as PORT=- after ", compression.unpack, " ", fileName, " |");
}

/// Reading the first byte tells what opening does not: directories open like files.
std::unique_ptr<PacketSource> openFile(std::string const& fileName) {
  File file(std::fopen(fileName.c_str(), "rb"), std::fclose);
  if (!file) failToRead(fileName, errno);
  errno = 0;
  std::string const begin = beginOf(file.get());
  if (std::ferror(file.get())) failToRead(fileName, errno);
  if (begin.empty())
    fail("capture ", fileName, " is empty; give a file that tcpdump -w has written");
  requireUncompressed(fileName, begin);
  if (begin.starts_with(beginOfPcapng)) return std::make_unique<PcapngReader>(file.release());
  try {
    auto reader = std::make_unique<PcapReader>(file.get());
    static_cast<void>(file.release());  // now the reader's
    return reader;
  } catch (CaptureDamage const& problem) {
    fail(fileName, " is no capture (", problem.what(),
         "); give a file that tcpdump -w has written, in pcap or pcapng format");
  }
}

std::optional<std::uintmax_t> sizeOf(std::string const& fileName) {
  std::error_code unknown;
  auto const size = std::filesystem::file_size(fileName, unknown);
  if (unknown) return std::nullopt;
  return size;
}

/// ", 1234 bytes into the file", or nothing where the input has no places, as a pipe.
std::string place(long offset) {
  return offset < 0 ? "" : message(", ", offset, " bytes into the file");
}

std::string linkTypeText(int linkType) {
  char const* const name = pcap_datalink_val_to_name(linkType);
  return name ? name : std::to_string(linkType);
}

bool isReadable(int linkType) {
  return linkType == DLT_EN10MB || linkType == linkTypeCooked || linkType == linkTypeCooked2;
}

/// Each once, with its link type where that is none that can be read.
std::string listOf(std::vector<CapturedInterface> const& interfaces) {
  std::vector<std::string> names;
  for (CapturedInterface const& interface : interfaces) {
    std::string name = interface.text();
    if (!isReadable(interface.linkType))
      name += message(" (", linkTypeText(interface.linkType), ", not Ethernet)");
    if (std::find(names.begin(), names.end(), name) == names.end())
      names.push_back(std::move(name));
  }
  return enumerated(names, "and");
}

}  // namespace

CaptureFile::CaptureFile(std::string const& given)
    : name_(captureName(given)), source_(openFile(name_.fileName)), size_(sizeOf(name_.fileName)) {
  lookAtInterfaces();
}

/// Cooked packets tell their interface themselves, so all of them are looked at.
bool CaptureFile::tellsInterfacesByNumber() const {
  auto const& interfaces = source_->interfaces();
  return interfaces.size() == 1 && interfaces[0].linkType == linkTypeCooked2;
}

bool CaptureFile::isSelected(CapturedInterface const& interface) const {
  return name_.interface.empty() || interface.name == name_.interface ||
         std::to_string(interface.number) == name_.interface || tellsInterfacesByNumber();
}

/// All interfaces of which the file has told so far. Packets come after those of their interface.
void CaptureFile::lookAtInterfaces() {
  auto const& interfaces = source_->interfaces();
  if (interfacesSeen_ == interfaces.size()) return;
  if (name_.interface.empty()) requireOneInterface();
  for (; interfacesSeen_ < interfaces.size(); ++interfacesSeen_) {
    if (!isSelected(interfaces[interfacesSeen_])) continue;
    selectedSeen_ |= !tellsInterfacesByNumber();
    requireEthernet(interfaces[interfacesSeen_].linkType);
  }
}

/// The same one may be described again, as in files that were joined.
void CaptureFile::requireOneInterface() const {
  auto const& interfaces = source_->interfaces();
  auto const isAnother = [&](auto const& each) { return each.text() != interfaces[0].text(); };
  auto const another = std::find_if(interfaces.begin(), interfaces.end(), isAnother);
  if (another == interfaces.end()) return;
  auto const& example = isReadable(another->linkType) ? *another : interfaces[0];
  fail("capture ", name_.fileName, " holds several interfaces, ", listOf(interfaces),
       "; say which one is the port, as in PORT=", name_.fileName, ":", example.text());
}

void CaptureFile::requireSelectedInterface() const {
  if (name_.interface.empty() || selectedSeen_) return;
  fail("capture ", name_.fileName, " holds no interface ", name_.interface,
       tellsInterfacesByNumber() ? "; give the number that the interface had (ip link)"
                                 : "; it holds " + listOf(source_->interfaces()));
}

void CaptureFile::requireEthernet(int linkType) const {
  if (isReadable(linkType)) return;
  char const* const description = pcap_datalink_val_to_description(linkType);
  fail("capture ", name_.fileName, " has link type ", linkTypeText(linkType),
       description ? message(" (", description, ")") : "", ", not Ethernet", howToCapture);
}

std::optional<RawPacket> CaptureFile::nextRaw() {
  try {
    return source_->next();
  } catch (CaptureDamage const& damage) {
    fail("capture ", name_.fileName, " is damaged after its packet ", packetsRead_,
         place(source_->offset()), ": ", damage.what(), "; keep the packets before: tcpdump -r ",
         name_.fileName, " -w FILE");
  }
}

/// The second version of the header tells the interface.
bool CaptureFile::isSelected(std::uint32_t cookedInterface) {
  if (!name_.interface.empty()) {
    bool const selected = std::to_string(cookedInterface) == name_.interface;
    selectedSeen_ |= selected;
    return selected;
  }
  if (!cookedInterface_) cookedInterface_ = cookedInterface;
  if (cookedInterface != *cookedInterface_)
    fail("capture ", name_.fileName, " holds several interfaces, of the numbers ",
         *cookedInterface_, " and ", cookedInterface,
         " and maybe more; say which one is the port, as in PORT=", name_.fileName, ":",
         *cookedInterface_);
  return true;
}

/// Returns whether the packet is of the interface.
bool CaptureFile::uncook(RawPacket& packet) {
  int const linkType = source_->interfaces()[packet.interface].linkType;
  if (linkType == DLT_EN10MB) return true;
  auto const cooked = Agent::uncook(packet.bytes, linkType, uncooked_);
  if (!cooked) return false;
  packet.outgoing |= cooked->outgoing;
  packet.bytes = uncooked_;
  return linkType == linkTypeCooked || isSelected(cooked->interface);
}

std::optional<CapturedPacket> CaptureFile::next() {
  for (;;) {
    auto packet = nextRaw();
    lookAtInterfaces();
    if (!packet) {
      requireSelectedInterface();
      return std::nullopt;
    }
    ++packetsRead_;
    if (!isSelected(source_->interfaces()[packet->interface]) || !uncook(*packet)) continue;
    if (!packet->time) {
      fail("capture ", name_.fileName, " has an impossible time in its packet ", packetsRead_,
           place(source_->offset()), "; correct it: editcap -t SECONDS ", name_.fileName, " FILE");
    }
    latest_ = std::max(latest_, *packet->time);
    return CapturedPacket{latest_, packet->bytes, packetsRead_, packet->outgoing};
  }
}

}  // namespace Agent

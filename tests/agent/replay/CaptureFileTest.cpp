#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/replay/CaptureFile.h"
#include "agent/text/Wording.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using IgmpTest::ByteVector;
using testing::ElementsAre;
using testing::Pair;

class CaptureFileTest : public testing::Test {
 protected:
  using Packets = std::vector<std::pair<Horix::Time, ByteVector>>;

  static Packets packetsIn(std::string const& fileName) {
    Packets packets;
    CaptureFile file(fileName);
    while (auto const packet = file.next())
      packets.emplace_back(packet->time, ByteVector(packet->frame.begin(), packet->frame.end()));
    return packets;
  }

  /// What reading the file to its end fails with.
  static std::string errorIn(std::string const& fileName) {
    try {
      packetsIn(fileName);
    } catch (CaptureError const& error) {
      return error.what();
    }
    return "no error";
  }

  std::string written(std::string const& name, std::string const& bytes) const {
    std::ofstream(directory.file(name), std::ios::binary) << bytes;
    return directory.file(name);
  }

  static void overwrite(std::string const& fileName, std::streamoff offset,
                        std::string_view bytes) {
    std::fstream file(fileName, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(offset);
    file << bytes;
  }

  TemporaryDirectory directory;
};

TEST_F(CaptureFileTest, GivesPacketsWithNanoseconds) {
  CaptureBuilder capture;
  capture.at(someTime + 1ns, ByteVector{1, 2, 3}).at(someTime + 2s + 999'999'999ns, ByteVector{4});
  EXPECT_THAT(packetsIn(capture.write(directory.file("a.pcap"))),
              ElementsAre(Pair(someTime + 1ns, ByteVector{1, 2, 3}),
                          Pair(someTime + 2s + 999'999'999ns, ByteVector{4})));
}

TEST_F(CaptureFileTest, GivesOfACutPacketWhatWasCaptured) {
  CaptureBuilder capture;
  capture.at(someTime, ByteVector{1, 2, 3, 4}, 2);
  EXPECT_THAT(packetsIn(capture.write(directory.file("a.pcap"))),
              ElementsAre(Pair(someTime, ByteVector{1, 2})));
}

TEST_F(CaptureFileTest, TimeStandsStillWhereTimestampsGoBack) {
  CaptureBuilder capture;
  capture.at(someTime + 2s, ByteVector{1}).at(someTime + 1s, ByteVector{2});
  capture.at(someTime, ByteVector{3}).at(someTime + 3s, ByteVector{4});
  EXPECT_THAT(packetsIn(capture.write(directory.file("a.pcap"))),
              ElementsAre(Pair(someTime + 2s, ByteVector{1}), Pair(someTime + 2s, ByteVector{2}),
                          Pair(someTime + 2s, ByteVector{3}), Pair(someTime + 3s, ByteVector{4})));
}

TEST_F(CaptureFileTest, FractionThatExceedsASecondCountsAsItIs) {
  CaptureBuilder capture;
  capture.at(someTime, ByteVector{1});
  std::string const name = capture.write(directory.file("a.pcap"));
  overwrite(name, 24 + 4, "\xff\xff\xff\x7f");
  EXPECT_THAT(packetsIn(name), ElementsAre(Pair(someTime + 2'147'483'647ns, ByteVector{1})));
}

TEST_F(CaptureFileTest, TimesBefore1970AreTimes) {
  CaptureBuilder capture;
  capture.at(-10s, ByteVector{1}).at(-9s + 1ns, ByteVector{2}).at(1s, ByteVector{3});
  EXPECT_THAT(packetsIn(capture.write(directory.file("a.pcap"))),
              ElementsAre(Pair(-10s, ByteVector{1}), Pair(-9s + 1ns, ByteVector{2}),
                          Pair(1s, ByteVector{3})));
}

TEST_F(CaptureFileTest, CaptureWithoutPacketsIsOne) {
  EXPECT_TRUE(packetsIn(CaptureBuilder().write(directory.file("a.pcap"))).empty());
}

/// A pcapng file, block by block, in the byte order of this machine.
class PcapngWriter {
 public:
  PcapngWriter() { section(); }

  /// An interface whose timestamps count nanoseconds.
  PcapngWriter& interface(std::uint32_t linkType) {
    return block(1, {linkType, 0, 0x00010009, 9, 0});  // if_tsresol
  }
  /// @param name of four letters.
  PcapngWriter& interface(std::uint32_t linkType, char const* name) {
    return block(1, {linkType, 0, 0x00010009, 9, 0x00040002, word(name), 0});  // and if_name
  }
  /// An interface with the MAC address 02:00:00:00:00:01.
  PcapngWriter& interfaceWithMacAddress(std::uint32_t linkType) {
    return block(1, {linkType, 0, 0x00060006, 0x00000002, 0x00000100, 0});  // if_MACaddr
  }
  /// An empty frame from the MAC address that ends so.
  PcapngWriter& frameFrom(std::uint8_t lastByte) {
    return block(6, {0, 0, 1, 16, 16, 0x005e0001, 0x00021600, std::uint32_t{lastByte} << 24, 8});
  }
  PcapngWriter& packet(std::uint64_t time, std::uint32_t fourBytes, std::uint32_t interface = 0) {
    return block(6, {interface, static_cast<std::uint32_t>(time >> 32),
                     static_cast<std::uint32_t>(time), 4, 4, fourBytes});
  }
  /// @param flags epb_flags: 1 is heard, 2 is sent.
  PcapngWriter& flagged(std::uint64_t time, std::uint32_t fourBytes, std::uint32_t flags) {
    return block(6, {0, static_cast<std::uint32_t>(time >> 32), static_cast<std::uint32_t>(time), 4,
                     4, fourBytes, 0x00040002, flags, 0});
  }
  PcapngWriter& section() {
    return block(0x0a0d0d0a, {0x1a2b3c4d, 0x00000001, 0xffffffff, 0xffffffff});
  }
  std::string const& bytes() const { return bytes_; }

 private:
  PcapngWriter& block(std::uint32_t type, std::initializer_list<std::uint32_t> body) {
    auto const size = static_cast<std::uint32_t>(4 * (body.size() + 3));
    append(type);
    append(size);
    for (std::uint32_t const value : body) append(value);
    append(size);
    return *this;
  }
  static std::uint32_t word(char const* letters) {
    std::uint32_t value = 0;
    std::memcpy(&value, letters, sizeof value);
    return value;
  }
  void append(std::uint32_t value) {
    char raw[sizeof value];
    std::memcpy(raw, &value, sizeof value);
    bytes_.append(raw, sizeof value);
  }

  std::string bytes_;
};

TEST_F(CaptureFileTest, ReadsPcapng) {
  PcapngWriter capture;
  std::uint64_t const time = 1'700'000'000'000'000'123;
  capture.interface(DLT_EN10MB).packet(time, 0x01010101);
  EXPECT_THAT(packetsIn(written("a.pcapng", capture.bytes())),
              ElementsAre(Pair(someTime + 123ns, ByteVector{1, 1, 1, 1})));
}

TEST_F(CaptureFileTest, PcapngOfAnotherLinkTypeIsRefused) {
  PcapngWriter capture;
  capture.interface(DLT_IEEE802_11);
  EXPECT_THAT(errorIn(written("a.pcapng", capture.bytes())),
              testing::HasSubstr("link type IEEE802_11 "));
}

TEST_F(CaptureFileTest, PcapngTimeBeyondWhatAClockCanTellIsRefused) {
  PcapngWriter capture;
  capture.interface(DLT_EN10MB).packet(0, 0).packet(UINT64_MAX, 0);
  std::string const name = written("a.pcapng", capture.bytes());
  EXPECT_THAT(errorIn(name),
              testing::StartsWith("capture " + name + " has an impossible time in its packet 2, "));
}

TEST_F(CaptureFileTest, PcapngTellsWhatWasSent) {
  PcapngWriter capture;
  capture.interface(DLT_EN10MB).flagged(1, 0, 1).flagged(2, 0, 2).packet(3, 0);
  CaptureFile file(written("a.pcapng", capture.bytes()));
  EXPECT_FALSE(file.next().value().outgoing);
  EXPECT_TRUE(file.next().value().outgoing);
  EXPECT_FALSE(file.next().value().outgoing) << "not told";
}

TEST_F(CaptureFileTest, PcapngTellsTheInterfacesOwnMacAddress) {
  PcapngWriter capture;
  capture.interfaceWithMacAddress(DLT_EN10MB).frameFrom(1).frameFrom(2).packet(3, 0);
  CaptureFile file(written("a.pcapng", capture.bytes()));
  EXPECT_TRUE(file.next().value().outgoing);
  EXPECT_FALSE(file.next().value().outgoing);
  EXPECT_FALSE(file.next().value().outgoing) << "too short to tell";
}

TEST_F(CaptureFileTest, PcapngOfSeveralInterfacesTakesOneToBeNamed) {
  PcapngWriter capture;
  capture.interface(DLT_EN10MB, "eth0").interface(DLT_EN10MB, "eth1");
  capture.packet(1, 0x01010101, 0).packet(2, 0x02020202, 1).packet(3, 0x03030303, 1);
  std::string const name = written("a.pcapng", capture.bytes());
  EXPECT_EQ(errorIn(name), "capture " + name +
                               " holds several interfaces, eth0 and eth1; say which one is the "
                               "port, as in PORT=" +
                               name + ":eth1");
  EXPECT_THAT(packetsIn(name + ":eth0"), ElementsAre(Pair(1ns, ByteVector{1, 1, 1, 1})));
  EXPECT_THAT(packetsIn(name + ":1"),
              ElementsAre(Pair(2ns, ByteVector{2, 2, 2, 2}), Pair(3ns, ByteVector{3, 3, 3, 3})));
  EXPECT_EQ(errorIn(name + ":eth2"),
            "capture " + name + " holds no interface eth2; it holds eth0 and eth1");
}

TEST_F(CaptureFileTest, PcapngOfSeveralInterfacesTakesOneOfEthernetToBeNamed) {
  PcapngWriter capture;
  capture.interface(DLT_EN10MB, "eth0").interface(DLT_IEEE802_11, "wifi");
  std::string const name = written("a.pcapng", capture.packet(1, 0x01010101, 0).bytes());
  EXPECT_EQ(errorIn(name), "capture " + name +
                               " holds several interfaces, eth0 and wifi (IEEE802_11, not "
                               "Ethernet); say which one is the port, as in PORT=" +
                               name + ":eth0");
}

TEST_F(CaptureFileTest, PcapngInterfaceWhoseNameCannotBeTypedIsCalledByItsNumber) {
  PcapngWriter capture;
  capture.interface(DLT_EN10MB, "eth0").interface(DLT_EN10MB, "eth\n1\x1b[2J");
  capture.packet(1, 0x01010101, 0).packet(2, 0x02020202, 1);
  std::string const name = written("a.pcapng", capture.bytes());
  EXPECT_THAT(errorIn(name), HasSubstr(" holds several interfaces, eth0 and 1; say which"));
  EXPECT_THAT(packetsIn(name + ":1"), ElementsAre(Pair(2ns, ByteVector{2, 2, 2, 2})));
}

TEST_F(CaptureFileTest, PacketsKeepTheirNumbersAmongThoseOfOtherInterfaces) {
  PcapngWriter capture;
  capture.interface(DLT_EN10MB, "eth0").interface(DLT_EN10MB, "eth1");
  capture.packet(1, 0, 0).packet(2, 0, 1);
  CaptureFile file(written("a.pcapng", capture.bytes()) + ":eth1");
  EXPECT_EQ(file.next().value().number, 2u);
}

TEST_F(CaptureFileTest, InterfacesOfAnotherLinkTypeAreNamedAsSuchAndMayStandBeside) {
  PcapngWriter capture;
  capture.interface(DLT_IEEE802_11, "wlan").interface(DLT_EN10MB, "eth1");
  capture.packet(1, 0, 0).packet(2, 0x02020202, 1);
  std::string const name = written("a.pcapng", capture.bytes());
  EXPECT_THAT(errorIn(name), testing::HasSubstr("wlan (IEEE802_11, not Ethernet) and eth1; "));
  EXPECT_THAT(errorIn(name + ":wlan"), testing::HasSubstr("has link type IEEE802_11 "));
  EXPECT_THAT(packetsIn(name + ":eth1"), ElementsAre(Pair(2ns, ByteVector{2, 2, 2, 2})));
}

TEST_F(CaptureFileTest, InterfaceThatIsDescribedAgainIsTheSame) {
  PcapngWriter capture;
  capture.interface(DLT_EN10MB, "eth0").packet(1, 0x01010101);
  capture.section().interface(DLT_EN10MB, "eth0").packet(2, 0x02020202);
  EXPECT_THAT(packetsIn(written("a.pcapng", capture.bytes())),
              ElementsAre(Pair(1ns, ByteVector{1, 1, 1, 1}), Pair(2ns, ByteVector{2, 2, 2, 2})));
}

TEST_F(CaptureFileTest, ColonMayBePartOfTheFilesName) {
  CaptureBuilder capture;
  capture.at(someTime, ByteVector{1});
  EXPECT_EQ(packetsIn(capture.write(directory.file("12:30.pcap"))).size(), 1u);
}

TEST_F(CaptureFileTest, PcapHoldsOneInterfaceWithoutAName) {
  std::string const name =
      CaptureBuilder().at(someTime, ByteVector{1}).write(directory.file("a.pcap"));
  EXPECT_EQ(errorIn(name + ":eth0"), "capture " + name + " holds no interface eth0; it holds 0");
}

/// Of an IPv4 packet with four bytes, from 02:00:00:00:00:07.
ByteVector cooked(unsigned type, unsigned fill) {
  IgmpTest::ByteWriter bytes;
  bytes.u16(type).u16(1).u16(6).u16(0x0200).u32(7).u16(0).u16(0x0800);
  return bytes.u32(0x01010101u * fill).bytes();
}
ByteVector cooked2(unsigned type, std::uint32_t interface, unsigned fill) {
  IgmpTest::ByteWriter bytes;
  bytes.u16(0x0800).u16(0).u32(interface).u16(1).u8(type).u8(6).u16(0x0200).u32(7).u16(0);
  return bytes.u32(0x01010101u * fill).bytes();
}
ByteVector uncooked(unsigned fill) {
  IgmpTest::ByteWriter bytes;
  bytes.u32(0).u16(0).u16(0x0200).u32(7).u16(0x0800);
  return bytes.u32(0x01010101u * fill).bytes();
}

TEST_F(CaptureFileTest, CookedCaptureIsReadAsEthernetAndTellsWhatWasSent) {
  CaptureBuilder capture;
  capture.linkType(DLT_LINUX_SLL).at(1s, cooked(2, 1)).at(2s, cooked(4, 2)).at(3s, ByteVector(15));
  std::string const name = capture.write(directory.file("any.pcap"));
  EXPECT_THAT(packetsIn(name), ElementsAre(Pair(1s, uncooked(1)), Pair(2s, uncooked(2))));
  CaptureFile file(name);
  EXPECT_FALSE(file.next().value().outgoing);
  EXPECT_TRUE(file.next().value().outgoing);
}

TEST_F(CaptureFileTest, CookedCaptureOfSeveralInterfacesTakesANumber) {
  CaptureBuilder capture;
  capture.linkType(DLT_LINUX_SLL2).at(1s, cooked2(2, 3, 1)).at(2s, cooked2(4, 5, 2));
  std::string const name = capture.write(directory.file("any.pcap"));
  EXPECT_EQ(errorIn(name), "capture " + name +
                               " holds several interfaces, of the numbers 3 and 5 and maybe more; "
                               "say which one is the port, as in PORT=" +
                               name + ":3");
  EXPECT_THAT(packetsIn(name + ":5"), ElementsAre(Pair(2s, uncooked(2))));
  EXPECT_THAT(errorIn(name + ":4"), testing::EndsWith(" holds no interface 4; give the number that "
                                                      "the interface had (ip link)"));
}

// ---- Errors: file, place, remedy

TEST_F(CaptureFileTest, CompressedCaptureIsNamedAsSuch) {
  std::string const name = written("a.pcap.gz", "\x1f\x8b\x08 and what follows");
  EXPECT_EQ(errorIn(name), "capture " + name +
                               " is compressed with gzip; unpack it, or give it as PORT=- after "
                               "zcat " +
                               name + " |");
  for (auto const& [begin, program] :
       {std::pair("\x28\xb5\x2f\xfd of zstd", "zstd"), std::pair("\xfd"
                                                                 "7zXZ",
                                                                 "xz")})
    EXPECT_THAT(errorIn(written("a", begin)),
                testing::HasSubstr(std::string(" is compressed with ") + program + "; unpack it"));
}

TEST_F(CaptureFileTest, DamagedPcapngIsToldWithItsPlace) {
  PcapngWriter capture;
  capture.interface(DLT_EN10MB).packet(1, 0);
  auto const whole = capture.bytes().size();
  capture.packet(2, 0);
  std::string bytes = capture.bytes();
  for (std::size_t end = whole + 1; end < bytes.size(); ++end) {
    std::string const name = written("cut.pcapng", bytes.substr(0, end));
    EXPECT_THAT(errorIn(name),
                testing::StartsWith(message("capture ", name, " is damaged after its packet 1, ",
                                            whole, " bytes into the file: truncated block; ")));
  }
  bytes[whole + 20] = '\x7f';  // the captured length
  EXPECT_THAT(errorIn(written("wild.pcapng", bytes)),
              testing::HasSubstr(": block too short for what it holds; "));
}

TEST_F(CaptureFileTest, PacketOfAnInterfaceThatIsNotDescribedIsDamage) {
  PcapngWriter capture;
  capture.interface(DLT_EN10MB).packet(1, 0, 1);
  EXPECT_THAT(errorIn(written("a.pcapng", capture.bytes())),
              testing::HasSubstr(": packet of an interface that is not described; "));
}

TEST_F(CaptureFileTest, MissingFileIsNamed) {
  std::string const name = directory.file("missing.pcap");
  EXPECT_EQ(errorIn(name), "cannot read capture " + name +
                               ": No such file or directory; give the name of a readable file");
}

TEST_F(CaptureFileTest, DirectoryIsNoCapture) {
  std::string const name = directory.file("");
  EXPECT_EQ(errorIn(name),
            "cannot read capture " + name + ": Is a directory; give the name of a readable file");
}

TEST_F(CaptureFileTest, EmptyFileIsNoCapture) {
  std::string const name = written("empty.pcap", "");
  EXPECT_EQ(errorIn(name),
            "capture " + name + " is empty; give a file that tcpdump -w has written");
}

TEST_F(CaptureFileTest, TextIsNoCapture) {
  std::string const name = written("text.pcap", "what a switch heard of IGMP in a minute");
  EXPECT_EQ(errorIn(name), name +
                               " is no capture (unknown file format); give a file that "
                               "tcpdump -w has written, in pcap or pcapng format");
}

TEST_F(CaptureFileTest, HalfAFileHeaderIsNoCapture) {
  std::string const name = CaptureBuilder().write(directory.file("a.pcap"));
  std::filesystem::resize_file(name, 10);
  EXPECT_THAT(errorIn(name), testing::StartsWith(name + " is no capture (truncated dump file"));
}

TEST_F(CaptureFileTest, LinkTypeOtherThanEthernetIsNamed) {
  std::string const name =
      CaptureBuilder().linkType(DLT_IEEE802_11).write(directory.file("air.pcap"));
  EXPECT_EQ(errorIn(name), "capture " + name +
                               " has link type IEEE802_11 (802.11), not Ethernet; "
                               "capture on the port itself: tcpdump -Q in -i PORT -w FILE");
}

TEST_F(CaptureFileTest, LinkTypeWithoutANameIsGivenByNumber) {
  std::string const name = CaptureBuilder().write(directory.file("odd.pcap"));
  overwrite(name, 20, "\x34\x12\x34\x12");
  EXPECT_THAT(errorIn(name), testing::ContainsRegex("has link type [0-9]+, not Ethernet"));
}

TEST_F(CaptureFileTest, TruncationIsToldWithItsPlaceWhereverItIs) {
  constexpr std::uintmax_t fileHeader = 24;
  constexpr std::uintmax_t packet = 16 + 10;
  CaptureBuilder capture;
  for (int i = 0; i < 3; ++i) capture.at(someTime, ByteVector(10));
  for (std::uintmax_t const end : {fileHeader + 2 * packet + 1, fileHeader + 3 * packet - 1}) {
    std::string const name = capture.write(directory.file("cut.pcap"));
    std::filesystem::resize_file(name, end);
    EXPECT_THAT(
        errorIn(name),
        testing::AllOf(
            testing::StartsWith(message("capture ", name, " is damaged after its packet 2, ",
                                        fileHeader + 2 * packet,
                                        " bytes into the file: truncated dump file; ")),
            testing::EndsWith("; keep the packets before: tcpdump -r " + name + " -w FILE")));
  }
}

TEST_F(CaptureFileTest, PacketOfImpossibleSizeIsDamage) {
  CaptureBuilder capture;
  capture.at(someTime, ByteVector(10));
  std::string const name = capture.write(directory.file("wild.pcap"));
  overwrite(name, 24 + 8, "\xff\xff\xff\xff");  // the captured length
  EXPECT_THAT(errorIn(name), testing::HasSubstr(" is damaged after its packet 0, 24 bytes into "));
}

}  // namespace
}  // namespace Agent

#include "agent/replay/SentCaptures.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <pcap.h>

#include "agent/replay/CaptureFile.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr int snapLength = 65535;

[[noreturn]] void fail(std::string const& what, std::error_code const& error, char const* remedy) {
  throw CaptureError(message("cannot ", what, ": ", error.message(), "; ", remedy));
}

[[noreturn]] void failToWrite(std::string const& fileName) {
  fail("write " + fileName, std::error_code(errno, std::generic_category()),
       "make room, or give another directory");
}

/// The same file may have several names.
void refuseToReplace(std::vector<std::string> const& inputs, std::string const& output) {
  for (std::string const& input : inputs) {
    std::error_code error;
    if (!std::filesystem::equivalent(input, output, error)) continue;
    throw CaptureError(message("writing ", output, " would destroy ", input,
                               ", which is being replayed; give another directory with --write"));
  }
}

}  // namespace

void SentCaptures::Closer::operator()(pcap* handle) const noexcept {
  pcap_close(handle);
}

void SentCaptures::Closer::operator()(pcap_dumper* dumper) const noexcept {
  pcap_dump_close(dumper);
}

SentCaptures::SentCaptures(std::string const& directory, std::vector<Wirex::IntfId> const& ports,
                           std::vector<std::string> const& inputs)
    : directory_(directory),
      format_(pcap_open_dead_with_tstamp_precision(DLT_EN10MB, snapLength,
                                                   PCAP_TSTAMP_PRECISION_NANO)) {
  std::error_code error;
  std::filesystem::create_directories(directory_, error);
  if (error)
    fail("make directory " + directory, error, "give one that can be made or is there already");
  for (Wirex::IntfId const& port : ports)
    for (std::string const& output : {wholeName(port), partialName(port)})
      refuseToReplace(inputs, output);
  for (Wirex::IntfId const& port : ports) {
    std::filesystem::remove(wholeName(port), error);
    captures_.emplace(port, open(port));
  }
}

SentCaptures::~SentCaptures() = default;

std::string SentCaptures::wholeName(Wirex::IntfId const& port) const {
  return directory_ / (port.stringValue().c_str() + std::string(".pcap"));
}

std::string SentCaptures::partialName(Wirex::IntfId const& port) const {
  return wholeName(port) + ".part";
}

SentCaptures::Dumper SentCaptures::open(Wirex::IntfId const& port) const {
  std::string const fileName = partialName(port);
  errno = 0;
  Dumper dumper(pcap_dump_open(format_.get(), fileName.c_str()));
  if (!dumper) {
    std::error_code const error(errno, std::generic_category());
    fail("write " + fileName, error,
         errno == EMFILE ? "each port needs a descriptor, so raise the limit: ulimit -n"
                         : "give a directory that can be written to");
  }
  return dumper;
}

void SentCaptures::write(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes frame) {
  auto const seconds = std::chrono::floor<std::chrono::seconds>(time);
  pcap_pkthdr header{};
  header.ts.tv_sec = seconds.count();
  header.ts.tv_usec = (time - seconds).count();  // nanoseconds: see the format
  header.len = header.caplen = static_cast<bpf_u_int32>(frame.size());
  pcap_dumper* const dumper = captures_.at(port).get();
  errno = 0;
  pcap_dump(reinterpret_cast<unsigned char*>(dumper), &header, frame.data());
  if (std::ferror(pcap_dump_file(dumper))) failToWrite(partialName(port));
}

void SentCaptures::finish() {
  for (auto& [port, dumper] : captures_) {
    std::string const partial = partialName(port);
    errno = 0;
    if (pcap_dump_flush(dumper.get()) != 0) failToWrite(partial);
    dumper.reset();
  }
  for (auto const& [port, dumper] : captures_) {
    std::error_code error;
    std::filesystem::rename(partialName(port), wholeName(port), error);
    if (error) fail("rename " + partialName(port), error, "give another directory");
  }
}

}  // namespace Agent

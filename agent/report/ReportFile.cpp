#include "agent/report/ReportFile.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "agent/report/ReportPage.h"
#include "agent/text/Wording.h"

namespace Agent {

ReportFile::ReportFile(std::string name, std::vector<std::string> const& inputs)
    : name_(std::move(name)), partialName_(name_ + ".part") {
  for (std::string const& input : inputs)
    for (std::string const& output : {name_, partialName_}) {
      std::error_code error;
      // The same file may have several names.
      if (std::filesystem::equivalent(input, output, error))
        throw std::runtime_error(message("writing ", output, " would destroy ", input,
                                         ", which the report is made from; name another file"));
    }
  if (std::error_code error; std::filesystem::is_directory(name_, error)) fail(EISDIR);
  errno = 0;
  file_.open(partialName_, std::ios::binary | std::ios::trunc);
  if (!file_) fail(errno);
}

ReportFile::~ReportFile() {
  if (!isWhole_) std::remove(partialName_.c_str());
}

void ReportFile::write(ReportData const& data) {
  errno = 0;
  printReport(file_, data);
  file_.close();
  isWhole_ = file_ && std::rename(partialName_.c_str(), name_.c_str()) == 0;
  if (!isWhole_) fail(errno);
}

void ReportFile::fail(int error) const {
  throw std::runtime_error(message("cannot write ", name_, ": ",
                                   std::generic_category().message(error),
                                   "; make room, or name another file"));
}

}  // namespace Agent

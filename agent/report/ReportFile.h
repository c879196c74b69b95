#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "agent/report/ReportData.h"

namespace Agent {

/// The file of a report page. It is written beside its place first, so that what is there is whole,
/// or as it was.
class ReportFile {
 public:
  /// Throws std::runtime_error that says what to do, as write() does: also if the file is one of
  /// those that the report is made from.
  ReportFile(std::string name, std::vector<std::string> const& inputs);
  ReportFile(ReportFile const&) = delete;
  ReportFile& operator=(ReportFile const&) = delete;
  ~ReportFile();

  void write(ReportData const& data);

 private:
  [[noreturn]] void fail(int error) const;

  std::string name_;
  std::string partialName_;
  std::ofstream file_;
  bool isWhole_ = false;
};

}  // namespace Agent

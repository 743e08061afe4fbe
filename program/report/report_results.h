#ifndef KEELSTONE_PROGRAM_REPORT_REPORT_RESULTS_H
#define KEELSTONE_PROGRAM_REPORT_REPORT_RESULTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "program/evaluate/line_faults.h"
#include "program/evaluate/line_reader.h"
#include "program/file_descriptor.h"
#include "program/report/report_findings.h"

namespace keelstone::host {

/// Reads result files into findings, and counts the lines that are none. Files can be read
/// a second time: of what is no plain file a copy is kept in a nameless temporary file. One
/// thread.
class ReportResults {
 public:
  ReportResults(const std::vector<std::string>& domains, std::size_t maxLine,
                const StopRequest& stop, ReportFindings& findings);

  /// Why a file cannot be read; empty when all of it was. "-" is standard input.
  std::string Read(const std::string& path);
  /// Reads all files again, as far as they were read; why it cannot, else empty.
  std::string ReadAgain();
  std::uint64_t skipped() const noexcept { return faults_.count(); }

 private:
  struct File {
    std::string path;
    FileDescriptor copy;     // of what cannot be read twice
    int copyFault = 0;       // errno: why there is none
    std::int64_t begin = 0;  // where reading begins
    std::uint64_t size = 0;  // bytes that were read
  };

  std::string ReadLines(File& file, int fd);
  std::string ReadLines(File& file);
  void Skip(const File& file, const LineReader& reader, const std::string& fault);

  const std::vector<std::string>& domains_;
  const std::size_t maxLine_;
  const StopRequest& stop_;
  ReportFindings& findings_;
  Console console_{false};
  LineFaults faults_;
  bool isAgain_ = false;
  std::vector<File> files_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_REPORT_RESULTS_H

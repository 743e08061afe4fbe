#include "program/report/report_results.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "keelstone/text_escape.h"

namespace keelstone::host {

namespace {

std::string NameOf(const std::string& path) { return path == "-" ? "<stdin>" : Printable(path); }

std::string TemporaryFolder() {
  const char* const folder = std::getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/var/tmp";
}

/// A file that nobody else finds, and that is gone when it is closed.
FileDescriptor NamelessFile() {
  const std::string folder = TemporaryFolder();
  FileDescriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (file.valid()) return file;
  std::string name = folder + "/keelstone.XXXXXX";
  file = FileDescriptor(::mkostemp(name.data(), O_CLOEXEC));
  if (file.valid()) ::unlink(name.c_str());
  return file;
}

FileDescriptor Open(const std::string& path) {
  return path == "-" ? FileDescriptor()
                     : FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

}  // namespace

ReportResults::ReportResults(const std::vector<std::string>& domains, std::size_t maxLine,
                             const StopRequest& stop, ReportFindings& findings)
    : domains_(domains),
      maxLine_(maxLine),
      stop_(stop),
      findings_(findings),
      faults_(console_, "keelstone report: further lines that are skipped are only counted") {}

std::string ReportResults::Read(const std::string& path) {
  File& file = files_.emplace_back();
  file.path = path;
  const FileDescriptor opened = Open(path);
  if (path != "-" && !opened.valid()) return NameOf(path) + ": " + std::strerror(errno);
  const int fd = opened.valid() ? opened.get() : STDIN_FILENO;
  struct stat status{};
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
    file.begin = ::lseek(fd, 0, SEEK_CUR);
  } else {
    file.copy = NamelessFile();
    if (!file.copy.valid()) file.copyFault = errno;
  }
  return ReadLines(file, fd);
}

std::string ReportResults::ReadAgain() {
  isAgain_ = true;
  for (File& file : files_) {
    if (file.copyFault != 0) {
      return NameOf(file.path) + ": cannot be read twice, and no copy can be kept in " +
             Printable(TemporaryFolder()) + ": " + std::strerror(file.copyFault);
    }
    const FileDescriptor opened = Open(file.path);
    int fd = opened.valid() ? opened.get() : STDIN_FILENO;
    if (file.copy.valid()) {
      fd = file.copy.get();
    } else if (file.path != "-" && !opened.valid()) {
      return NameOf(file.path) + ": " + std::strerror(errno);
    }
    if (::lseek(fd, file.begin, SEEK_SET) < 0) {
      return NameOf(file.path) + ": " + std::strerror(errno);
    }
    if (std::string fault = ReadLines(file, fd); !fault.empty()) return fault;
  }
  return {};
}

std::string ReportResults::ReadLines(File& file, int fd) {
  LineReader reader(fd, stop_, maxLine_);
  if (!isAgain_ && file.copy.valid()) reader.CopyTo(file.copy.get());
  std::string_view line;
  while (!isAgain_ || reader.position() < file.size) {
    const LineReader::Got got = reader.Next(line);
    if (got == LineReader::Got::kFailed) return NameOf(file.path) + ": " + std::strerror(errno);
    if (got == LineReader::Got::kEnd || got == LineReader::Got::kStopped) break;
    if (got == LineReader::Got::kTooLong) {
      Skip(file, reader, TooLongText(maxLine_));
    } else if (got == LineReader::Got::kNoMemory) {
      Skip(file, reader, "no memory for the line");
    } else if (line.find_first_not_of(" \t\r") != std::string_view::npos &&
               !findings_.Take(line, domains_)) {
      Skip(file, reader, findings_.fault());
    }
  }
  if (!isAgain_) {
    file.size = reader.position();
    file.copyFault = file.copyFault != 0 ? file.copyFault : reader.copyFailure();
  }
  return {};
}

void ReportResults::Skip(const File& file, const LineReader& reader, const std::string& fault) {
  if (isAgain_) return;  // it is told and counted
  faults_.Add(NameOf(file.path) + ":" + std::to_string(reader.lineNumber()) + ": " + fault);
}

}  // namespace keelstone::host

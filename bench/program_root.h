#ifndef KEELSTONE_BENCH_PROGRAM_ROOT_H
#define KEELSTONE_BENCH_PROGRAM_ROOT_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "bench/program_run.h"
#include "bench/stored_fleet.h"
#include "bench/work_root.h"

namespace keelstone::bench {

/// A root folder that the program works in, with the settings that it has without any.
class ProgramRoot {
 public:
  /// Roots with one name are one.
  explicit ProgramRoot(const WorkRoot& root, const std::string& name = "program");

  std::filesystem::path File(const std::string& name) const { return path_ / name; }
  std::filesystem::path DomainFolder(const std::string& domain) const {
    return path_ / "data" / "FSParserData" / domain;
  }
  /// Evaluates one of its files, and enrolls; `more` are further arguments.
  ProgramRun Evaluate(const std::string& domain, const std::string& input,
                      const std::vector<std::string>& more = {}) const;
  /// How many histories are stored.
  std::int64_t Histories(const std::string& domain) const;
  /// What its databases take on disk.
  std::size_t Bytes(const std::string& domain) const;
  /// Keeps rows waiting until the program needs them on disk.
  void NeverFlushByItself() const;

 private:
  std::filesystem::path path_;
};

/// A domain with a stored fleet, of which the same number of devices runs again and again.
class StoredProgram {
 public:
  StoredProgram(const ProgramRoot& root, std::string domain, const Fleet& fleet);

  ProgramRun Run(std::size_t devices);
  std::size_t devices() const noexcept { return fleet_.devices; }

 private:
  ProgramRoot root_;
  std::string domain_;
  Fleet fleet_;
  std::size_t next_;
};

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_PROGRAM_ROOT_H

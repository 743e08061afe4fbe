#ifndef KEELSTONE_BENCH_WORK_ROOT_H
#define KEELSTONE_BENCH_WORK_ROOT_H

#include <filesystem>
#include <string>

namespace keelstone::bench {

/// The system root folder of the benchmarks, in the temporary folder (TMPDIR), removed
/// at the end. Its settings keep the write-behind worker from flushing on its own.
class WorkRoot {
 public:
  WorkRoot();
  ~WorkRoot();
  WorkRoot(const WorkRoot&) = delete;
  WorkRoot& operator=(const WorkRoot&) = delete;

  const std::filesystem::path& path() const noexcept { return path_; }
  /// "tmpfs", or "on disk".
  std::string Medium() const;
  /// The folder of a domain's databases.
  std::filesystem::path DomainFolder(const std::string& domainId) const;

 private:
  std::filesystem::path path_;
};

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_WORK_ROOT_H

#include "bench/program_root.h"

#include "bench/program_input.h"
#include "keelstone/cppsqlite3.h"

namespace keelstone::bench {

ProgramRoot::ProgramRoot(const WorkRoot& root, const std::string& name)
    : path_(root.path() / name) {
  std::filesystem::create_directories(path_);
}

ProgramRun ProgramRoot::Evaluate(const std::string& domain, const std::string& input,
                                 const std::vector<std::string>& more) const {
  std::vector<std::string> arguments = {"evaluate", "--enroll",          "--quiet",
                                        "--root",   path_.string(),      "--domain",
                                        domain,     File(input).string()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return RunKeelstone(arguments, File(domain + ".out"));
}

std::int64_t ProgramRoot::Histories(const std::string& domain) const {
  CppSQLite3DB db;
  db.open((DomainFolder(domain) / "KSObjectHistory.db").string());
  auto statement = db.compileStatement("select count(*) from KSObjectHistory");
  return statement.execQuery().getInt64Field(0);
}

std::size_t ProgramRoot::Bytes(const std::string& domain) const {
  std::size_t bytes = 0;
  for (const auto& file : std::filesystem::directory_iterator(DomainFolder(domain))) {
    bytes += file.file_size();
  }
  return bytes;
}

void ProgramRoot::NeverFlushByItself() const {
  std::filesystem::create_directories(File("conf"));
  WriteFile(File("conf/frontserver.ini"), "[Keelstone]\nCacheSize=1000000000\n");
}

StoredProgram::StoredProgram(const ProgramRoot& root, std::string domain, const Fleet& fleet)
    : root_(root), domain_(std::move(domain)), fleet_(fleet), next_(fleet.points) {
  StoreFleet(root_.DomainFolder(domain_), fleet_);
  Run(1);  // makes the other databases, and defines the variables
}

ProgramRun StoredProgram::Run(std::size_t devices) {
  WriteFleetInput(root_.File("run.jsonl"), fleet_, devices, FleetTime(next_++));
  return root_.Evaluate(domain_, "run.jsonl");
}

}  // namespace keelstone::bench

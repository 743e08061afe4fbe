#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <ostream>
#include <set>

#include "keelstone/block_periods.h"
#include "keelstone/cleaner.h"
#include "keelstone/data_cache_queue.h"
#include "keelstone/data_sync_manager.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/interface_translator.h"
#include "keelstone/object_listing.h"
#include "keelstone/write_behind.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/domain_files.h"
#include "tests/support/faulty_io.h"
#include "tests/support/file_text.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

// Every operation on the databases meets every fault of the disk: the first operation on a
// file fails, then the second, and so on until the work gets through.
namespace keelstone::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDomain = "faults";
constexpr int kRows = 605;  // more than a transaction takes
constexpr int kFewRows = 20;

const ObjectDefine kDevice = Object("d");

struct Answer {
  int status = 0;
  std::string seen = {};  // what was read
};
using Work = std::function<Answer()>;

enum class Files { kNone, kFilled, kHalfWritten };

/// One operation and what it promises.
struct Operation {
  const char* name;
  Files before;
  bool writes;
  int done;    // its answer when all is well
  int failed;  // and when not
  // Makes what is done under the fault; what comes before that succeeds.
  std::function<Work()> make;
  // What is seen after a failure; nullptr when nothing is promised of it.
  const char* unread = nullptr;
  // Whether the same work, done again, makes good what a fault has left undone.
  bool resumes = true;
  // Whether all files are old or all are new, whatever fails.
  bool atOnce = false;
};

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

KSObjectRuleSql& Table() {
  static KSObjectRuleSql& table = []() -> KSObjectRuleSql& {
    static KSObjectRuleSql made("/FSParserData");
    made.InitDB(kDomain);
    return made;
  }();
  return table;
}

std::string Variable(int number) { return std::to_string(10000 + number); }

template <class Row>
std::vector<Row> Rows(const std::function<Row(const std::string&)>& row, int count = kRows) {
  std::vector<Row> rows;
  for (int i = 0; i < count; ++i) rows.push_back(row(Variable(i)));
  return rows;
}

std::vector<ObjectRuleHistoryData> Histories(const std::string& text, int count = kRows) {
  return Rows<ObjectRuleHistoryData>(
      [&](const std::string& name) { return HistoryRow("d", name, text); }, count);
}

std::vector<ObjectRuleData> Rules(const std::string& param, const std::string& history,
                                  int count = kRows) {
  return Rows<ObjectRuleData>(
      [&](const std::string& name) { return RuleRow("d", name, Definition(param, history)); },
      count);
}

std::string Seen(const DevParserRule& rules) {
  std::string text;
  for (const auto& [interface, variables] : rules) {
    for (const auto& [name, definition] : variables) text += name + definition->ruleParam + ' ';
  }
  return text;
}

std::string Seen(const DevParserHistory& histories) {
  std::string text;
  for (const auto& [interface, variables] : histories) {
    for (const auto& [name, history] : variables) text += name + history + ' ';
  }
  return text;
}

/// Work that only has an answer.
std::function<Work()> Plain(const std::function<int()>& work) {
  return [work] { return Work([work] { return Answer{work(), {}}; }); };
}

/// A settings table that reads its file: what it shows then.
template <class Sql>
std::function<Work()> Load(const std::function<std::string(Sql&)>& show) {
  return [show] {
    auto table = std::make_shared<Sql>("/FSParserData");
    table->InitDB(kDomain);
    return Work([table, show] {
      const int status = table->LoadDBData();
      return Answer{status, show(*table)};
    });
  };
}

/// A query of one table into `Out`.
template <class Out>
std::function<Work()> Query(const std::function<int(Out&)>& query) {
  return [query] {
    return Work([query] {
      Out out;
      const int status = query(out);
      return Answer{status, Seen(out)};
    });
  };
}

std::function<Work()> QueryUnits(int more) {
  return Query<DevParserRule>([more](DevParserRule& out) {
    std::vector<std::shared_ptr<UnitKey>> keys{std::make_shared<UnitKey>("d", "source", "param")};
    for (int i = 0; i < more; ++i) {
      keys.push_back(std::make_shared<UnitKey>("e" + std::to_string(i), "source", "param"));
    }
    std::map<std::string, std::shared_ptr<DevParserRule>> units;
    const int status =
        Table().GetMultiRuleDefinitionDataByDevParsers(units, keys, kVariableSourceParser);
    for (const auto& [key, unit] : units) out.insert(unit->begin(), unit->end());
    return status;
  });
}

std::function<Work()> FetchHistories() {
  return [] {
    auto queue = std::make_shared<KSDataCacheQueue>();
    auto table = std::make_shared<KSObjectRuleSql>("/FSParserData");
    table->InitDB(kDomain);
    queue->SetKSObjectRuleSql(table);
    return Work([queue] {
      const auto key = std::make_shared<UnitKey>("d", "source", "param");
      const std::uint64_t failures = GetFailedReadCount();
      auto unit = queue->GetHistoryData(key);
      // On a busy machine the loader may come too late for one call.
      for (int i = 0; i < 100 && unit == nullptr && GetFailedReadCount() == failures; ++i) {
        unit = queue->GetHistoryData(key);
      }
      return Answer{0, unit == nullptr ? "absent" : Seen(*unit)};
    });
  };
}

std::string Delivered(int type) {
  return VXFileSystem::GetSystemRootFolder() + "delivered/" + std::to_string(type);
}

using MergeCall = bool (FSKSDataSyncManager::*)(const std::string&, const std::string&,
                                                const std::string&, bool);

std::function<Work()> Merge(MergeCall merge, int type) {
  return Plain([merge, type] {
    return (FSKSDataSyncManager::Instance()->*merge)(Delivered(type), DomainFile(type, kDomain),
                                                     kDomain, true)
               ? 1
               : 0;
  });
}

/// An edit, which says why it failed.
std::function<Work()> Edit(const std::function<std::string()>& edit) {
  return Plain([edit] { return edit().empty() ? 1 : 0; });
}

void Cache() {
  DBWriteWrapper::Instance()->CacheData(kDomain, "d", Rules("new", "new", kFewRows),
                                        Histories("newer", kFewRows));
}

std::vector<Operation> Operations() {
  const auto none = Files::kNone;
  const auto filled = Files::kFilled;
  return {
      // Rules and histories: written
      {"WriteHistories", filled, true, -1, -1,
       Plain([] { return Table().SetRuleHistoryData(Histories("new")); })},
      {"WriteFirstHistories", none, true, -1, -1,
       Plain([] { return Table().SetRuleHistoryData(Histories("new", kFewRows)); })},
      {"WriteDomain", filled, true, 2 * kFewRows, 2 * kFewRows,
       [] {
         Cache();
         return Work([] { return Answer{DBWriteWrapper::Instance()->WriteDomain(kDomain), {}}; });
       },
       nullptr, true, true},
      // removed
      {"Clean", filled, true, 0, 0,
       [] {
         auto cleaner = std::make_shared<CKSCleaner>();
         cleaner->SetDomainId(kDomain);
         cleaner->SetCurrAllParserPaths({"kept"});
         return Work([cleaner] {
           cleaner->CleanData();
           return Answer{};
         });
       },
       nullptr, false},  // a history whose rule has gone is found by no cleaner
      // read
      {"ReadManyRuleUnits", filled, false, -1, -1, QueryUnits(1000)},
      {"QueueHistories", filled, false, 0, 0, FetchHistories(), "absent"},
      {"ListObjects", filled, false, 1, 0,
       [] {
         return Work([] {
           ObjectListing listing(kDomain,
                                 {.filter = {"d"}, .withHistories = true, .pageSize = 500});
           std::vector<StoredObject> page;
           Answer answer{1, {}};
           do {
             if (!listing.NextPage(page).empty()) return Answer{0, {}};
             for (const auto& object : page) answer.seen += object.key[4] + object.history + ' ';
           } while (!page.empty());
           return answer;
         });
       }},
      // Edits
      {"PrescribeRule", filled, true, 1, 0, Edit([] {
         return PrescribeRule(kDomain, {.key = {"d", "", "source", "param", Variable(0)},
                                        .type = kIntLEQ,
                                        .parameter = "fixed",
                                        .history = "fitted"});
       })},
      {"RemoveRule", filled, true, 1, 0,
       Edit([] { return RemoveRule(kDomain, {"d", "", "source", "param", Variable(1)}); })},
      {"StoreSetting", filled, true, 1, 0, Edit([] {
         return StoreSetting(kDomain, {.path = {}, .row = "KSTableCountLimit", .members = {}}, 18)
             .why;
       })},
      {"RemoveBlockPeriods", filled, true, 1, 0, Edit([] {
         std::vector<BlockPeriod> removed;
         const EditOutcome outcome = RemoveBlockPeriods(kDomain, {1}, false, removed);
         // Refused: it is gone already.
         return outcome.kind == EditOutcome::Kind::kFailed ? outcome.why : std::string();
       })},
      // Settings
      {"LoadGlobalSettings", filled, false, 1, 0,
       Load<KSGlobalSettingSql>(
           [](KSGlobalSettingSql& table) { return std::to_string(table.GetTableLimitcount()); }),
       "5000"},
      {"LoadInterfaceNames", filled, false, 1, 0, Plain([] {
         return InterfaceTranslator::Instance()->LoadDataFromDB(
                    kDomain, DomainFile(kDbInterfaceType, kDomain))
                    ? 1
                    : 0;
       })},
      {"AddVariableRules", filled, true, 1, 0,
       [] {
         auto table = std::make_shared<KSVariableRuleSql>("/FSParserData");
         table->InitDB(kDomain);
         table->LoadDBData();
         return Work([table] {
           std::vector<RuleDefinitionData> added;
           for (const char* name : {"a", "b"}) {
             added.emplace_back(kRuleTypeNone, 2, "", "s", name, 1, "");
           }
           const bool done = table->AddRuleDefinitions(added);
           // In memory when they are on disk, and else not.
           EXPECT_EQ(table->IsExistRuleDefinition("s", "a", kVariableSourceParser), done);
           EXPECT_EQ(table->IsExistRuleDefinition("s", "b", kVariableSourceParser), done);
           return Answer{done ? 1 : 0, {}};
         });
       }},
      // Deliveries
      {"MergeRules", filled, true, 1, 0,
       Merge(&FSKSDataSyncManager::MergeObjectRule, kDbObjectRule)},
      {"MergeFirstBlockPeriods", none, true, 1, 0,
       Merge(&FSKSDataSyncManager::MergeBlockSetting, kDbBlockSetting)},
      {"MergeBlockPeriodsOverAHalfWrittenFile", Files::kHalfWritten, true, 1, 0,
       Merge(&FSKSDataSyncManager::MergeBlockSetting, kDbBlockSetting)},
  };
}

/// The domain's folder, put back before each attempt.
class DomainState {
 public:
  using Snapshot = std::map<std::string, std::string>;  // file name → bytes
  using Contents = std::map<std::string, std::string>;  // file name → what its tables hold

  static fs::path Folder() { return fs::path(DomainFile(kDbObjectRule, kDomain)).parent_path(); }

  static Snapshot Take() {
    Snapshot files;
    if (!fs::exists(Folder())) return files;
    for (const auto& entry : fs::directory_iterator(Folder())) {
      files[entry.path().filename()] = FileText(entry.path());
    }
    return files;
  }

  static void Restore(const Snapshot& snapshot) {
    fs::remove_all(Folder());
    for (const auto& [name, bytes] : snapshot) WriteFile((Folder() / name).string(), bytes);
  }

  /// What a process that starts anew finds. Fails the test when a database is damaged.
  static Contents Read() {
    Contents contents;
    for (const auto& [type, name] : kFiles) contents[name] = ReadFile(Folder() / name);
    return contents;
  }

  /// What else lies in the folder.
  static std::string LeftOvers() {
    std::string names;
    for (const auto& [name, bytes] : Take()) {
      if (!name.ends_with(".db")) names += name + ' ';
    }
    return names;
  }

 private:
  inline static const std::map<int, std::string> kFiles = {
      {kDbGlobalSetting, "KSGlobalSetting.db"}, {kDbVariableRule, "KSVariableRule.db"},
      {kDbBlockSetting, "KSBlockSetting.db"},   {kDbInterfaceType, "KSInterfaceType.db"},
      {kDbObjectRule, "KSObjectRule.db"},       {kDbObjectHistory, "KSObjectHistory.db"}};

  static std::string ReadFile(const fs::path& file) {
    if (!fs::exists(file) || fs::file_size(file) == 0) return "";
    try {
      EXPECT_EQ(Ask(file, "pragma integrity_check"), "ok") << file;
      const std::string table = file.stem();
      const char* const columns = table == "KSObjectRule"      ? "variableName || ruleAlgParameter"
                                  : table == "KSObjectHistory" ? "variableName || HistoryData"
                                                               : "data";
      if (Ask(file, "select 1 from sqlite_master where name = '" + table + "'") != "1") return "";
      return "rows " + Ask(file, std::string("select group_concat(x) from (select ") + columns +
                                     " as x from " + table + " order by 1)");
    } catch (const CppSQLite3Exception& error) {
      ADD_FAILURE() << error.file() << ": " << error.errorMessage();
      return "unreadable";
    }
  }
};

class StorageFault : public ::testing::TestWithParam<Operation> {
 protected:
  static void SetUpTestSuite() {
    root = new TempRoot;
    // The worker stays out of it.
    WriteFile((root->path() / "conf/fix_frontserver.ini").string(),
              "[Keelstone]\nCacheTime=36000\nCacheSize=1000000\n");
    // Large pages: fewer operations on the files, and each kind of them all the same.
    for (const int type : {kDbObjectRule, kDbObjectHistory}) {
      Execute(DomainFile(type, kDomain), {"pragma page_size=32768", "vacuum"});
    }
    DomainFiles domain(kDomain);
    domain.SetGlobal("KSTableCountLimit", "17");
    domain.AddVariableRule({.source = "s", .name = "v"});
    domain.AddBlock({"d"}, 1, 2);
    MakeDataTable(domain.Path(kDbInterfaceType), "KSInterfaceType", {"{}"});
    Table().SetRuleAlgParam(Rules("old", "", kFewRows));
    Table().SetRuleHistoryData(Histories("old"));
    KSDomainDataManager::Instance()->GetKSDataManager(kDomain);
    filled = DomainState::Take();
    MakeHalfWritten(domain.Path(kDbBlockSetting));
    fs::create_directory(root->path() / "delivered");
    DomainState::Restore(filled);
    for (const int type : {kDbGlobalSetting, kDbVariableRule, kDbBlockSetting, kDbInterfaceType}) {
      const std::string table = fs::path(domain.Path(EnumDbType(type))).stem();
      MakeDataTable(Delivered(type), table, {"{\"name\":\"delivered\"}", "{}"});
    }
    fs::copy_file(domain.Path(kDbObjectRule), Delivered(kDbObjectRule));
    Execute(Delivered(kDbObjectRule), {"update KSObjectRule set ruleAlgParameter = 'delivered'"});
  }
  static void TearDownTestSuite() { delete root; }

  // As a writer that was killed leaves it: half new, beside its journal.
  static void MakeHalfWritten(const std::string& file) {
    CppSQLite3DB db;
    db.open(file);
    db.compileStatement("pragma cache_size=2").execQuery();
    db.execDML("begin transaction;");
    db.execDML(
        "insert into KSBlockSetting (data) with recursive n(i) as (select 1 union all select i + 1 "
        "from n where i < 500) select 'half' || hex(zeroblob(100)) from n");
    halfWritten = DomainState::Take();
    ASSERT_TRUE(halfWritten.contains("KSBlockSetting.db-journal"));
  }

  static const DomainState::Snapshot& Before() {
    switch (GetParam().before) {
      case Files::kFilled:
        return filled;
      case Files::kHalfWritten:
        return halfWritten;
      default:
        return none;
    }
  }

  // Runs the operation without a fault and notes every state that a crash could leave.
  void RunUndisturbed() {
    DomainState::Restore(Before());
    const Work work = GetParam().make();
    std::vector<DomainState::Snapshot> commits;
    {
      FaultyIo io;
      io.OnCommit([&] { commits.push_back(DomainState::Take()); });
      const Answer answer = work();
      EXPECT_EQ(answer.status, GetParam().done);
      whole = answer.seen;
    }
    last = DomainState::Read();
    Allow(last);
    for (const DomainState::Snapshot& commit : commits) {
      DomainState::Restore(commit);
      Allow(DomainState::Read());
    }
    DomainState::Restore(Before());
    first = DomainState::Read();
    Allow(first);
    ASSERT_EQ(GetParam().writes, first != last);
  }

  void Allow(const DomainState::Contents& contents) {
    for (const auto& [file, content] : contents) allowed[file].insert(content);
  }

  // One attempt; whether the fault came.
  bool RunWithFault(int at, IoFault fault) {
    DomainState::Restore(Before());
    const Work work = GetParam().make();
    const LogCapture log(kLogError);
    const std::uint64_t writes = GetFailedWriteCount();
    const std::uint64_t reads = GetFailedReadCount();
    Answer answer;
    bool failed = false;
    {
      FaultyIo io;
      io.FailAt(at, fault);
      answer = work();
      failed = io.HasFailed();
    }
    const bool isCounted = GetFailedWriteCount() != writes || GetFailedReadCount() != reads;
    CheckAnswer(answer, failed, isCounted || !log.Lines().empty());
    CheckFiles(answer, isCounted);
    if (isCounted) CheckLog(log);
    return failed;
  }

  void CheckAnswer(const Answer& answer, bool failed, bool isTold) const {
    const Operation& operation = GetParam();
    EXPECT_TRUE(answer.status == operation.done || answer.status == operation.failed)
        << answer.status;
    if (!failed) {
      EXPECT_EQ(answer.status, operation.done);
    }
    if (answer.seen == whole) return;
    EXPECT_TRUE(isTold);
    if (operation.unread != nullptr) {
      EXPECT_EQ(answer.seen, operation.unread);
    }
  }

  void CheckFiles(const Answer& answer, bool isCounted) const {
    const Operation& operation = GetParam();
    const DomainState::Contents found = DomainState::Read();
    for (const auto& [file, content] : found) {
      EXPECT_TRUE(allowed.at(file).contains(content)) << file << ": " << content.substr(0, 300);
    }
    if (!operation.writes) return;
    if (found != last) {
      EXPECT_TRUE(isCounted);
    }
    if (operation.atOnce) {
      EXPECT_TRUE(found == first || found == last);
    }
    if (answer.status == operation.done && operation.done != operation.failed) {
      EXPECT_EQ(found, last);
    }
  }

  static void CheckLog(const LogCapture& log) {
    bool isNamed = false;
    bool isClosed = false;
    for (const LogCapture::Line& line : log.Lines()) {
      isNamed |= line.message.find(root->path().string()) != std::string::npos;
      isClosed |= line.message.ends_with(" operate failed.") || line.module == "FS_AllRD" ||
                  line.source == "interface_translator";
    }
    EXPECT_TRUE(isNamed && isClosed) << ::testing::PrintToString(log.Messages());
  }

  // After the fault the same work comes to its end and leaves nothing lying about.
  void RunAgain() const {
    const Work work = GetParam().make();
    {
      const FaultyIo unsynced;
      const Answer answer = work();
      EXPECT_EQ(answer.status, GetParam().done);
      EXPECT_EQ(answer.seen, whole);
    }
    if (!GetParam().writes || !GetParam().resumes) return;
    EXPECT_EQ(DomainState::Read(), last);
    EXPECT_EQ(DomainState::LeftOvers(), "");
  }

  static inline TempRoot* root = nullptr;
  static inline DomainState::Snapshot none, filled, halfWritten;
  std::map<std::string, std::set<std::string>> allowed;  // by file: what may stand in it
  DomainState::Contents first;                           // before the work
  DomainState::Contents last;                            // when it is done
  std::string whole;                                     // likewise what was read
};

TEST_P(StorageFault, LeavesOldOrNewAndIsToldOf) {
  ASSERT_NO_FATAL_FAILURE(RunUndisturbed());
  using Kind = IoFault::Kind;
  for (const Kind kind : {Kind::kError, Kind::kShortWrite, Kind::kFull}) {
    for (const bool forever : {false, true}) {
      for (int at = 1;; ++at) {
        SCOPED_TRACE(::testing::Message() << "fault " << static_cast<int>(kind)
                                          << (forever ? " forever" : " once") << " at " << at);
        const bool failed = RunWithFault(at, {kind, forever});
        if (failed) RunAgain();
        if (HasFailure()) return;
        if (!failed) break;
        ASSERT_LT(at, 5000);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, StorageFault, ::testing::ValuesIn(Operations()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace keelstone::testing

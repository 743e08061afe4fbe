#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <set>
#include <string>

#include "bindings/c/domain_handle.h"
#include "keelstone/data_sync_manager.h"
#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"
#include "keelstone/gone_sources.h"
#include "keelstone/run_line.h"
#include "keelstone/table_base.h"
#include "keelstone/text_escape.h"
#include "keelstone/write_behind.h"

namespace keelstone::c {

namespace {

using Merge = bool (FSKSDataSyncManager::*)(const std::string&, const std::string&,
                                            const std::string&, bool);
struct MergeKind {
  int database;
  Merge merge;
};
constexpr std::array<MergeKind, 5> kMergeKinds = {{
    {kDbGlobalSetting, &FSKSDataSyncManager::MergeGlobalSetting},
    {kDbVariableRule, &FSKSDataSyncManager::MergeVariableRule},
    {kDbObjectRule, &FSKSDataSyncManager::MergeObjectRule},
    {kDbBlockSetting, &FSKSDataSyncManager::MergeBlockSetting},
    {kDbInterfaceType, &FSKSDataSyncManager::MergeInterfaceType},
}};
static_assert(int{KS_DATABASE_GLOBAL_SETTING} == kDbGlobalSetting &&
              int{KS_DATABASE_VARIABLE_RULE} == kDbVariableRule &&
              int{KS_DATABASE_OBJECT_RULE} == kDbObjectRule &&
              int{KS_DATABASE_BLOCK_SETTING} == kDbBlockSetting &&
              int{KS_DATABASE_INTERFACE_TYPE} == kDbInterfaceType);

// What the structure held first; it only grows.
constexpr std::size_t kLeastConfig =
    offsetof(ks_domain_config, max_ahead) + sizeof(ks_domain_config::max_ahead);

/// Opens a domain, and hands its handle out.
void OpenDomain(ks_domain** domain, const DomainOptions& options) {
  ks_domain*& handle = Required(domain, "domain");
  handle = nullptr;
  handle = DomainTable::Instance().Open(std::make_shared<DomainHandle>(options));
}

std::shared_ptr<DomainHandle> Find(const ks_domain* handle) {
  return DomainTable::Instance().Find(handle);
}

/// The sources of the domain that are not to be kept.
std::set<std::string> GoneSources(const std::string& id, const std::set<std::string>& kept) {
  SourceCounts stored;
  const std::string fault = StoredSources(id, stored);
  if (!fault.empty()) throw Failure(KS_ERROR_DATABASE, Printable(fault));
  std::set<std::string> gone;
  for (const auto& [source, rows] : stored) {
    if (!kept.contains(source)) gone.insert(source);
  }
  return gone;
}

}  // namespace

}  // namespace keelstone::c

using namespace keelstone;
using namespace keelstone::c;

ks_status ks_domain_open(const char* id, ks_domain** domain) {
  return Call([&] {
    OpenDomain(domain,
               {.id = std::string(RequiredText(id, "id")), .create = false, .enroll = false});
  });
}

ks_status ks_domain_create(const char* id, const char* settings, ks_domain** domain) {
  return Call([&] {
    // An empty text is no JSON, and told so.
    const char* const given = settings != nullptr && *settings == '\0' ? " " : settings;
    OpenDomain(domain, {.id = std::string(RequiredText(id, "id")),
                        .settings = given != nullptr ? given : "",
                        .enroll = false});
  });
}

ks_status ks_domain_close(ks_domain* domain) {
  return Call([&] { DomainTable::Instance().Close(domain); });
}

ks_status ks_domain_enroll(ks_domain* domain, int32_t on) {
  return Call([&] {
    if (on != 0 && on != 1) throw Failure(KS_ERROR_ARGUMENT, "on is neither 0 nor 1");
    Find(domain)->domain.SetEnroll(on == 1);
  });
}

ks_status ks_domain_configure(ks_domain* domain, const ks_domain_config* config, size_t size) {
  return Call([&] {
    const auto opened = Find(domain);
    const ks_domain_config known = TakeStructure(config, size, kLeastConfig, "config");
    IntakeStages stages;
    stages.judgeRepeated = known.judge_repeated != 0;
    stages.allowDuplicates = known.allow_duplicates != 0;
    if (known.max_ahead != 0) stages.maxAhead = std::max<std::int64_t>(known.max_ahead, 0);
    opened->domain.SetStages(stages);
  });
}

ks_status ks_domain_enrol(ks_domain* domain, int32_t on) { return ks_domain_enroll(domain, on); }

ks_status ks_domain_define(ks_domain* domain, const char* source, const char* name, int32_t type,
                           int32_t type_code) {
  return Call([&] {
    const auto opened = Find(domain);
    const auto dataType = static_cast<EnumKSDataType>(type);
    if (RunLineReader::DefaultTypeCode(dataType) == 0) {
      throw Failure(KS_ERROR_ARGUMENT, "type is none that a variable has");
    }
    const std::string variable(RequiredText(name, "name"));
    Require(opened->domain.Define(std::string(RequiredText(source, "source")), variable, dataType,
                                  type_code));
  });
}

ks_status ks_domain_flush(ks_domain* domain) {
  return Call([&] { Require(Find(domain)->domain.Flush()); });
}

ks_status ks_flush(void) {
  return Call([] {
    const std::uint64_t before = GetFailedWriteCount();
    DBWriteWrapper::Instance()->ForceWriteDisk();
    if (const std::uint64_t failed = GetFailedWriteCount() - before; failed > 0) {
      throw Failure(KS_ERROR_WRITE, std::to_string(failed) + " writes failed; the log says why");
    }
  });
}

ks_status ks_domain_merge(ks_domain* domain, int32_t database, const char* from) {
  return Call([&] {
    const auto opened = Find(domain);
    const std::string& id = opened->domain.id();
    const std::string file(RequiredText(from, "from"));
    for (const MergeKind& kind : kMergeKinds) {
      if (kind.database != database) continue;
      const std::string to = DomainDatabase(database, id);
      // Rows of before would be written over those that come.
      Require(opened->domain.Flush());
      const bool isMerged = (FSKSDataSyncManager::Instance()->*kind.merge)(file, to, id, true);
      Require(opened->domain.Reload());
      if (isMerged) return;
      throw Failure(KS_ERROR_DATABASE, "taking " + Printable(file) + " over into " + Printable(to) +
                                           " failed; the log says why");
    }
    throw Failure(KS_ERROR_ARGUMENT, "database is none that can be delivered");
  });
}

ks_status ks_domain_clean(ks_domain* domain, const char* const* keep, size_t count) {
  return Call([&] {
    const auto opened = Find(domain);
    const std::string& id = opened->domain.id();
    if (count == 0) throw Failure(KS_ERROR_ARGUMENT, "keep names no source");
    Required(keep, "keep");
    std::set<std::string> kept;
    for (std::size_t i = 0; i < count; ++i) {
      kept.emplace(RequiredText(keep[i], "an element of keep"));
    }
    // Rows of a source that is gone would be written after it was cleaned away.
    Require(opened->domain.Flush());
    const bool isClean = RemoveSources(id, GoneSources(id, kept));
    Require(opened->domain.Reload());
    if (!isClean) throw Failure(KS_ERROR_WRITE, "not all could be removed; the log says why");
  });
}

ks_status ks_domain_reload(ks_domain* domain) {
  return Call([&] { Require(Find(domain)->domain.Reload()); });
}

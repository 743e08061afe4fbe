#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bindings/c/domain_handle.h"
#include "keelstone/data_sync_manager.h"
#include "keelstone/database_files.h"
#include "keelstone/domain.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/domain_files.h"
#include "keelstone/gone_sources.h"
#include "keelstone/json_reader.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/run_line.h"
#include "keelstone/setting_paths.h"
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

std::string Named(const std::string& domainId) { return "domain \"" + Printable(domainId) + "\""; }

JsonValue SettingsOver(const char* settings) {
  JsonValue merged = DefaultGeneralSettings();
  if (settings == nullptr) return merged;
  JsonValue top;
  JsonParseError error;
  const JsonReadOptions options{.allowComments = true, .requireUtf8 = true};
  if (!JsonReader::Parse(settings, top, &error, options)) {
    throw Failure(KS_ERROR_INPUT, "settings: not JSON: " + Printable(error.message) + " at byte " +
                                      std::to_string(error.offset + 1));
  }
  const std::string fault = AcceptGeneralSettings(top);
  if (!fault.empty()) throw Failure(KS_ERROR_INPUT, "settings: " + Printable(fault));
  LayOver(merged, top);
  return merged;
}

void ReadAnew(KSDataManagerSql& data) {
  data.InvalidateKSGlobalSettingCaches();
  data.InvalidateKSVariableRuleCaches();
  data.InvalidateKSBlockSettingCaches();
}

/// Loads a domain whose files `prepare` has seen to, and hands its handle out.
template <class Prepare>
void OpenDomain(const char* id, ks_domain** domain, const Prepare& prepare) {
  ks_domain*& handle = Required(domain, "domain");
  handle = nullptr;
  auto opened = std::make_shared<DomainHandle>(std::string(RequiredText(id, "id")));
  RequireSameRoot(opened->id);
  prepare(opened->id);
  const DomainCheck check = CheckDomain(opened->id, true);
  if (check.condition != DomainCheck::Condition::kComplete) {
    throw Failure(KS_ERROR_DATABASE,
                  Named(opened->id) + " cannot be used: " + Printable(check.detail));
  }
  const bool isInherited = NoteRootOf(opened->id);
  const auto data = KSDomainDataManager::Instance()->GetKSDataManager(opened->id);
  if (isInherited) ReadAnew(*data);  // the parent goes on to change the domain
  handle = DomainTable::Instance().Open(std::move(opened));
}

std::string IdOf(const ks_domain* domain) { return DomainTable::Instance().Find(domain)->id; }

/// Runs what may write to databases; Failure when the number of failed writes rises.
template <class Work>
void Writing(const Work& work) {
  const std::uint64_t before = GetFailedWriteCount();
  work();
  if (const std::uint64_t failed = GetFailedWriteCount() - before; failed > 0) {
    throw Failure(KS_ERROR_WRITE, std::to_string(failed) + " writes failed; the log says why");
  }
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
  return Call([&] { OpenDomain(id, domain, [](const std::string&) {}); });
}

ks_status ks_domain_create(const char* id, const char* settings, ks_domain** domain) {
  return Call([&] {
    OpenDomain(id, domain, [&](const std::string& domainId) {
      const std::string fault = MakeDomain(domainId, SettingsOver(settings));
      if (!fault.empty()) {
        throw Failure(KS_ERROR_DATABASE, Named(domainId) + " cannot be made: " + Printable(fault));
      }
    });
  });
}

ks_status ks_domain_close(ks_domain* domain) {
  return Call([&] { DomainTable::Instance().Close(domain); });
}

ks_status ks_domain_enroll(ks_domain* domain, int32_t on) {
  return Call([&] {
    if (on != 0 && on != 1) throw Failure(KS_ERROR_ARGUMENT, "on is neither 0 nor 1");
    DomainTable::Instance().Find(domain)->enrolls.store(on == 1);
  });
}

ks_status ks_domain_configure(ks_domain* domain, const ks_domain_config* config, size_t size) {
  return Call([&] {
    const auto opened = DomainTable::Instance().Find(domain);
    const ks_domain_config known = TakeStructure(config, size, kLeastConfig, "config");
    IntakeStages stages;
    stages.judgeRepeated = known.judge_repeated != 0;
    stages.allowDuplicates = known.allow_duplicates != 0;
    if (known.max_ahead != 0) stages.maxAhead = std::max<std::int64_t>(known.max_ahead, 0);
    opened->SetStages(stages);
  });
}

ks_status ks_domain_enrol(ks_domain* domain, int32_t on) { return ks_domain_enroll(domain, on); }

ks_status ks_domain_define(ks_domain* domain, const char* source, const char* name, int32_t type,
                           int32_t type_code) {
  return Call([&] {
    const std::string id = IdOf(domain);
    const auto dataType = static_cast<EnumKSDataType>(type);
    const std::int32_t usual = RunLineReader::DefaultTypeCode(dataType);
    if (usual == 0) throw Failure(KS_ERROR_ARGUMENT, "type is none that a variable has");
    VarInfo variable;
    variable.variableName = RequiredText(name, "name");
    variable.variableType = type_code != 0 ? type_code : usual;
    const RuleDefinitionData definition =
        NewDefinition(std::string(RequiredText(source, "source")), variable);
    const auto data = KSDomainDataManager::Instance()->GetKSDataManager(id);
    if (!data->AddRuleDefinitions({definition})) {
      throw Failure(KS_ERROR_WRITE,
                    "the variable rules of " + Named(id) + " cannot be written; the log says why");
    }
  });
}

ks_status ks_domain_flush(ks_domain* domain) {
  return Call([&] {
    const std::string id = IdOf(domain);
    Writing([&] { DBWriteWrapper::Instance()->WriteDomain(id); });
  });
}

ks_status ks_flush(void) {
  return Call([] { Writing([] { DBWriteWrapper::Instance()->ForceWriteDisk(); }); });
}

ks_status ks_domain_merge(ks_domain* domain, int32_t database, const char* from) {
  return Call([&] {
    const auto opened = DomainTable::Instance().Find(domain);
    const std::string& id = opened->id;
    opened->judged->Clear();
    const std::string file(RequiredText(from, "from"));
    for (const MergeKind& kind : kMergeKinds) {
      if (kind.database != database) continue;
      const std::string to = DomainDatabase(database, id);
      if ((FSKSDataSyncManager::Instance()->*kind.merge)(file, to, id, true)) return;
      throw Failure(KS_ERROR_DATABASE, "taking " + Printable(file) + " over into " + Printable(to) +
                                           " failed; the log says why");
    }
    throw Failure(KS_ERROR_ARGUMENT, "database is none that can be delivered");
  });
}

ks_status ks_domain_clean(ks_domain* domain, const char* const* keep, size_t count) {
  return Call([&] {
    const auto opened = DomainTable::Instance().Find(domain);
    const std::string& id = opened->id;
    if (count == 0) throw Failure(KS_ERROR_ARGUMENT, "keep names no source");
    Required(keep, "keep");
    std::set<std::string> kept;
    for (std::size_t i = 0; i < count; ++i) {
      kept.emplace(RequiredText(keep[i], "an element of keep"));
    }
    // Rows of a source that is gone would be written after it was cleaned away.
    Writing([&] { DBWriteWrapper::Instance()->WriteDomain(id); });
    opened->judged->Clear();
    if (!RemoveSources(id, GoneSources(id, kept))) {
      throw Failure(KS_ERROR_WRITE, "not all could be removed; the log says why");
    }
  });
}

ks_status ks_domain_reload(ks_domain* domain) {
  return Call([&] {
    const auto opened = DomainTable::Instance().Find(domain);
    opened->judged->Clear();
    ReadAnew(*KSDomainDataManager::Instance()->GetKSDataManager(opened->id));
  });
}

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "bindings/c/run_handle.h"
#include "bindings/c/table_of.h"

namespace keelstone::c {

namespace {

// What the structures held first; they only grow.
constexpr std::size_t kLeastRunInfo =
    offsetof(ks_run_info, structure_id) + sizeof(ks_run_info::structure_id);
constexpr std::size_t kLeastTable = offsetof(ks_table, reserved) + sizeof(ks_table::reserved);

ParsedRun RunOf(const ks_run_info& info, const std::string& domainId) {
  ParsedRun run;
  run.domain = domainId;
  run.device = RequiredText(info.device, "device");
  run.source = RequiredText(info.source, "source");
  run.param = Text(info.param, "param");
  run.nodeId = Text(info.node_id, "node_id");
  run.nodePathSchema = Text(info.node_path_schema, "node_path_schema");
  run.structureId = Text(info.structure_id, "structure_id");
  run.time = info.time;
  run.onDemand = info.on_demand != 0;
  return run;
}

void Start(std::shared_ptr<DomainHandle> domain, ParsedRun run, ks_run*& handle) {
  handle =
      RunTable::Instance().Open(std::make_shared<RunHandle>(std::move(run), std::move(domain)));
}

template <class Value>
void Add(const ks_run* handle, const char* name, const char* interfaceValue, Value value) {
  const RunEntry run(handle);
  run->Add({std::string(RequiredText(name, "name")),
            std::string(Text(interfaceValue, "interface_value")), std::move(value)});
}

}  // namespace

}  // namespace keelstone::c

using namespace keelstone;
using namespace keelstone::c;

ks_status ks_run_start(ks_domain* domain, const ks_run_info* info, size_t size, ks_run** run) {
  return Call([&] {
    ks_run*& handle = Required(run, "run");
    handle = nullptr;
    const auto opened = DomainTable::Instance().Find(domain);
    const ks_run_info known = TakeStructure(info, size, kLeastRunInfo, "info");
    Start(opened, RunOf(known, opened->domain.id()), handle);
  });
}

ks_status ks_run_start_json(ks_domain* domain, const char* json, size_t length, ks_run** run) {
  return Call([&] {
    ks_run*& handle = Required(run, "run");
    handle = nullptr;
    const auto opened = DomainTable::Instance().Find(domain);
    const std::string& id = opened->domain.id();
    RunLineReader reader(id);
    ParsedRun parsed;
    if (!reader.Read(RequiredText(json, "json", length), parsed)) {
      throw Failure(KS_ERROR_INPUT, reader.fault());
    }
    if (parsed.domain != id) {
      throw Failure(KS_ERROR_INPUT, "domain: is not the one that the run is started in");
    }
    Start(opened, std::move(parsed), handle);
  });
}

ks_status ks_run_close(ks_run* run) {
  return Call([&] {
    const RunEntry inside(run);
    RunTable::Instance().Close(run);
  });
}

ks_status ks_run_add_int64(ks_run* run, const char* name, const char* interface_value,
                           int64_t value) {
  return Call([&] { Add(run, name, interface_value, value); });
}

ks_status ks_run_add_float(ks_run* run, const char* name, const char* interface_value,
                           float value) {
  return Call([&] { Add(run, name, interface_value, value); });
}

ks_status ks_run_add_double(ks_run* run, const char* name, const char* interface_value,
                            double value) {
  return Call([&] { Add(run, name, interface_value, value); });
}

ks_status ks_run_add_string(ks_run* run, const char* name, const char* interface_value,
                            const char* text, size_t length) {
  return Call(
      [&] { Add(run, name, interface_value, std::string(RequiredText(text, "text", length))); });
}

ks_status ks_run_add_table(ks_run* run, const char* name, const char* interface_value,
                           const ks_table* table, size_t size) {
  return Call([&] {
    Add(run, name, interface_value, TableOf(TakeStructure(table, size, kLeastTable, "table")));
  });
}

ks_status ks_run_add_json(ks_run* run, const char* json, size_t length) {
  return Call([&] {
    const RunEntry inside(run);
    inside->AddJson(RequiredText(json, "json", length));
  });
}

ks_status ks_run_explain(ks_run* run) {
  return Call([&] { RunEntry(run)->Explain(); });
}

ks_status ks_run_evaluate(ks_run* run) {
  return Call([&] { RunEntry(run)->Evaluate(); });
}

ks_status ks_run_store(ks_run* run) {
  return Call([&] { RunEntry(run)->Store(); });
}

ks_status ks_run_discard(ks_run* run) {
  return Call([&] { RunEntry(run)->Discard(); });
}

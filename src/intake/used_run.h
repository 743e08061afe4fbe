#ifndef KEELSTONE_INTAKE_USED_RUN_H
#define KEELSTONE_INTAKE_USED_RUN_H

#include <cstddef>
#include <string>

#include "keelstone/run_line.h"

namespace keelstone {

/// Makes a run that was used before one without anything, but for its variables, whose places
/// the next ones take (PlaceFor), and the memory of its texts.
inline void Renew(ParsedRun& run) {
  run.time = 0;
  run.onDemand = false;
  for (std::string* text :
       {&run.device, &run.source, &run.param, &run.nodeId, &run.nodePathSchema, &run.structureId}) {
    text->clear();
  }
  run.unread.clear();
}

/// The place of the variable behind `count` others: a new one, but for name and value text,
/// which every variable has.
inline VarInfo& PlaceFor(ParsedRun& run, std::size_t count) {
  if (count == run.variables.size()) return run.variables.emplace_back();
  VarInfo& variable = run.variables[count];
  variable.interfacePath.clear();
  variable.interfaceValue.clear();
  variable.variableType = 0;
  variable.tableFlag = 0;
  if (!variable.value.isNull()) variable.value = JsonValue();
  if (!variable.tableKeys.empty()) variable.tableKeys.clear();
  return variable;
}

}  // namespace keelstone

#endif  // KEELSTONE_INTAKE_USED_RUN_H

#ifndef KEELSTONE_RUN_VALUES_H
#define KEELSTONE_RUN_VALUES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// One parser run as a host has it in memory.
namespace keelstone {

/// Which device, which parser, when.
struct RunSubject {
  std::string device{};
  std::string source{};   // which parser
  std::string param{};    // the parser's parameter
  std::int64_t time = 0;  // of every value: seconds since the epoch
  bool onDemand = false;  // check, and learn nothing
  std::string nodeId{};
  std::string nodePathSchema{};
  std::string structureId{};
};

/// A cell of a table; nullptr for one without a value. A real is finite.
using TableCell = std::variant<std::nullptr_t, bool, std::int64_t, double, std::string>;

/// A table: tables with the same rows are equal.
struct ValueTable {
  std::vector<std::string> columns{};              // distinct names
  std::vector<std::vector<TableCell>> rows{};      // each as long as `columns`
  std::optional<std::vector<std::string>> keys{};  // the columns that are compared; all
  bool keepsOrder = false;                         // rows in another order make another table
};

/// One value, of the usual type code of its type (1 int64, 25 float, 2 double, 3 string, 11 table).
/// Names and texts are UTF-8, numbers finite. A bool is the text "true" or "false", as in a line of
/// input.
struct RunValue {
  std::string name{};
  std::string interfaceValue{};  // on which interface of the device; "" none
  std::variant<bool, std::int64_t, float, double, std::string, ValueTable> value{};
};

}  // namespace keelstone

#endif  // KEELSTONE_RUN_VALUES_H

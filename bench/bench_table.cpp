#include "bench/bench_table.h"

#include <algorithm>
#include <cstdio>

#include "keelstone/json_value.h"

namespace keelstone::bench {

namespace {

/// Median, quartiles and bounds of one value a round.
struct Spread {
  double median = 0;
  double lower = 0;
  double upper = 0;
  double least = 0;
  double most = 0;
};

/// The value below which `part` of the sorted values lie, between neighbours linearly.
double Quantile(const std::vector<double>& sorted, double part) {
  const double place = part * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  return sorted[below] + (sorted[above] - sorted[below]) * (place - static_cast<double>(below));
}

Spread SpreadOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return {Quantile(values, 0.5), Quantile(values, 0.25), Quantile(values, 0.75), values.front(),
          values.back()};
}

std::string Fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

/// A figure of any size with three digits at least.
std::string Figure(double value) { return Fixed(value, value < 10 ? 2 : value < 100 ? 1 : 0); }

std::string Bound(const BenchCase& one, const std::optional<double>& bound) {
  if (!bound) return "";
  return (one.better == Better::kSmaller ? "≤ " : "≥ ") + Fixed(*bound, 2);
}

const char* Verdict(const BenchCase& one, double ratio) {
  if (one.beyond && one.Meets(ratio, *one.beyond)) return "beyond";
  if (!one.goal) return "";
  return one.Meets(ratio, *one.goal) ? "met" : "missed";
}

/// Rows of cells, the first with the headings.
using Rows = std::vector<std::vector<std::string>>;

std::size_t Width(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  }));
}

std::string Markdown(const Rows& rows) {
  std::vector<std::size_t> widths(rows.front().size(), 1);
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
  }
  std::string text;
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      text += "| " + row[i] + std::string(widths[i] - Width(row[i]) + 1, ' ');
    }
    text += "|\n";
    if (&row != &rows.front()) continue;
    for (const std::size_t width : widths) text += "|" + std::string(width + 2, '-');
    text += "|\n";
  }
  return text;
}

void AddFigure(Rows& rows, const BenchCase& one, const std::string& what,
               const std::vector<double>& values) {
  const Spread spread = SpreadOf(values);
  rows.push_back({one.number, one.name, what, Figure(spread.median),
                  Figure(spread.lower) + " to " + Figure(spread.upper)});
}

JsonValue JsonList(const std::vector<double>& values) {
  JsonValue list(JsonType::Array);
  for (const double value : values) list.append(value);
  return list;
}

JsonValue JsonOf(const BenchCase& one, const CaseResult& result, bool judge) {
  JsonValue json;
  json["number"] = one.number;
  json["name"] = one.name;
  json["ours"] = one.ours;
  json["reference"] = one.reference;
  json["unit"] = one.unit;
  json["better"] = one.better == Better::kSmaller ? "smaller" : "larger";
  json["goal"] = one.goal ? JsonValue(*one.goal) : JsonValue();
  json["beyond"] = one.beyond ? JsonValue(*one.beyond) : JsonValue();
  if (judge) {
    const Spread spread = SpreadOf(result.ratios);
    json["median"] = spread.median;
    json["lowerQuartile"] = spread.lower;
    json["upperQuartile"] = spread.upper;
    json["least"] = spread.least;
    json["most"] = spread.most;
    json["verdict"] = Verdict(one, spread.median);
  }
  json["rounds"]["ratio"] = JsonList(result.ratios);
  json["rounds"]["ours"] = JsonList(result.ours);
  json["rounds"]["reference"] = JsonList(result.reference);
  for (const auto& [name, values] : result.figures) json["figures"][name] = JsonList(values);
  return json;
}

}  // namespace

std::string TableText(const BenchCases& cases, const CaseRunner& runner, bool judge) {
  Rows ratios = {{"#", "case", "what ÷ what", "goal", "beyond", "median", "quartiles", "verdict"}};
  Rows figures = {{"#", "case", "what", "median", "quartiles"}};
  for (const BenchCase& one : cases) {
    const CaseResult* const result = runner.Result(one);
    if (result == nullptr) continue;
    std::vector<std::string> row = {one.number, one.name, one.ours + " ÷ " + one.reference,
                                    Bound(one, one.goal), Bound(one, one.beyond)};
    if (judge) {
      const Spread spread = SpreadOf(result->ratios);
      row.insert(row.end(),
                 {Fixed(spread.median, 2), Fixed(spread.lower, 2) + " to " + Fixed(spread.upper, 2),
                  Verdict(one, spread.median)});
      AddFigure(figures, one, one.ours + ", " + one.unit, result->ours);
      AddFigure(figures, one, one.reference + ", " + one.unit, result->reference);
      for (const auto& [name, values] : result->figures) AddFigure(figures, one, name, values);
    } else {
      row.insert(row.end(), {"", "", "ran"});
    }
    ratios.push_back(std::move(row));
  }
  return Markdown(ratios) + (judge ? "\n" + Markdown(figures) : "");
}

std::string JsonText(const BenchContext& context, const BenchCases& cases, const CaseRunner& runner,
                     bool judge) {
  JsonValue document;
  for (const auto& [name, value] : context) document["context"][name] = value;
  JsonValue& list = document["cases"] = JsonValue(JsonType::Array);
  for (const BenchCase& one : cases) {
    const CaseResult* const result = runner.Result(one);
    if (result != nullptr) list.append(JsonOf(one, *result, judge));
  }
  return document.toString() + "\n";
}

}  // namespace keelstone::bench

#include "bench/program_input.h"

#include <array>
#include <fstream>
#include <random>
#include <stdexcept>

namespace keelstone::bench {

namespace {

std::string LearningValue(std::size_t device, std::size_t variable, std::mt19937_64& random) {
  switch (variable % 5) {
    case 0:
      return std::to_string(device);
    case 1:
      return std::to_string(100 + random() % 50);
    case 2:
      return "\"up\"";
    case 3:
      return std::to_string(20 + random() % 5) + "." + std::to_string(100 + random() % 900);
    default:
      return std::array{"1.5", "2.5", "3.5"}[random() % 3];
  }
}

}  // namespace

void WriteFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw std::runtime_error(path.string() + " cannot be written");
}

void WriteLearningInput(const std::filesystem::path& path, std::size_t devices, std::size_t runs,
                        std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::string lines;
  for (std::size_t run = 0; run < runs; ++run) {
    for (std::size_t device = 0; device < devices; ++device) {
      AppendRun(lines, FleetTime(run), device,
                [&](std::size_t i) { return LearningValue(device, i, random); });
    }
  }
  WriteFile(path, lines);
}

void WriteFleetInput(const std::filesystem::path& path, const Fleet& fleet, std::size_t devices,
                     std::int32_t time) {
  std::string lines;
  for (std::size_t i = 0; i < devices; ++i) {
    AppendRun(lines, time, i * (fleet.devices / devices),
              [](std::size_t) { return std::to_string(kFleetValue); });
  }
  WriteFile(path, lines);
}

void WriteStreamInput(const std::filesystem::path& path, std::size_t polls, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::string lines;
  for (std::size_t line = 0; line < polls * kStreamInterfaces; ++line) {
    const std::size_t interface = line % kStreamInterfaces;  // of 20 variables each
    lines += "{\"time\":" + std::to_string(FleetTime(0) + 30 * (line / kStreamInterfaces)) +
             ",\"device\":\"" + FleetDevice(0) + "\",\"source\":\"" + kFleetSource +
             "\",\"variables\":[{\"name\":\"load\",\"interface\":\"" +
             FleetInterface(20 * interface) +
             "\",\"value\":" + std::to_string(100 + random() % 50) + "}]}\n";
  }
  WriteFile(path, lines);
}

}  // namespace keelstone::bench

#include "bench/json_round_trip.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <stdexcept>

namespace keelstone::bench {

std::size_t JsonRoundTrip(const std::vector<std::string>& texts) {
  std::size_t bytes = 0;
  for (const std::string& text : texts) {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    if (document.HasParseError() || !document.Accept(writer)) {
      throw std::runtime_error("a text is no JSON");
    }
    bytes += buffer.GetSize();
  }
  return bytes;
}

}  // namespace keelstone::bench

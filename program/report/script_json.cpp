#include "program/report/script_json.h"

#include "keelstone/text_escape.h"

namespace keelstone::host {

namespace {

constexpr JsonWriteOptions kValidUtf8 = {.replaceInvalidUtf8 = true};

/// In JSON the escaped characters stand inside strings only.
std::string Escaped(const std::string& json) {
  std::string out;
  out.reserve(json.size() + json.size() / 64);
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (c == '<') {
      out.append("\\u003c");
    } else if (c == '>') {
      out.append("\\u003e");
    } else if (c == '&') {
      out.append("\\u0026");
    } else if (json.compare(i, 3, "\xe2\x80\xa8") == 0 || json.compare(i, 3, "\xe2\x80\xa9") == 0) {
      out.append(json[i + 2] == '\xa8' ? "\\u2028" : "\\u2029");
      i += 2;
    } else {
      out.push_back(c);
    }
  }
  return out;
}

}  // namespace

std::string ScriptText(const JsonValue& value) { return Escaped(value.toString(kValidUtf8)); }

void AppendScriptString(std::string& out, std::string_view bytes) {
  out.append(ScriptText(JsonValue(bytes)));
}

void AppendScriptNumber(std::string& out, const JsonValue& number) {
  const bool isWhole = number.isInt64();
  const bool isBeyond =
      isWhole ? number.asInt64() > kScriptSafeInteger || number.asInt64() < -kScriptSafeInteger
              : number.type() == JsonType::UInt;
  if (isBeyond) {
    AppendScriptString(out, number.toString());
  } else {
    number.appendTo(out);
  }
}

void AppendHtml(std::string& out, std::string_view bytes, std::size_t limit) {
  for (const char c : Printable(bytes, limit)) {
    switch (c) {
      case '<':
        out.append("&lt;");
        break;
      case '>':
        out.append("&gt;");
        break;
      case '&':
        out.append("&amp;");
        break;
      case '"':
        out.append("&quot;");
        break;
      case '\'':
        out.append("&#39;");
        break;
      default:
        out.push_back(c);
    }
  }
}

}  // namespace keelstone::host

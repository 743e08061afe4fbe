#include "program/report/report_page.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "program/report/report_parts.h"
#include "program/report/script_json.h"
#include "program/time_text.h"

namespace keelstone::host {

namespace {

// Details are read by the page a chunk at a time.
constexpr std::uint64_t kChunkVariables = 64;
constexpr std::size_t kChunkBytes = 256U << 10U;
constexpr std::size_t kListedEpisodes = 2000;
constexpr std::size_t kListedBytes = 200;  // of a name or a value

/// 'sha256-…' of a script or style, by which the page allows that one and no other.
std::string SourceHash(std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("the cryptographic library refuses SHA-256");
  }
  std::array<unsigned char, 2 * EVP_MAX_MD_SIZE> base64{};
  const int size = EVP_EncodeBlock(base64.data(), digest.data(), static_cast<int>(length));
  return "'sha256-" + std::string(base64.begin(), base64.begin() + size) + "'";
}

/// Nothing comes from anywhere, and only what stands in the page itself runs.
std::string ContentPolicy() {
  return "default-src 'none'; script-src " + SourceHash(kReportScript) + "; style-src " +
         SourceHash(kReportStyle) + "; base-uri 'none'; form-action 'none'";
}

void AppendCell(std::string& out, std::string_view text, std::string_view tag = "td") {
  out.append("<").append(tag).append("><bdi>");
  AppendHtml(out, text, kListedBytes);
  out.append("</bdi></").append(tag).append(">");
}

void AppendTime(std::string& out, std::int64_t time) {
  out.append("<td class=\"when\">").append(UtcTimeText(time)).append("</td>");
}

struct ListedEpisode {
  const ReportKey* key;
  const VariableFindings* variable;
  const FoundEpisode* episode;
};

/// The episodes with the latest alerts.
std::vector<ListedEpisode> NewestEpisodes(const ReportFindings& findings) {
  std::vector<ListedEpisode> episodes;
  for (const auto& [key, variable] : findings.variables()) {
    for (const FoundEpisode& episode : variable.episodes) {
      episodes.push_back({&key, &variable, &episode});
    }
  }
  std::stable_sort(episodes.begin(), episodes.end(),
                   [](const ListedEpisode& a, const ListedEpisode& b) {
                     return a.episode->last > b.episode->last;
                   });
  return episodes;
}

std::string EndInWords(const FoundEpisode& episode, bool isExact) {
  switch (episode.end) {
    case FoundEpisode::End::kOpen:
      return "open at the end of the results";
    case FoundEpisode::End::kCleared:
      return (isExact ? "cleared at " : "cleared not later than ") + UtcTimeText(episode.cleared);
    case FoundEpisode::End::kUnseen:
      return "cleared by a run that the results leave out";
  }
  return {};
}

void AppendListed(std::string& out, const ListedEpisode& listed, bool isExact) {
  const auto& [key, variable, episode] = listed;
  out.append("<tr>");
  AppendTime(out, episode->opened);
  AppendTime(out, episode->last);
  AppendCell(out, std::to_string(episode->count));
  AppendCell(out, EndInWords(*episode, isExact));
  for (std::size_t part = 1; part < key->size(); ++part) AppendCell(out, (*key)[part]);
  const FoundAlert& opening = episode->first.front();
  AppendCell(out, opening.value ? variable->texts[*opening.value] : "");
  AppendCell(out, variable->texts[opening.expectation]);
  out.append("</tr>\n");
}

void AppendTotals(std::string& out, const ReportTotals& totals) {
  out.append(",\"totals\":{\"devices\":").append(std::to_string(totals.devices));
  out.append(",\"variables\":").append(std::to_string(totals.variables));
  out.append(",\"withRule\":").append(std::to_string(totals.withRule));
  out.append(",\"prescribed\":").append(std::to_string(totals.prescribed));
  out.append(",\"episodes\":").append(std::to_string(totals.episodes));
  out.append(",\"states\":[");
  for (const std::uint64_t count : totals.states) {
    out.append(out.back() == '[' ? "" : ",").append(std::to_string(count));
  }
  out.append("]}");
}

}  // namespace

ReportPage::ReportPage(OutputFile& output, const ReportHead& head, const ReportFindings& findings)
    : output_(output), head_(head), findings_(findings), template_(kReportTemplate) {
  output_.Write(TemplateUpTo("{{policy}}"));
  output_.Write(ContentPolicy());
  output_.Write(TemplateUpTo("{{style}}"));
  output_.Write(kReportStyle);
  output_.Write(TemplateUpTo("{{alerts}}"));
  WriteAlertList();
  output_.Write(TemplateUpTo("{{data}}"));
}

std::string_view ReportPage::TemplateUpTo(std::string_view mark) {
  const std::size_t end = template_.find(mark);
  if (end == std::string_view::npos) throw std::logic_error("the page's template lacks a mark");
  const std::string_view text = template_.substr(0, end);
  template_.remove_prefix(end + mark.size());
  return text;
}

void ReportPage::WriteAlertList() {
  const std::vector<ListedEpisode> episodes = NewestEpisodes(findings_);
  std::string out;
  if (episodes.empty()) {
    output_.Write(head_.hasResults ? "<p>The results hold no alert.</p>"
                                   : "<p>No results were given: the databases alone hold no "
                                     "alerts.</p>");
    return;
  }
  out.append("<p>").append(std::to_string(findings_.alerts())).append(" alerts; those of one ");
  out.append("variable that follow each other are one line, the newest first.");
  if (head_.totals.episodes > std::min(episodes.size(), kListedEpisodes)) {
    out.append(" Of ").append(std::to_string(head_.totals.episodes)).append(" lines ");
    out.append(std::to_string(std::min(episodes.size(), kListedEpisodes))).append(" are shown.");
  }
  out.append("</p>\n<table class=\"plain\">\n<tr>");
  for (const char* name : {"First alert", "Last alert", "Alerts", "End", "Device", "Interface",
                           "Source", "Param", "Variable", "Value", "Expected"}) {
    AppendCell(out, name, "th");
  }
  out.append("</tr>\n");
  output_.Write(out);
  for (std::size_t i = 0; i < std::min(episodes.size(), kListedEpisodes); ++i) {
    out.clear();
    AppendListed(out, episodes[i], findings_.hasExactEnds());
    output_.Write(out);
  }
  output_.Write("</table>");
}

void ReportPage::Add(const ReportKey& key, const StoredObject& stored,
                     const VariableFindings* findings) {
  if (variables_++ != 0) rows_.append(",\n");
  rows_.append(ReportRow(key, stored, findings));
  if (inChunk_++ != 0) chunk_.append(",\n");
  chunk_.append(ReportDetail(stored, findings, budget_));
  if (inChunk_ == kChunkVariables || chunk_.size() >= kChunkBytes) WriteChunk();
}

void ReportPage::WriteChunk() {
  if (inChunk_ == 0) return;
  const std::uint64_t first = variables_ - inChunk_;
  chunkStarts_.append(chunkStarts_.empty() ? "" : ",").append(std::to_string(first));
  output_.Write("<script type=\"application/json\" id=\"details-" + std::to_string(first) + "\">[");
  output_.Write(chunk_);
  output_.Write("]</script>\n");
  chunk_.clear();
  inChunk_ = 0;
}

std::string ReportPage::Summary() const {
  std::string out = "{\"created\":" + std::to_string(head_.created) + ",\"domains\":[";
  for (std::size_t i = 0; i < head_.domains.size(); ++i) {
    if (i != 0) out.push_back(',');
    AppendScriptString(out, head_.domains[i]);
  }
  out.append("],\"chunks\":[").append(chunkStarts_).append("]");
  AppendTotals(out, head_.totals);
  if (head_.hasResults) {
    out.append(",\"results\":{\"runs\":").append(std::to_string(findings_.runs()));
    out.append(",\"alerts\":").append(std::to_string(findings_.alerts()));
    out.append(",\"skipped\":").append(std::to_string(head_.skippedLines));
    out.append(",\"quiet\":").append(findings_.hasQuietRuns() ? "true" : "false");
    out.append(",\"exact\":").append(findings_.hasExactEnds() ? "true" : "false");
    if (findings_.from()) {
      out.append(",\"from\":").append(std::to_string(*findings_.from()));
      out.append(",\"to\":").append(std::to_string(*findings_.to()));
    }
    out.append(",\"width\":").append(std::to_string(findings_.histogram().width()));
    out.append(",\"spans\":[");
    for (const auto& [start, count] : findings_.histogram().counts()) {
      out.append(out.back() == '[' ? "[" : ",[").append(std::to_string(start)).append(",");
      out.append(std::to_string(count)).append("]");
    }
    out.append("]}");
  }
  return out.append(",\n\"variables\":[\n");
}

void ReportPage::End() {
  WriteChunk();
  output_.Write("<script type=\"application/json\" id=\"report\">");
  output_.Write(Summary());
  output_.Write(rows_);
  output_.Write("]}</script>");
  output_.Write(TemplateUpTo("{{script}}"));
  output_.Write(kReportScript);
  output_.Write(template_);
}

}  // namespace keelstone::host

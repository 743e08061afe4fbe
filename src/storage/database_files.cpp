#include "keelstone/database_files.h"

#include <utility>

namespace keelstone {

namespace {

/// `folder` with single separators and none at its end.
std::string NormalisedFolder(std::string_view folder) {
  std::string normalised;
  normalised.reserve(folder.size());
  for (const char c : folder) {
    if (c != '/' || normalised.empty() || normalised.back() != '/') normalised += c;
  }
  if (normalised.size() > 1 && normalised.back() == '/') normalised.pop_back();
  return normalised.empty() ? "." : normalised;
}

}  // namespace

const char* DBFileName(int dbType) noexcept {
  switch (dbType) {
    case kDbGlobalSetting:
      return "KSGlobalSetting.db";
    case kDbVariableRule:
      return "KSVariableRule.db";
    case kDbObjectRule:
      return "KSObjectRule.db";
    case kDbBlockSetting:
      return "KSBlockSetting.db";
    case kDbInterfaceType:
      return "KSInterfaceType.db";
    case kDbObjectHistory:
      return "KSObjectHistory.db";
    default:
      return nullptr;
  }
}

FSResFileSystem::FSResFileSystem(std::string folder) : folder_(NormalisedFolder(folder)) {}

std::string FSResFileSystem::GetDomainFolder(const std::string& domainId) const {
  return folder_ + (folder_ == "/" ? "" : "/") + DomainFolderName(domainId);
}

std::string FSResFileSystem::GetDBFile(int dbType, const std::string& domainId) const {
  const char* const name = DBFileName(dbType);
  if (name == nullptr) return {};
  return GetDomainFolder(domainId) + '/' + name;
}

std::string DomainFolderName(std::string_view domainId) {
  // A '%' in an id is encoded itself, so that no other id gives a lone one.
  if (domainId.empty()) return "%";
  constexpr char kHex[] = "0123456789ABCDEF";
  const bool dotsOnly = domainId == "." || domainId == "..";
  std::string name;
  name.reserve(domainId.size());
  for (const char c : domainId) {
    const auto byte = static_cast<unsigned char>(c);
    const bool unsafe = byte < 0x20 || byte == 0x7F || c == '/' || c == '\\' || c == '%';
    if (unsafe || dotsOnly) {
      name += {'%', kHex[byte >> 4], kHex[byte & 0xF]};
    } else {
      name += c;
    }
  }
  return name;
}

}  // namespace keelstone

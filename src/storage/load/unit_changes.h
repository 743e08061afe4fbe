#ifndef KEELSTONE_STORAGE_LOAD_UNIT_CHANGES_H
#define KEELSTONE_STORAGE_LOAD_UNIT_CHANGES_H

#include <cstdint>
#include <string_view>

namespace keelstone {

/// Counts the changes that this process makes to the rules and histories of devices: as
/// long as the number of a device stays the same, what was loaded of it before is what
/// there is. A number may go up for another device's change, never stay for its own. A
/// change counts from when it can be seen (on disk, or among the rows that wait to be
/// written) until at the latest the call that made it returns. Any thread, lock-free.
std::uint64_t UnitChanges(std::string_view domainId, std::string_view deviceName) noexcept;
void NoteUnitChange(std::string_view domainId, std::string_view deviceName) noexcept;
/// A change to devices that are not known by name.
void NoteChangeOfAllUnits() noexcept;

/// The same count without what a source of rows (RowSource) has written: as long as it stays,
/// nobody but the one source of the domain has changed the device. Any thread, lock-free.
std::uint64_t OthersUnitChanges(std::string_view domainId, std::string_view deviceName) noexcept;

/// While it lives, what this thread writes are rows of the domain's source. One a thread.
class SourceWriteMark {
 public:
  SourceWriteMark() noexcept;
  ~SourceWriteMark();
  SourceWriteMark(const SourceWriteMark&) = delete;
  SourceWriteMark& operator=(const SourceWriteMark&) = delete;
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_LOAD_UNIT_CHANGES_H

#ifndef KEELSTONE_STORAGE_SETTINGS_GENERATION_H
#define KEELSTONE_STORAGE_SETTINGS_GENERATION_H

namespace keelstone {

/// Makes everyone fetch the global settings again (GlobalSettingsGeneration). Called
/// after new content is in its place, never before. Lock-free.
void AdvanceGlobalSettingsGeneration() noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_SETTINGS_GENERATION_H

#ifndef KEELSTONE_PROGRAM_EXIT_CODES_H
#define KEELSTONE_PROGRAM_EXIT_CODES_H

namespace keelstone::host {

/// What the program answers. Where several apply: unusable, broken off, alert, skipped.
enum ExitCode : int {
  kExitDone = 0,
  kExitLinesSkipped = 1,
  kExitUnusable = 2,   // usage, or the root or a database cannot be used; nothing evaluated
  kExitBrokenOff = 3,  // not all of the work was done, or not all of it is on disk
  kExitAlert = 4,
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EXIT_CODES_H

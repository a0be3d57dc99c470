// Settings files: lines of a key, a colon and a value. No blanks are trimmed, nothing is quoted; a line without
// a colon says nothing. The functions are part of the exported interface:
//   getKeyValue, setKeyValue, replaceKeyValue
//
// Thread safety: any thread. Writers of one file, in whatever process, wait for each other, with a limit; a
// reader never sees a half-written file. Nothing but a regular file is read or written.
#ifndef CONFIG_KEYVALUEFILE_H_
#define CONFIG_KEYVALUEFILE_H_

#include "include/hbadiscovery.h"

// What the functions return.
enum SettingsStatus {
  kSettingsDone = 0,
  kSettingsNoBuffer = 193,   // null value, or an output buffer of no size
  kSettingsNoKey = 199,      // no line answers for the key
  kSettingsFileError = 200,  // a file could not be opened, created, written or moved into place, or is busy
};

// Creates the file, empty, when there is none; false when that failed.
bool CreateIfMissing(const char* path);

#endif  // CONFIG_KEYVALUEFILE_H_

// The discovery settings file and the lock around it, shared between processes. The functions are part of the
// exported interface:
//   LockFile, UnlockFile, getDiscConfigIntValue, getDiscConfigStrValue, setDiscConfigIntValue,
//   setDiscConfigStrValue, zyl_usleep
//
// Thread safety: any thread, also while the library is being loaded.
#ifndef CONFIG_DISCCONFIG_H_
#define CONFIG_DISCCONFIG_H_

#include "include/hbadiscovery.h"

inline constexpr char kDiscConfigPath[] = "/etc/varnix/quorbench/varnixDiscConfig";

#endif  // CONFIG_DISCCONFIG_H_

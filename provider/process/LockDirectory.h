// The directory of the lock files.
#ifndef PROVIDER_PROCESS_LOCKDIRECTORY_H_
#define PROVIDER_PROCESS_LOCKDIRECTORY_H_

#include <string>

#include "provider/base/FileDescriptor.h"

namespace provider {

// Opens a lock's file, made when it is missing. Not open when no directory can be used or trusted.
FileDescriptor OpenLockFile(const std::string& file);

// Whether the open file is still the one that others find under that name.
bool IsCurrentLockFile(const FileDescriptor& descriptor, const std::string& file);

}  // namespace provider

#endif  // PROVIDER_PROCESS_LOCKDIRECTORY_H_

#include "tools/hbadisc/Source.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "include/hbadiscovery.h"
#include "provider/OpenProvider.h"
#include "tools/hbadisc/Output.h"

namespace hbadisc {

namespace {

std::string LastError(const SymbolLookup& lookUp) {
  std::array<char, 1024> text{};
  if (const auto lastError = reinterpret_cast<decltype(&RMOpen_LastError)>(lookUp("RMOpen_LastError"))) {
    lastError(text.data(), static_cast<unsigned int>(text.size()));
    text.back() = '\0';
  }
  return text.data();
}

// Why a file that is there cannot be read; 0 when it can, or is not there.
int WhyUnreadable(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  const int error = errno;
  if (file >= 0) close(file);
  return file >= 0 || error == ENOENT || error == ENOTDIR ? 0 : error;
}

std::string HostsFile(const SymbolLookup& lookUp) {
  std::array<char, 512> directory{};
  const auto installDir = reinterpret_cast<int (*)(char*, unsigned int)>(lookUp("RM_GetAppInstallDirA"));
  if (!installDir || installDir(directory.data(), static_cast<unsigned int>(directory.size())) != 0) return {};
  directory.back() = '\0';
  return std::string(directory.data()) + "hbahosts.lst";
}

std::string ReasonText(int error) {
  return error == EACCES || error == EPERM ? "no permission" : std::strerror(error);
}

}  // namespace

std::vector<std::string> AccessTroubles(const SymbolLookup& lookUp) {
  std::vector<std::string> troubles;
  errno = 0;
  if (LockFile() != 0) {
    troubles.push_back("the lock that all programs share cannot be taken: " + ReasonText(errno) +
                       "; settings do not count");
  } else {
    UnlockFile();
  }
  for (const std::string& file : {std::string("/etc/varnix/quorbench/varnixDiscConfig"), HostsFile(lookUp)}) {
    const int error = file.empty() ? 0 : WhyUnreadable(file);
    if (error != 0) troubles.push_back(file + " cannot be read: " + ReasonText(error));
  }
  return troubles;
}

void ChooseSource(const Source& source, const SymbolLookup& lookUp) {
  if (source.kind == SourceKind::ProviderDefault) return;
  const bool fabric = source.kind == SourceKind::Fabric;
  const auto setSource = reinterpret_cast<decltype(&RMOpen_SetSource)>(lookUp("RMOpen_SetSource"));
  if (!setSource) {
    throw Failure(kFailed, std::string("the provider in use (librmapi.so) has no choice of what to look at; ") +
                               (fabric ? "--fabric" : "--sysfsroot") + " works with the open provider only");
  }
  if (setSource(fabric ? "fabric" : "sysfs", source.path.c_str()) == 0) return;
  const std::string reason = LastError(lookUp);
  throw Failure(kFailed, reason.empty() ? "the provider does not accept '" + source.path + "'" : reason);
}

void ChooseHostsDirectory(const std::string& directory, const SymbolLookup& lookUp) {
  const auto setDirectory = reinterpret_cast<decltype(&RMOpen_SetInstallDir)>(lookUp("RMOpen_SetInstallDir"));
  if (!setDirectory) {
    throw Failure(kFailed,
                  "the provider in use (librmapi.so) has a hosts file of its own; --hosts-dir works with"
                  " the open provider only");
  }
  if (setDirectory(directory.c_str()) != 0) throw Failure(kFailed, "'" + directory + "' is no directory");
}

std::string ProviderTrouble(const SymbolLookup& lookUp) {
  return LastError(lookUp);
}

void* LookUpSymbol(const char* name) {
  return dlsym(RTLD_DEFAULT, name);
}

}  // namespace hbadisc

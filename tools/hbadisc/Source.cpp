#include "tools/hbadisc/Source.h"

#include <dlfcn.h>

#include <array>

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

}  // namespace

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

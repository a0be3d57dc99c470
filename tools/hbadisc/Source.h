// Chooses what the provider of the library looks at.
//
// Thread safety: functions without shared state of their own.
#ifndef TOOLS_HBADISC_SOURCE_H_
#define TOOLS_HBADISC_SOURCE_H_

#include <functional>
#include <string>
#include <vector>

namespace hbadisc {

enum class SourceKind { ProviderDefault, Fabric, SysfsRoot };

struct Source {
  SourceKind kind = SourceKind::ProviderDefault;
  std::string path;
};

// Finds a function of the process by its name; null when there is none.
using SymbolLookup = std::function<void*(const char* name)>;

// Tells the provider. Before discovery starts; throws Failure when it refuses or knows no choice.
void ChooseSource(const Source& source, const SymbolLookup& lookUp);

// Tells the provider in which directory the hosts file lies. As above.
void ChooseHostsDirectory(const std::string& directory, const SymbolLookup& lookUp);

// Why the open provider has nothing to look at on this host; empty when it has, and of any other provider. To
// be asked once discovery has looked.
std::string ProviderTrouble(const SymbolLookup& lookUp);

// What this user may not use, each in a sentence: the lock of the settings, the settings file, the hosts file.
// What they say then does not count, and without a word nobody would know why.
std::vector<std::string> AccessTroubles(const SymbolLookup& lookUp);

// Finds what the program and its libraries export.
void* LookUpSymbol(const char* name);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_SOURCE_H_

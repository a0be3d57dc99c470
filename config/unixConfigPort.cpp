// The port of remote hosts, for applications. Discovery has a reader of its own, which judges numbers
// otherwise.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/DiscConfig.h"
#include "config/FileDescriptor.h"
#include "config/unixConfig.h"
#include "rmapi/rmapi.h"

namespace {

constexpr char kPortKey[] = "TcpSocketPortNumber";
constexpr unsigned short kDefaultPort = 23333;
constexpr int kLowestPort = 1024;
constexpr int kHighestPort = 65535;
constexpr int kLineRoom = 256;

constexpr int kPortOutOfRange = 107;
constexpr int kFileNotOpened = 178;

// The second of the line's fields, which are what is between colons, however many; null when there is only one.
const char* SecondField(const char* line) {
  const char* field = line + std::strspn(line, ":");
  field += std::strcspn(field, ":");
  field += std::strspn(field, ":");
  return *field == '\0' ? nullptr : field;
}

}  // namespace

int getTcpPortNumber(unsigned short* port) {
  if (port == nullptr) return kSettingsNoKey;
  *port = kDefaultPort;
  const FileStream file = OpenForReading(kDiscConfigPath);
  if (file == nullptr) {
    rm_printf("\ngetTcpPortNumber: error on OPEN of %s file.\n", kDiscConfigPath);
    return kFileNotOpened;
  }
  int status = kSettingsNoKey;
  char line[kLineRoom];
  while (std::fgets(line, sizeof line, file.get()) != nullptr) {
    if (std::strstr(line, kPortKey) == nullptr) continue;
    status = kSettingsDone;
    const char* field = SecondField(line);
    if (field == nullptr) continue;
    const int number = static_cast<int>(std::strtol(field, nullptr, 0));
    if (number != 0 && (number < kLowestPort || number > kHighestPort)) {
      rm_printf("Port number must be greater than 1023 and less than 65536.\n");
      return kPortOutOfRange;
    }
    *port = static_cast<unsigned short>(number);
  }
  return status;
}

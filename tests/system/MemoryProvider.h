// A provider that allocates nothing: a host with a port of each kind, and a remote host. Its calls come before
// those of librmapi.so, which answers the rest.
#ifndef TESTS_SYSTEM_MEMORYPROVIDER_H_
#define TESTS_SYSTEM_MEMORYPROVIDER_H_

#include <atomic>

#include "rmapi/rmapi.h"

namespace systemtest {

// World-wide names end in these.
enum PortNumber : unsigned char { kFc = 1, kIscsi, kNic, kRemote, kVPort = 0x11, kTarget = 0x21 };

HBA_NAME NameOf(unsigned char number);

inline constexpr char kRemoteHost[] = "127.7.7.7";

struct MemoryProvider {
  std::atomic<bool> hasBoards{true};
  std::atomic<unsigned int> link{1};      // of the Fibre Channel board
  std::atomic<unsigned char> seen{0x80};  // a port of the maker's behind it, which is no target
  std::atomic<int> started{0};            // RM_InitLib less RM_ExitLib
};
extern MemoryProvider g_Provider;

}  // namespace systemtest

#endif  // TESTS_SYSTEM_MEMORYPROVIDER_H_

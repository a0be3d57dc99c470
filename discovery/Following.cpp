// The exported calls by which a program follows discovery: forward to the controller and copy results out.

#include <algorithm>
#include <chrono>
#include <vector>

#include "discovery/Library.h"
#include "discovery/StatusTexts.h"
#include "discovery/Unanswered.h"
#include "include/hbadiscovery.h"
#include "log/DiscoveryLog.h"

namespace {

constexpr unsigned int kVersion = HBADISC_HEADER_VERSION;

// Copies what fits; how many did not.
template <class Record>
int CopyOut(const std::vector<Record>& found, Record* records, unsigned int* count) {
  const auto filled = static_cast<unsigned int>(std::min<std::size_t>(*count, found.size()));
  std::copy_n(found.begin(), filled, records);
  *count = filled;
  return static_cast<int>(found.size() - filled);
}

// Whether there is a count, and room for what it says; of a call that fails the count becomes 0.
template <class Record, class List>
int CopyList(Record* records, unsigned int* count, List list) {
  if (count == nullptr || (records == nullptr && *count != 0)) return 0;
  try {
    return CopyOut(list(), records, count);
  } catch (...) {
    *count = 0;
    return 0;
  }
}

}  // namespace

unsigned int HBADisc_GetVersion(void) {
  return kVersion;
}

const char* HBADisc_GetLinkText(unsigned int linkStatus) {
  return LinkText(linkStatus);
}

const char* HBADisc_GetStatusText(int status) {
  return StatusText(status);
}

const char* HBADisc_GetHostStateText(unsigned int state) {
  return HostStateText(state);
}

void HBADisc_SetLogCallBack(HBADisc_LogCallBack function, unsigned int mask, void* context) {
  Guarded(0, [&] {
    SetDiscoveryLogListener(function, mask, context);
    return 0;
  });
}

void HBADisc_StartupForOneLook(int localOnly) {
  TheLibrary().controller.StartupForOneLook(localOnly);
}

int HBADisc_WaitForFirstPicture(unsigned int milliseconds) {
  return TheLibrary().controller.WaitForFirstPicture(std::chrono::milliseconds(milliseconds)) ? 1 : 0;
}

int HBADisc_GetUnanswered(hbadisc_unanswered* records, unsigned int* count) {
  return CopyList(records, count, [] {
    CHbaDiscover& controller = TheLibrary().controller;
    return ListUnanswered(controller.Asked(), controller.Kept().Take().ports.get());
  });
}

int HBADisc_GetHostStates(hbadisc_host_state* records, unsigned int* count) {
  return CopyList(records, count, [] {
    CHbaDiscover& controller = TheLibrary().controller;
    KeptPicture& kept = controller.Kept();
    const std::shared_ptr<CHbaList> ports =
        kept.IsFollowed() ? kept.Take().ports : controller.Picture().GetCurrentList();
    return ListHostStates(controller.Asked(), ports.get(), controller.RemoteHosts().GetIpPortNumber());
  });
}

int HBADisc_GetFirstHbaV4(hba_discovery_info_V4* info, uint64_t* sequence) {
  return BeginWalk(info, [sequence] {
    const KeptPicture::Taken taken = TheLibrary().controller.Kept().Take();
    if (sequence != nullptr) *sequence = taken.sequence;
    return taken.ports;
  });
}

int HBADisc_GetNextHbaV4(hba_discovery_info_V4* info) {
  return ContinueWalk(info);
}

int HBADisc_GetChanges(uint64_t after, hbadisc_change* changes, unsigned int* count) {
  if (count == nullptr || (changes == nullptr && *count != 0)) return 0;
  const unsigned int room = *count;
  *count = 0;
  return Guarded(0, [&] {
    KeptPicture& kept = TheLibrary().controller.Kept();
    kept.Follow();
    unsigned int filled = room;
    const int lost = kept.Changes().Read(after, changes, &filled);
    *count = filled;
    return lost;
  });
}

int HBADisc_GetChangeDescriptor(void) {
  return Guarded(-1, [] {
    KeptPicture& kept = TheLibrary().controller.Kept();
    const int descriptor = kept.Changes().Descriptor();
    kept.Follow();
    return descriptor;
  });
}

// What the system tests share: the settings under /etc, the library loaded by hand, callbacks, ports as read.
//
// Every case runs in a process and a mount namespace of its own (in_namespace): the library reads its settings
// when it is loaded, so a case writes them first and loads then.
#ifndef TESTS_SYSTEM_HARNESS_H_
#define TESTS_SYSTEM_HARNESS_H_

#include <condition_variable>

#include "include/hbadiscovery.h"
#include "tests/support/Names.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"

namespace systemtest {

using Milliseconds = std::chrono::milliseconds;

inline constexpr char kSettingsPath[] = "/etc/varnix/quorbench/varnixDiscConfig";

// The directory of this test's own files, in the private /run/lock.
std::string Scratch(const std::string& name);

void WriteFile(const std::string& path, const std::string& text);

// The discovery log, which the settings put into the scratch directory.
class Log {
 public:
  // Writes the settings file: log mode, log path, and further lines as given.
  explicit Log(unsigned int mode = 0x3FF, const std::string& moreSettings = "");
  std::string Text() const;
  std::size_t Count(const std::string& text) const;
  bool Has(const std::string& text) const { return Count(text) != 0; }

 private:
  const std::string m_Path = Scratch("hbadisco.log");
};

// libhbadiscovery.so, loaded when constructed.
class Library {
 public:
  Library();
  // `fabric` is what the open provider looks at; once a process, before discovery starts.
  explicit Library(const std::string& fabric);
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // In-band only, no remote hosts.
  void Start(unsigned int interval) const { StartupEx(interval, HBADISC_NO_OOB_DISCOVERY, 1); }

  // Loaded by name, so that a case fails when the library does not export it.
#define HBADISC_CALL(name) decltype(&HBADisc_##name) name = Symbol<decltype(&HBADisc_##name)>("HBADisc_" #name)
  template <class Function>
  Function Symbol(const char* name) const {
    return reinterpret_cast<Function>(Find(name));
  }

 private:
  void* Find(const char* name) const;
  void* m_Handle;

 public:
  HBADISC_CALL(Startup);
  HBADISC_CALL(StartupEx);
  HBADISC_CALL(Terminate);
  HBADISC_CALL(RegisterCallBack);
  HBADISC_CALL(PauseDiscovery);
  HBADISC_CALL(StartDiscoveryCycle);
  HBADISC_CALL(DirectedDiscoveryUpdate);
  HBADISC_CALL(InDiscoveryCycle);
  HBADISC_CALL(KillDiscoveryCycle);
  HBADISC_CALL(ChangeDiscoveryInterval);
  HBADISC_CALL(ChangeOOBDiscoveryInterval);
  HBADISC_CALL(GetFirstHba);
  HBADISC_CALL(GetNextHba);
  HBADISC_CALL(GetFirstHbaV2);
  HBADISC_CALL(GetNextHbaV2);
  HBADISC_CALL(GetFirstHbaV3);
  HBADISC_CALL(GetNextHbaV3);
  HBADISC_CALL(GetFirstSystem);
  HBADISC_CALL(GetNextSystem);
  HBADISC_CALL(GetTargetMappings);
  HBADISC_CALL(GetiSCSITargets);
  HBADISC_CALL(GetVPorts);
  HBADISC_CALL(GetVPortTargets);
  HBADISC_CALL(GetVirtualFunctionAddrs);
  HBADISC_CALL(GetiSCSINames);
  HBADISC_CALL(AddOOBHostA);
  HBADISC_CALL(AddOOBHostW);
  HBADISC_CALL(RemoveOOBHostA);
  HBADISC_CALL(RemoveOOBHostW);
  HBADISC_CALL(GetOOBHostList);
  HBADISC_CALL(AddCimHost);
  HBADISC_CALL(RemoveCimHost);
  HBADISC_CALL(GetCimCount);
  HBADISC_CALL(GetCimEntries);
  HBADISC_CALL(UpdateCimEntries);
  HBADISC_CALL(GetVersion);
  HBADISC_CALL(GetLinkText);
  HBADISC_CALL(GetStatusText);
  HBADISC_CALL(GetHostStateText);
  HBADISC_CALL(SetLogCallBack);
  HBADISC_CALL(StartupForOneLook);
  HBADISC_CALL(WaitForFirstPicture);
  HBADISC_CALL(GetUnanswered);
  HBADISC_CALL(GetHostStates);
  HBADISC_CALL(GetFirstHbaV4);
  HBADISC_CALL(GetNextHbaV4);
  HBADISC_CALL(GetChanges);
  HBADISC_CALL(GetChangeDescriptor);
#undef HBADISC_CALL

  // Walks to the end; ports by WWPN as 16 hex digits.
  std::map<std::string, hba_discovery_info_V3> Ports() const;
};

// Collects the reasons of callbacks and may run something inside each.
class CallBacks {
 public:
  CallBacks(const Library& library, unsigned int eventMask);
  ~CallBacks();
  CallBacks(const CallBacks&) = delete;
  CallBacks& operator=(const CallBacks&) = delete;

  std::vector<unsigned int> Reasons() const;
  // The `count` first reasons, once there are as many; fewer when the limit is over.
  std::vector<unsigned int> Await(std::size_t count, Milliseconds limit = kLimit) const;
  // Replaces what runs inside the callback, on the library's thread.
  void Inside(std::function<void(unsigned int)> action);

 private:
  static void OnCallBack(unsigned int reason, void* context);

  const Library& m_Library;
  mutable std::mutex m_Lock;
  mutable std::condition_variable m_Changed;
  std::vector<unsigned int> m_Reasons;
  std::function<void(unsigned int)> m_Action;
};

}  // namespace systemtest

#endif  // TESTS_SYSTEM_HARNESS_H_

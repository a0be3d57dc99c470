// One adapter port: its record, how it is reached, the marks and counters of the discovery cycles, and what
// hangs off it (targets, virtual ports, virtual functions, iSCSI names).
//
// Thread safety: the three lists may be read and added to from any thread, each call takes the list's global
// lock for as long as it exchanges or copies the handle. Everything else is for one thread at a time: an entry
// in a shared list is touched only under that list's lock, so a worker fills a private copy and puts the result
// into the listed entry there (the Take calls).
//
// What was not read is not news: an entry knows of its targets (with their bind type), its virtual ports and
// its functions whether they were read to an answer. "None" is an answer, and so is every failure but that of a
// port in use. A merge and the Take calls leave what the listed entry has of a part that was not read.
//
// Ownership: an entry owns its parts; copies share the three lists and the names until one side changes.
#ifndef MODEL_HBAENTRY_H_
#define MODEL_HBAENTRY_H_

#include <memory>
#include <optional>
#include <utility>

#include "model/AnswerBook.h"
#include "model/ISCSINames.h"
#include "model/PortDetails.h"
#include "model/SubListLocks.h"
#include "model/Targets.h"
#include "model/VPorts.h"
#include "model/VirtualFunctions.h"
#include "rmapi/rmapi.h"
#include "thread/thread_annotations.h"

struct discovery_vport_info;
struct discovery_vf_addrs;

// Link status of a port whose adapter is above its operating temperature.
inline constexpr unsigned int kLinkOverTemperature = 0xEE000000U;

class CHbaEntry {
 public:
  CHbaEntry() = default;
  explicit CHbaEntry(const unsigned char* wwpn);  // 8 bytes, the rest of the record zero

  // `unused` is not looked at. `proxyAddress` (8 bytes) may be null. IP information of an IPv4 host replaces
  // the proxy address by one made from it.
  CHbaEntry(const HBA_info_v4* info, const unsigned char* unused, int isLocal,
            const unsigned char* proxyAddress, int proxyOnly, const _RM_IP_INFO* ipInfo);

  CHbaEntry(const CHbaEntry& other);
  CHbaEntry& operator=(const CHbaEntry& other);
  virtual ~CHbaEntry() = default;

  // Copies everything, marks and retries too. Targets become of the kind that the other's special features say.
  void CopyEntry(const CHbaEntry& other);

  // ---- Record and state ----

  int IsLocalPort() const { return m_State.isLocal; }
  int IsHbaInfoValid() const { return m_State.infoValid; }
  void SetHbaInfoValid() { m_State.infoValid = 1; }

  // All four give the same record, which begins with the older layouts.
  HBA_info_v4* GetHbaInfo() { return &m_State.info; }
  const HBA_info_v4* GetHbaInfo() const { return &m_State.info; }
  HBA_info_v4* GetHbaInfoV2() { return &m_State.info; }
  const HBA_info_v4* GetHbaInfoV2() const { return &m_State.info; }
  HBA_info_v4* GetHbaInfoV3() { return &m_State.info; }
  const HBA_info_v4* GetHbaInfoV3() const { return &m_State.info; }
  HBA_info_v4* GetHbaInfoV4() { return &m_State.info; }
  const HBA_info_v4* GetHbaInfoV4() const { return &m_State.info; }

  // Found-on ports are never recorded.
  unsigned int GetFoundOnPortCount() const { return 0; }
  const unsigned char* GetFoundOnPort(unsigned int /*index*/) const { return nullptr; }

  unsigned int GetDiscoveryMark() const { return m_State.discoveryMark; }
  void SetDiscoveryMark(unsigned int mark) { m_State.discoveryMark = mark; }
  unsigned int GetMergeMark() const { return m_State.mergeMark; }
  void SetMergeMark(unsigned int mark) { m_State.mergeMark = mark; }
  unsigned int GetLinkStatus() const { return m_State.linkStatus; }
  void SetLinkStatus(unsigned int status) { m_State.linkStatus = status; }
  unsigned int GetSpecialFeatures() const { return m_State.specialFeatures; }
  void SetSpecialFeatures(unsigned int features) { m_State.specialFeatures = features; }
  unsigned int GetOldTargetCount() const { return m_State.oldTargetCount; }
  void SetOldTargetCount(unsigned int count) { m_State.oldTargetCount = count; }
  unsigned int GetTargetBindType() const { return m_State.targetBindType; }
  void SetTargetBindType(unsigned int type) { m_State.targetBindType = type; }

  // A new entry counts as read; whoever is about to read below a port says so first. Clearing a list is an
  // answer too.
  void SetNothingRead() { m_State.targetsRead = m_State.vportsRead = m_State.vfsRead = false; }
  void SetTargetsRead(bool read) { m_State.targetsRead = read; }
  void SetVPortsRead(bool read) { m_State.vportsRead = read; }
  void SetVFsRead(bool read) { m_State.vfsRead = read; }
  // Of a listed entry: whether the last look came to an answer.
  bool AreTargetsRead() const { return m_State.targetsRead; }
  // Of an entry that several looks of one cycle made: what was read once stays read.
  void KeepRead(const CHbaEntry& before) {
    m_State.targetsRead |= before.m_State.targetsRead;
    m_State.vportsRead |= before.m_State.vportsRead;
    m_State.vfsRead |= before.m_State.vfsRead;
  }

  // Beyond the record; null: nothing is known. A merge takes them over, without a change to speak of.
  const std::shared_ptr<const PortDetails>& GetDetails() const { return m_Details; }
  void SetDetails(std::shared_ptr<const PortDetails> details) { m_Details = std::move(details); }
  // Of a snapshot's entry: why the port could not be asked.
  const std::shared_ptr<const AnswerRecord>& GetUnanswered() const { return m_Unanswered; }
  void SetUnanswered(const std::optional<AnswerRecord>& why) {
    m_Unanswered = why ? std::make_shared<const AnswerRecord>(*why) : nullptr;
  }

  // How many tries are left; each call uses one up.
  unsigned int GetTargetMapRetries() { return m_State.targetMapRetries == 0 ? 0 : m_State.targetMapRetries--; }
  void ResetTargetMapRetries() { m_State.targetMapRetries = 0; }  // no tries are left, not a fresh start

  // 8 bytes; the first is zero when there is no proxy.
  const unsigned char* GetProxyAddress() const { return m_State.proxyAddress; }
  void SetProxyAddress(const unsigned char* address);  // null: no proxy
  int ProxyOnly() const { return m_State.proxyOnly; }
  void SetProxyOnlyAccess(int proxyOnly) { m_State.proxyOnly = proxyOnly; }

  const _RM_IP_INFO* GetProxyIpInfo() const { return m_State.ipInfoValid != 0 ? &m_State.ipInfo : nullptr; }
  void SetProxyIpInfo(const _RM_IP_INFO* ipInfo);  // leaves the proxy address alone; null: nothing

  CDiscISCSINames* GetISCSINames() { return &m_ISCSINames; }
  const CDiscISCSINames* GetISCSINames() const { return &m_ISCSINames; }

  // ---- Targets, virtual ports, virtual functions; a key that is present is ignored ----

  void AddTarget(const RM_NodeInfoEntry* target) EXCLUDES(g_TargetLock);
  void AddTarget(const _RM_ISCSI_TARGET* target) EXCLUDES(g_TargetLock);
  void AddVPort(const CVPortEntry* vport) EXCLUDES(g_VPortLock, g_VPTargetLock);
  void AddVF(HBA_NAME address) EXCLUDES(g_VFListLock);

  void ClearTargets() EXCLUDES(g_TargetLock);
  void ClearVPorts() EXCLUDES(g_VPortLock);
  void ClearVFs() EXCLUDES(g_VFListLock);
  // For a port that by its kind has nothing below it.
  void ClearBelow() EXCLUDES(g_TargetLock, g_VPortLock, g_VFListLock);

  unsigned int GetTargetCount() const EXCLUDES(g_TargetLock);
  unsigned int GetVPortCount() const EXCLUDES(g_VPortLock);
  unsigned int GetVFCount() const EXCLUDES(g_VFListLock);

  // Handles to walk, compare or keep; later changes of this entry do not show in them.
  CTargetList GetTargetList() const EXCLUDES(g_TargetLock);
  CVPortList GetVPortList() const EXCLUDES(g_VPortLock);
  CVFList GetVFList() const EXCLUDES(g_VFListLock);

  // Replaces this entry's list by the other's, which both share from then on, unless the other's was not read.
  // Targets come with their bind type.
  void TakeTargets(const CHbaEntry& from) EXCLUDES(g_TargetLock);
  void TakeVPorts(const CHbaEntry& from) EXCLUDES(g_VPortLock);
  void TakeVFs(const CHbaEntry& from) EXCLUDES(g_VFListLock);

  // Begins with the targets that the current list knows for the port, so that those which turn out unchanged
  // are not held twice. They count as not read. Nothing when the ports are of different kinds.
  void BeginWithTargets(const CHbaEntry& listed) EXCLUDES(g_TargetLock);
  // Goes back to `known` when the targets are the same, byte for byte.
  void ShareIdenticalTargets(const CTargetList& known) EXCLUDES(g_TargetLock);

  // Copy what fits, set *count to the number copied, return how many did not fit. With a null buffer nothing
  // fits; with a null count nothing happens. An unknown virtual port has no targets.
  unsigned int GetTargets(RM_NodeInfoEntry* targets, unsigned int* count) const EXCLUDES(g_TargetLock);
  unsigned int GetVPorts(discovery_vport_info* vports, unsigned int* count) const
      EXCLUDES(g_VPortLock, g_VPTargetLock);
  unsigned int GetVPortTargets(HBA_NAME wwpn, RM_NodeInfoEntry* targets, unsigned int* count) const
      EXCLUDES(g_VPortLock, g_VPTargetLock);

  // All addresses and 0, or, when there is too little room, none, the number needed and 1.
  unsigned int GetVirtualFunctionAddrs(discovery_vf_addrs* addresses) const EXCLUDES(g_VFListLock);

  // ---- Comparison and merge ----

  bool operator<(const CHbaEntry& other) const;

  // Whether nothing that an application sees differs.
  bool operator==(const CHbaEntry* other) const;

  // Takes over what this cycle found out about the same port; 1 when that changed anything.
  int MergeHbaEntry(const CHbaEntry* newer);

 private:
  struct State {
    int isLocal = 0;
    int infoValid = 0;
    HBA_info_v4 info{};
    unsigned int discoveryMark = 0;
    unsigned int mergeMark = 0;
    unsigned int linkStatus = 2;
    unsigned int specialFeatures = 0;
    unsigned int oldTargetCount = 0;
    unsigned int targetMapRetries = 3;
    unsigned int targetBindType = 0x1002;
    bool targetsRead = true;
    bool vportsRead = true;
    bool vfsRead = true;
    unsigned char proxyAddress[8] = {};
    int proxyOnly = 0;
    int ipInfoValid = 0;
    _RM_IP_INFO ipInfo{};
  };

  bool IsISCSIPort() const { return (m_State.specialFeatures & RM_FEATURE_ISCSI) != 0; }

  void ReplaceTargets(CTargetList targets) EXCLUDES(g_TargetLock);
  void ReplaceVPorts(CVPortList vports) EXCLUDES(g_VPortLock);
  void ReplaceVFs(CVFList functions) EXCLUDES(g_VFListLock);

  bool MergeProxyAddress(const CHbaEntry& newer);
  bool MergeIpInfo(const CHbaEntry& newer);
  bool MergeISCSINames(const CHbaEntry& newer);
  bool MergeTargets(const CHbaEntry& newer);
  bool MergeVPorts(const CHbaEntry& newer);
  bool MergeVFs(const CHbaEntry& newer);

  State m_State;
  CDiscISCSINames m_ISCSINames;
  // Null in nearly all entries, so that copies cost as little as they can.
  std::shared_ptr<const PortDetails> m_Details;
  std::shared_ptr<const AnswerRecord> m_Unanswered;
  CTargetList m_Targets GUARDED_BY(g_TargetLock);
  CVPortList m_VPorts GUARDED_BY(g_VPortLock);
  CVFList m_VFs GUARDED_BY(g_VFListLock);
};

#endif  // MODEL_HBAENTRY_H_

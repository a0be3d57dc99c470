// The workers of an out-of-band cycle: each takes one host after the other and reads its ports.

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <exception>
#include <set>

#include "inband/Gathering.h"
#include "inband/PortAttributes.h"
#include "inband/PortKind.h"
#include "inband/PortTargets.h"
#include "inband/PortVPorts.h"
#include "log/DiscoveryLog.h"
#include "model/WwpnKey.h"
#include "oob/HostEntry.h"
#include "oob/HostPatience.h"
#include "oob/NodeAddresses.h"
#include "oob/OobHbaDiscover.h"

namespace {

constexpr unsigned int kForEver = 0xFFFFFFFF;
constexpr unsigned int kPause = 100000;  // microseconds
constexpr int kTries = 5;
constexpr int kTriesUnreachable = 2;
constexpr int kFirstRetriedStatus = 500;  // what the attribute read itself finds fault with may pass
constexpr int kOverTemperatureStatus = static_cast<int>(kLinkOverTemperature);
constexpr unsigned char kProxyTypeCim = 0xFE;

bool IsWorthARetry(int status) {
  return status == RM_STATUS_BUSY || status == RM_STATUS_HOST_UNUSABLE || status == RM_STATUS_FAILED ||
         status >= kFirstRetriedStatus;
}

bool IsLinkWorthARetry(int status) {
  return status == RM_STATUS_BUSY || status == RM_STATUS_LOCKED || status == RM_STATUS_FAILED;
}

// The entry's own record, else one made from its proxy address: type, 0, port, IPv4 address.
_RM_IP_INFO HostOf(const CHbaEntry& port) {
  if (port.GetProxyIpInfo() != nullptr) return *port.GetProxyIpInfo();
  const unsigned char* proxy = port.GetProxyAddress();
  _RM_IP_INFO host{};
  host.flags = proxy[0] == kProxyTypeCim ? RM_IP_FLAG_CIM : 0;
  std::memcpy(&host.port, proxy + 2, sizeof(host.port));
  std::memcpy(host.address, proxy + 4, 4);
  return host;
}

using PortAttributes = std::array<unsigned char, RM_PORT_ATTRIBUTE_ROOM>;

unsigned int LinkByte(const PortAttributes& attributes, RM_AttributeId id) {
  unsigned int type = 0;
  int status = RM_STATUS_OK;
  const void* value = RM_GetAttributeValue(attributes.data(), id, &type, &status);
  if (value == nullptr || status != RM_STATUS_OK || type == RM_ATTRIBUTE_TEXT) return 0;
  return *static_cast<const unsigned char*>(value);
}

int ReadPortAttributes(const CHbaEntry& port, const CZylTpThread* thread, PortAttributes& attributes) {
  int status = RM_STATUS_FAILED;
  for (int tries = 0; tries < kTries && IsWorkerEnabled(thread); ++tries) {
    auto size = static_cast<unsigned int>(attributes.size());
    status = RM_GetPortAttributes(port.GetProxyAddress(), port.GetHbaInfo()->portWwn, attributes.data(), &size);
    if (status == RM_STATUS_OK && size > attributes.size()) return RM_STATUS_BUFFER_TOO_SMALL;
    if (!IsLinkWorthARetry(status)) break;
    ZylSleep(kPause);
  }
  return status;
}

bool IsListed(COobIpAddressList& hosts, const _RM_IP_INFO& host) {
  const OobIpAddressListGuard guard(hosts);
  return hosts.FindEntry(&host) != nullptr;
}

// One host on its way through a worker. Entries are the worker's own until they are filed, and filed only while
// the worker is enabled, so that a killed cycle's late result lands nowhere.
class HostVisit {
 public:
  HostVisit(CZylTpThread& thread, OobCycle& cycle, NodeAddresses& names, const _RM_IP_INFO& host)
      : m_Thread(thread),
        m_Patience(thread, cycle.shared->callLimit),
        m_Cycle(cycle),
        m_Names(names),
        m_Host(host),
        m_Text(host),
        m_Key(HostKeyOf(host)),
        m_Question(&cycle.shared->answers->hosts, m_Key) {}

  // The host's names: false when there is nothing to read.
  bool Begin();
  void ReadPorts();

 private:
  bool Enabled() const { return m_Thread.IsEnabled() != 0; }
  bool IsPatient() const { return m_Patience.IsEnabled() != 0; }
  bool Register();
  void Note(COobIpAddressList& hosts, bool listed) const;
  std::optional<int> AskForNames();
  bool ReadNames();
  void ForgetOtherPorts();
  int VisitPorts();
  int VisitPort(const HBA_NAME& wwpn);
  int ReadAttributes(CHbaEntry& port);
  void CompleteLinkStatus(CHbaEntry& port, int status);
  void LogPort(const CHbaEntry& port) const;
  void ReadBelow(CHbaEntry& port);
  void File(CHbaEntry& port);

  CZylTpThread& m_Thread;
  HostPatience m_Patience;  // in the thread's place for all that is read of the host
  OobCycle& m_Cycle;
  NodeAddresses& m_Names;
  const _RM_IP_INFO m_Host;
  const IpText m_Text;
  unsigned char m_Proxy[8] = {};
  const HostKey m_Key;
  AnswerBook<HostKey>::Question m_Question;
};

// A proxy address of zeros would ask this host. One of an IPv4 host is made from its address anyway.
bool HostVisit::Register() {
  RM_AddOOBAddressToLookupTable(&m_Host, m_Proxy);
  return !IsIPv6(m_Host) || m_Proxy[0] != 0;
}

void HostVisit::Note(COobIpAddressList& hosts, bool listed) const {
  const OobIpAddressListGuard guard(hosts);
  if (!Enabled()) return;
  if (listed) {
    hosts.AddEntry(&m_Host);
  } else {
    hosts.RemoveEntry(&m_Host);
  }
}

// A host that failed before and keeps its worker waiting again is not asked a second time.
std::optional<int> HostVisit::AskForNames() {
  std::optional<int> status;
  const bool failedBefore = IsListed(m_Cycle.shared->unreachableHosts, m_Host);
  for (int left = failedBefore ? kTriesUnreachable : kTries; left > 0 && IsPatient(); --left) {
    status = m_Names.Ask(m_Host, [this] { return IsPatient(); });
    const bool again = IsPatient() && !(failedBefore && m_Patience.HasRunIntoLimit());
    if (status != RM_STATUS_BUSY || !again) break;
    disco_printf(kLogOob, nullptr, "OOB: RM_GetAllNodeAddr (host %s), retrying(%d)", m_Text.Text(), left);
    ZylSleep(kPause);
  }
  return status;
}

bool HostVisit::ReadNames() {
  std::optional<int> status;
  if (m_Names.Begin()) {
    status = AskForNames();
    if (!Enabled()) return false;
  }
  if (!status) {
    disco_printf(kLogDetails, nullptr, "OOB: Cannot allocate memory for HBA addresses (%d)!",
                 static_cast<int>(m_Names.WantedRoom()));
    return false;
  }
  if (*status != RM_STATUS_OK) {
    disco_printf(kLogDetails, nullptr, "OOB: RM_GetAllNodeAddr returned error %d for %s", *status,
                 m_Text.Text());
  }
  const bool answered = *status == RM_STATUS_OK;
  // That it answers counts once its ports have been read: until then they are what was known before.
  if (!answered) m_Question.Answer(*status, false, m_Patience.HasWaited());
  Note(m_Cycle.shared->unreachableHosts, !answered);
  Note(m_Cycle.shared->silentHosts, !answered && m_Patience.HasWaited());
  if (answered) m_Patience.NoteAnswer();
  return answered;
}

// Nobody has to wait for an answer of a port that the host no longer has.
void HostVisit::ForgetOtherPorts() {
  std::set<std::uint64_t> names;
  for (std::uint32_t i = 0; i < m_Names.Count(); ++i) names.insert(WwpnKey(m_Names[i].wwn));
  m_Cycle.shared->answers->SetPorts(m_Key, names);
}

bool HostVisit::Begin() {
  if (!Register() || !ReadNames()) return false;
  ForgetOtherPorts();
  if (m_Names.Count() == 0) {
    m_Question.Answer(kHostHasNoPorts, true);
    return false;
  }
  if (RM_IsLocalHBA(m_Names[0].wwn) == 0) return true;
  m_Question.Answer(kHostIsThis, true);
  disco_printf(kLogOob, nullptr, "OOB: Trying to discover local host (%s) HBAs - skipped", m_Text.Text());
  return false;
}

void HostVisit::ReadPorts() {
  const int status = VisitPorts();
  if (!Enabled()) return;
  const bool exhausted = m_Patience.IsExhausted();
  const bool answered = status != RM_STATUS_HOST_UNUSABLE && !exhausted;
  m_Question.Answer(exhausted ? RM_STATUS_BUSY : status, answered, exhausted || m_Patience.HasWaited());
  if (!exhausted) return;
  disco_printf(kLogDetails, nullptr, "OOB: host %s keeps discovery waiting, given up until the next cycle",
               m_Text.Text());
}

// RM_STATUS_HOST_UNUSABLE when that ended the visit.
int HostVisit::VisitPorts() {
  for (std::uint32_t i = 0; i < m_Names.Count() && m_Thread.Terminated() == 0 && IsPatient(); ++i) {
    if (VisitPort(m_Names[i]) == RM_STATUS_HOST_UNUSABLE) return RM_STATUS_HOST_UNUSABLE;
  }
  return RM_STATUS_OK;
}

int HostVisit::ReadAttributes(CHbaEntry& port) {
  const unsigned char* wwn = port.GetHbaInfo()->portWwn;
  int status = RM_STATUS_FAILED;
  m_Patience.BeginPort();
  for (int left = kTries; left > 0 && IsPatient(); --left) {
    status = GetRemotePortAttr(&port, &m_Patience);
    // What was answered last was not looked at any more.
    if (m_Patience.IsExhausted() && !IsWorthARetry(status)) status = RM_STATUS_BUSY;
    disco_printf(kLogOob, wwn, "OOB: GetRemotePortAttr returned %d", status);
    if (status != RM_STATUS_OK && status != RM_STATUS_OVER_TEMPERATURE) m_Patience.NoteFailure();
    if (!IsWorthARetry(status)) m_Patience.NoteAnswer();
    if (!IsWorthARetry(status) || !IsPatient()) break;
    disco_printf(kLogOob, wwn, "OOB: GetRemotePortAttr (host %s), retrying(%d)", m_Text.Text(), left);
    ZylSleep(kPause);
  }
  return status;
}

// An attribute read that knows no link status leaves 0.
void HostVisit::CompleteLinkStatus(CHbaEntry& port, int status) {
  if (port.GetLinkStatus() != 0) return;
  if (status == RM_STATUS_OVER_TEMPERATURE) port.SetLinkStatus(kLinkOverTemperature);
  if (status == RM_STATUS_OK) port.SetLinkStatus(COOBHbaDiscover::GetPortLinkStatus(&port, &m_Patience));
}

void HostVisit::LogPort(const CHbaEntry& port) const {
  const HBA_info_v4& info = *port.GetHbaInfo();
  disco_printf(
      kLogOob, info.portWwn,
      "OOB: Got info for adapter on system '%.32s - %s': vpdport#=%.8s, phyport#=%d, type=%s, model=%.80s",
      info.hostName, m_Text.Text(), VPDPortNumberText(info), info.physicalPort,
      PortTypeWord(port.GetSpecialFeatures()), info.model);
  const unsigned int link = port.GetLinkStatus();
  disco_printf(kLogOob, info.portWwn, "OOB: Link Status:  Physical=%d, Function=%d",
               static_cast<int>(link & 0xFF), static_cast<int>((link >> 8) & 0xFF));
}

void HostVisit::ReadBelow(CHbaEntry& port) {
  if (IsTargetModePort(*port.GetHbaInfo())) return port.ClearBelow();
  AddTargetInfo(&port, &m_Patience, m_Cycle.IsForced() ? 1 : 0, 0);
  AddVPortInfo(&port, &m_Patience, 0);
}

void HostVisit::File(CHbaEntry& port) {
  CHbaList& found = m_Cycle.found;
  port.SetHbaInfoValid();
  const HbaListGuard guard(found);
  if (!Enabled()) return;
  if (CHbaEntry* listed = found.FindEntry(port.GetHbaInfo()->portWwn); listed != nullptr) {
    const CHbaEntry before(*listed);
    listed->MergeHbaEntry(&port);
    listed->KeepRead(before);
  } else {
    found.AddEntry(&port);
  }
}

// A port above its temperature whose status is the plain number is listed as it is; one that answers with the
// link status in the status's place has said too little to be listed.
int HostVisit::VisitPort(const HBA_NAME& wwpn) {
  HBA_info_v4 info{};
  std::memcpy(info.portWwn, wwpn.wwn, sizeof(info.portWwn));
  CHbaEntry port(&info, nullptr, 0, m_Proxy, 1, &m_Host);
  port.SetNothingRead();
  AnswerBook<PortKey>::Question question(&m_Cycle.shared->answers->ports, {m_Key, WwpnKey(wwpn.wwn)});
  const int status = ReadAttributes(port);
  if (!Enabled()) return status;
  question.Answer(status, status == RM_STATUS_OK || status == RM_STATUS_OVER_TEMPERATURE);
  CompleteLinkStatus(port, status);
  if (status == RM_STATUS_OK || status == kOverTemperatureStatus) {
    LogPort(port);
    ReadBelow(port);
  }
  if (status == kOverTemperatureStatus) {
    disco_printf(kLogOob, info.portWwn, "OOB: Temperature is above optimal range!!!");
  }
  if (status == RM_STATUS_OK || status == RM_STATUS_OVER_TEMPERATURE) {
    File(port);
  } else {
    disco_printf(kLogDetails, info.portWwn, "OOB: Did not get port attributes (host %s), error=%d",
                 m_Text.Text(), status);
  }
  return status;
}

void VisitHost(CZylTpThread& thread, OobCycle& cycle, NodeAddresses& names, const _RM_IP_INFO& host) {
  HostVisit visit(thread, cycle, names, host);
  if (visit.Begin()) visit.ReadPorts();
}

class CountedScope {
 public:
  explicit CountedScope(std::atomic<int>& count) : m_Count(count) { ++m_Count; }
  ~CountedScope() { --m_Count; }
  CountedScope(const CountedScope&) = delete;
  CountedScope& operator=(const CountedScope&) = delete;

 private:
  std::atomic<int>& m_Count;
};

// One that has found its tongue only after the cycle's end is read in the next one.
void VisitSilentHost(CZylTpThread& thread, OobCycle& cycle, NodeAddresses& names, const _RM_IP_INFO& host) {
  HostVisit visit(thread, cycle, names, host);
  if (!visit.Begin()) return;
  const CountedScope reading(cycle.silentInReading);
  if (!cycle.isOver) visit.ReadPorts();
}

// Gives each host of the list to `visit`, until the worker is disabled. The list hands each host to one worker
// only, and nobody takes hosts out of it.
template <typename Visit>
void VisitAll(CZylTpThread& thread, OobCycle& cycle, COobIpAddressList& hosts, Visit visit) {
  NodeAddresses names;
  while (thread.IsEnabled() != 0) {
    const COobIpAddressEntry* host = hosts.InterlockedGetNextEntry();
    if (host == nullptr) return;
    try {
      visit(thread, cycle, names, *host->GetIpAddress());
    } catch (const std::exception& failure) {
      // Most likely no memory; the other hosts may still be read.
      disco_printf(kLogDetails, nullptr, "OOB: gives up on a host, error: %s", failure.what());
    }
  }
}

// The low half of the address tells workers apart.
unsigned int IdOf(const CZylTpThread* thread) {
  return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(thread));
}

}  // namespace

void HbaDiscoveryThread(CZylTpThread* thread, void* slot) {
  const unsigned int id = IdOf(thread);
  while (thread->Terminated() == 0) {
    thread->WaitForSignal(kForEver);
    if (thread->Terminated() != 0) break;
    disco_printf(kLogOob, nullptr, "OOB Port Discovery Thread %x active", id);
    if (const std::shared_ptr<OobCycle> cycle = static_cast<OobCycleSlot*>(slot)->Get(); cycle != nullptr) {
      VisitAll(*thread, *cycle, cycle->addresses, VisitHost);
    }
    disco_printf(kLogOob, nullptr, "OOB Port Discovery Thread %x idle", id);
    thread->SetIdle();
  }
  thread->SetIdle();
  disco_printf(kLogOob, nullptr, "OOB PortDiscovery Thread %x exiting", id);
}

void SilentHostThread(CZylTpThread* thread, void* hosts) {
  auto& silent = *static_cast<OobSilentHosts*>(hosts);
  thread->WaitForSignal(kForEver);
  disco_printf(kLogOob, nullptr, "OOB Port Discovery Thread %x active", IdOf(thread));
  VisitAll(*thread, *silent.cycle, silent.addresses, VisitSilentHost);
  thread->SetIdle();
  disco_printf(kLogOob, nullptr, "OOB PortDiscovery Thread %x exiting", IdOf(thread));
}

unsigned int COOBHbaDiscover::GetPortLinkStatus(CHbaEntry* entry, CZylTpThread* thread) {
  if (entry == nullptr || entry->GetProxyAddress()[0] == 0) return 0;
  const _RM_IP_INFO host = HostOf(*entry);
  RM_AddOOBAddressToLookupTable(&host, nullptr);
  PortAttributes attributes{};
  const int status = ReadPortAttributes(*entry, thread, attributes);
  if (status == RM_STATUS_OVER_TEMPERATURE) return kLinkOverTemperature;
  if (status != RM_STATUS_OK) return 0;
  unsigned int link = LinkByte(attributes, RM_ATTR_PHYSICAL_LINK);
  if ((entry->GetSpecialFeatures() & RM_FEATURE_CONVERGED) != 0)
    link |= LinkByte(attributes, RM_ATTR_FUNCTION_LINK) << 8;
  return link;
}

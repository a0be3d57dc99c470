#include "model/HbaEntry.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "include/hbadiscovery.h"

namespace {

constexpr unsigned char kProxyTypeIp = 0xFF;
constexpr unsigned char kProxyTypeCim = 0xFE;

// Type, 0, port as stored, IPv4 address.
void ProxyAddressFromIp(const _RM_IP_INFO& ipInfo, unsigned char (&proxyAddress)[8]) {
  proxyAddress[0] = (ipInfo.flags & RM_IP_FLAG_CIM) != 0 ? kProxyTypeCim : kProxyTypeIp;
  proxyAddress[1] = 0;
  std::memcpy(&proxyAddress[2], &ipInfo.port, 2);
  std::memcpy(&proxyAddress[4], ipInfo.address, 4);
}

// The 8-byte name that begins a record.
HBA_NAME NameFrom(const unsigned char* bytes) {
  HBA_NAME name;
  std::memcpy(name.wwn, bytes, sizeof(name.wwn));
  return name;
}

}  // namespace

CHbaEntry::CHbaEntry(const unsigned char* wwpn) {
  if (wwpn != nullptr) std::memcpy(m_State.info.portWwn, wwpn, sizeof(m_State.info.portWwn));
}

CHbaEntry::CHbaEntry(const HBA_info_v4* info, const unsigned char* /*unused*/, int isLocal,
                     const unsigned char* proxyAddress, int proxyOnly, const _RM_IP_INFO* ipInfo) {
  m_State.isLocal = isLocal;
  if (info != nullptr) m_State.info = *info;
  SetProxyAddress(proxyAddress);
  m_State.proxyOnly = proxyOnly;
  if (ipInfo == nullptr) return;
  SetProxyIpInfo(ipInfo);
  if ((ipInfo->flags & RM_IP_FLAG_IPV6) == 0) ProxyAddressFromIp(*ipInfo, m_State.proxyAddress);
}

CHbaEntry::CHbaEntry(const CHbaEntry& other)
    : m_State(other.m_State),
      m_ISCSINames(other.m_ISCSINames),
      m_Details(other.m_Details),
      m_Unanswered(other.m_Unanswered),
      m_Targets(other.GetTargetList().AsKind(other.IsISCSIPort())),
      m_VPorts(other.GetVPortList()),
      m_VFs(other.GetVFList()) {}

CHbaEntry& CHbaEntry::operator=(const CHbaEntry& other) {
  if (this != &other) CopyEntry(other);
  return *this;
}

void CHbaEntry::CopyEntry(const CHbaEntry& other) {
  if (this == &other) return;
  m_State = other.m_State;
  m_ISCSINames = other.m_ISCSINames;
  m_Details = other.m_Details;
  m_Unanswered = other.m_Unanswered;
  ReplaceTargets(other.GetTargetList().AsKind(other.IsISCSIPort()));
  ReplaceVPorts(other.GetVPortList());
  ReplaceVFs(other.GetVFList());
}

void CHbaEntry::SetProxyAddress(const unsigned char* address) {
  if (address == nullptr) {
    std::memset(m_State.proxyAddress, 0, sizeof(m_State.proxyAddress));
  } else {
    std::memmove(m_State.proxyAddress, address, sizeof(m_State.proxyAddress));
  }
}

void CHbaEntry::SetProxyIpInfo(const _RM_IP_INFO* ipInfo) {
  if (ipInfo == nullptr) return;
  m_State.ipInfo = *ipInfo;
  m_State.ipInfoValid = 1;
}

void CHbaEntry::AddTarget(const RM_NodeInfoEntry* target) {
  if (target == nullptr) return;
  const CTargetEntry entry(target);
  const LockGuard guard(g_TargetLock);
  m_Targets.AddEntry(&entry);
}

void CHbaEntry::AddTarget(const _RM_ISCSI_TARGET* target) {
  if (target == nullptr) return;
  const CTargetEntry entry(target);
  const LockGuard guard(g_TargetLock);
  m_Targets.AddEntry(&entry);
}

void CHbaEntry::AddVPort(const CVPortEntry* vport) {
  const LockGuard guard(g_VPortLock);
  m_VPorts.AddEntry(vport);
}

void CHbaEntry::AddVF(HBA_NAME address) {
  const CVFEntry entry(address);
  const LockGuard guard(g_VFListLock);
  m_VFs.AddEntry(&entry);
}

void CHbaEntry::ClearTargets() {
  ReplaceTargets({});
  m_State.targetsRead = true;
}

void CHbaEntry::ClearVPorts() {
  ReplaceVPorts({});
  m_State.vportsRead = true;
}

void CHbaEntry::ClearVFs() {
  ReplaceVFs({});
  m_State.vfsRead = true;
}

void CHbaEntry::ClearBelow() {
  ClearTargets();
  ClearVPorts();
  ClearVFs();
}

unsigned int CHbaEntry::GetTargetCount() const {
  const LockGuard guard(g_TargetLock);
  return m_Targets.GetCount();
}

unsigned int CHbaEntry::GetVPortCount() const {
  const LockGuard guard(g_VPortLock);
  return m_VPorts.GetCount();
}

unsigned int CHbaEntry::GetVFCount() const {
  const LockGuard guard(g_VFListLock);
  return m_VFs.GetCount();
}

CTargetList CHbaEntry::GetTargetList() const {
  const LockGuard guard(g_TargetLock);
  return m_Targets;
}

CVPortList CHbaEntry::GetVPortList() const {
  const LockGuard guard(g_VPortLock);
  return m_VPorts;
}

CVFList CHbaEntry::GetVFList() const {
  const LockGuard guard(g_VFListLock);
  return m_VFs;
}

void CHbaEntry::TakeTargets(const CHbaEntry& from) {
  if (from.m_State.targetsRead) {
    ReplaceTargets(from.GetTargetList());
    m_State.targetBindType = from.m_State.targetBindType;
  }
  m_State.targetsRead = from.m_State.targetsRead;
}

void CHbaEntry::BeginWithTargets(const CHbaEntry& listed) {
  if (IsISCSIPort() != listed.IsISCSIPort()) return;
  ReplaceTargets(listed.GetTargetList());
  m_State.targetsRead = false;
}

void CHbaEntry::ShareIdenticalTargets(const CTargetList& known) {
  if (GetTargetList().IsIdentical(known)) ReplaceTargets(known);
}

void CHbaEntry::TakeVPorts(const CHbaEntry& from) {
  if (from.m_State.vportsRead) ReplaceVPorts(from.GetVPortList());
  m_State.vportsRead = from.m_State.vportsRead;
}

void CHbaEntry::TakeVFs(const CHbaEntry& from) {
  if (from.m_State.vfsRead) ReplaceVFs(from.GetVFList());
  m_State.vfsRead = from.m_State.vfsRead;
}

// The old list leaves in the parameter, so that its entries are freed without the lock.
void CHbaEntry::ReplaceTargets(CTargetList targets) {
  const LockGuard guard(g_TargetLock);
  std::swap(m_Targets, targets);
}

void CHbaEntry::ReplaceVPorts(CVPortList vports) {
  const LockGuard guard(g_VPortLock);
  std::swap(m_VPorts, vports);
}

void CHbaEntry::ReplaceVFs(CVFList functions) {
  const LockGuard guard(g_VFListLock);
  std::swap(m_VFs, functions);
}

unsigned int CHbaEntry::GetTargets(RM_NodeInfoEntry* targets, unsigned int* count) const {
  return GetTargetList().CopyRecords(targets, count);
}

unsigned int CHbaEntry::GetVPorts(discovery_vport_info* vports, unsigned int* count) const {
  if (count == nullptr) return 0;
  const CVPortList list = GetVPortList();
  const unsigned int filled = vports == nullptr ? 0 : std::min(*count, list.GetCount());
  for (unsigned int i = 0; i < filled; ++i) {
    const CVPortEntry& vport = list.GetEntry(i);
    vports[i].portWwn = NameFrom(vport.GetHbaInfo()->portWwn);
    vports[i].nodeWwn = NameFrom(vport.GetHbaInfo()->nodeWwn);
    vports[i].targetCount = vport.GetTargetCount();
  }
  *count = filled;
  return list.GetCount() - filled;
}

unsigned int CHbaEntry::GetVPortTargets(HBA_NAME wwpn, RM_NodeInfoEntry* targets, unsigned int* count) const {
  if (count == nullptr) return 0;
  CVPortList list = GetVPortList();
  const CVPortEntry* vport = list.FindEntry(wwpn.wwn);
  if (vport != nullptr) return vport->GetTargets(targets, count);
  *count = 0;
  return 0;
}

unsigned int CHbaEntry::GetVirtualFunctionAddrs(discovery_vf_addrs* addresses) const {
  if (addresses == nullptr) return 0;
  const CVFList list = GetVFList();
  const unsigned int capacity = std::exchange(addresses->count, list.GetCount());
  if (capacity < list.GetCount()) return 1;
  auto* out = reinterpret_cast<unsigned char*>(addresses) + sizeof(*addresses);
  for (unsigned int i = 0; i < list.GetCount(); ++i) {
    const HBA_NAME address = list.GetEntry(i).GetAddress();
    std::memcpy(out + i * sizeof(address), &address, sizeof(address));
  }
  return 0;
}

bool CHbaEntry::operator<(const CHbaEntry& other) const {
  return std::memcmp(m_State.info.portWwn, other.m_State.info.portWwn, sizeof(m_State.info.portWwn)) < 0;
}

#include "inband/PortDiscovery.h"

#include <cstdint>
#include <exception>
#include <optional>
#include <utility>

#include "inband/PortAttributes.h"
#include "inband/PortDetailReader.h"
#include "inband/PortKind.h"
#include "inband/PortTargets.h"
#include "inband/PortVPorts.h"
#include "log/DiscoveryLog.h"
#include "model/WwpnKey.h"

namespace {

constexpr unsigned int kForEver = 0xFFFFFFFFU;
constexpr int kTries = 5;
constexpr unsigned int kPause = 100000;   // microseconds
constexpr int kFirstRetriedStatus = 500;  // what the attribute read itself finds fault with may pass

bool IsWorthARetry(int status) {
  return status == RM_STATUS_LOCKED || status == RM_STATUS_TRY_AGAIN || status >= kFirstRetriedStatus;
}

// One port on its way through a worker. The worker fills entries of its own, never one in a list, and files
// them under the list's lock only while it is enabled, so that a killed cycle's late result lands nowhere.
class PortVisit {
 public:
  PortVisit(CZylTpThread& thread, const PortDiscoveryBlock& block, const CHbaEntry& port)
      : m_Thread(thread), m_Block(block), m_Port(port) {}

  void Run();

 private:
  bool Enabled() const { return m_Thread.IsEnabled() != 0; }
  const unsigned char* Wwn() const { return m_Port.GetHbaInfo()->portWwn; }

  int ReadAttributes();
  void LogAttributes() const;
  void FileAsSlow(int status);
  std::optional<CHbaEntry> CopyListed() const;
  bool ReadBelow(CHbaEntry& port);
  void ReadDetails() const;
  void FileAsNew();
  void Refresh(CHbaEntry port);

  CZylTpThread& m_Thread;
  const PortDiscoveryBlock& m_Block;
  CHbaEntry m_Port;
};

void PortVisit::LogAttributes() const {
  const HBA_info_v4& info = *m_Port.GetHbaInfo();
  disco_printf(kLogInBand, Wwn(),
               "Got info for adapter on system '%.32s': vpdport#=%.8s, phyport#=%d, type=%s, model=%.80s",
               info.hostName, VPDPortNumberText(info), info.physicalPort,
               PortTypeWord(m_Port.GetSpecialFeatures()), info.model);
}

int PortVisit::ReadAttributes() {
  if (m_Port.IsHbaInfoValid() != 0) return RM_STATUS_OK;
  int status = RM_STATUS_LOCKED;
  for (int tries = 0; tries < kTries && Enabled(); ++tries) {
    status = GetRemotePortAttr(&m_Port, &m_Thread);
    if (!IsWorthARetry(status)) break;
    ZylSleep(kPause);
  }
  if (status == RM_STATUS_OK) LogAttributes();
  return status;
}

void PortVisit::FileAsSlow(int status) {
  disco_printf(kLogLocalPorts, Wwn(), "RM_GetHBAAttributes() error %d, ", status & 0xFF);
  if (m_Block.slow == nullptr) return;
  CHbaList& slow = *m_Block.slow;
  HbaListGuard guard(slow);
  if (!Enabled()) return;
  slow.AddEntry(&m_Port);
  disco_printf(kLogInBand, Wwn(), "put on slow discovery list");
}

std::optional<CHbaEntry> PortVisit::CopyListed() const {
  CHbaList& destination = *m_Block.destination;
  HbaListGuard guard(destination);
  const CHbaEntry* listed = destination.FindEntry(Wwn());
  if (listed == nullptr) return std::nullopt;
  return *listed;
}

// Reads targets, virtual ports and functions; true when the number of targets is not the old one. A port whose
// number has changed needs no more visits on that account; one that did not answer is visited again.
bool PortVisit::ReadBelow(CHbaEntry& port) {
  port.SetNothingRead();
  const unsigned int oldCount = port.GetOldTargetCount();
  const CTargetList known = port.GetTargetList();
  const unsigned int count = AddTargetInfo(&port, &m_Thread, 1, 1);
  port.ShareIdenticalTargets(known);
  const bool changed = port.AreTargetsRead() && count != oldCount;
  if (!Enabled()) return false;
  if (changed) {
    port.ResetTargetMapRetries();
    disco_printf(kLogInBand, Wwn(), "Got %d targets (oldcount=%d) for HBA (system: '%.32s')",
                 port.GetTargetCount(), oldCount, port.GetHbaInfo()->hostName);
  }
  AddVPortInfo(&port, &m_Thread, 1);
  return changed;
}

// Last, so that nothing else waits for it. Ports that were read by their attributes have told theirs.
void PortVisit::ReadDetails() const {
  if (!m_Block.details || m_Port.IsLocalPort() == 0 || !Enabled()) return;
  auto details = ReadLocalPortDetails(Wwn());
  if (details == nullptr) return;
  CHbaList& destination = *m_Block.destination;
  HbaListGuard guard(destination);
  CHbaEntry* listed = destination.FindEntry(Wwn());
  if (listed != nullptr && Enabled()) listed->SetDetails(std::move(details));
}

void PortVisit::FileAsNew() {
  if (IsTargetModePort(*m_Port.GetHbaInfo())) {
    m_Port.ClearBelow();
  } else {
    ReadBelow(m_Port);
  }
  CHbaList& destination = *m_Block.destination;
  HbaListGuard guard(destination);
  if (!Enabled()) return;
  m_Port.SetHbaInfoValid();
  destination.AddEntry(&m_Port);
  disco_printf(kLogInBand, Wwn(), "Added to discovery list (system: '%.32s')", m_Port.GetHbaInfo()->hostName);
}

// Reads below a port that is listed already and puts exactly what was read into the listed entry. Attributes
// are not carried over, not even when this visit has read some.
void PortVisit::Refresh(CHbaEntry port) {
  if (IsTargetModePort(*m_Port.GetHbaInfo())) return;
  const bool changed = ReadBelow(port);
  // What a copy shares is taken over without memory: all of it, or none.
  const CHbaEntry read(port);
  CHbaList& destination = *m_Block.destination;
  HbaListGuard guard(destination);
  CHbaEntry* listed = destination.FindEntry(Wwn());
  if (listed == nullptr || !Enabled()) return;
  listed->TakeTargets(read);
  listed->TakeVPorts(read);
  listed->TakeVFs(read);
  if (!changed) return;
  listed->ResetTargetMapRetries();
  destination.SetModified(1);
}

void PortVisit::Run() {
  AnswerBook<PortKey>::Question question(m_Block.answers == nullptr ? nullptr : &m_Block.answers->ports,
                                         {HostKey{}, WwpnKey(Wwn())});
  const int status = ReadAttributes();
  if (!Enabled()) return;
  question.Answer(status, status == RM_STATUS_OK || status == RM_STATUS_OVER_TEMPERATURE);
  if (status != RM_STATUS_OK) return FileAsSlow(status);
  if (std::optional<CHbaEntry> listed = CopyListed()) {
    Refresh(*std::move(listed));
  } else {
    FileAsNew();
  }
  ReadDetails();
}

}  // namespace

void VisitPorts(CZylTpThread& thread, const PortDiscoveryBlock& block) {
  while (thread.IsEnabled() != 0) {
    // The list hands each port to one worker only, and nobody removes ports while workers visit them.
    const CHbaEntry* port = block.ports->InterlockedGetNextEntry();
    if (port == nullptr) return;
    try {
      PortVisit(thread, block, *port).Run();
    } catch (const std::exception& failure) {
      // Most likely no memory; the other ports may still be read.
      disco_printf(kLogLocalPorts, port->GetHbaInfo()->portWwn, "Port discovery gives up on this port (%s)",
                   failure.what());
    }
  }
}

namespace {

void WorkUntilTerminated(CZylTpThread& thread, const PortDiscoveryParams& params, unsigned int id) {
  while (thread.Terminated() == 0) {
    thread.WaitForSignal(kForEver);
    if (thread.Terminated() != 0) return;
    disco_printf(kLogInBand, nullptr, "Port Discovery Thread %x active", id);
    if (const auto block = params.Get()) VisitPorts(thread, *block);
    disco_printf(kLogInBand, nullptr, "Port Discovery Thread %x idle", id);
    thread.SetIdle();
  }
}

}  // namespace

void PortDiscoveryParams::Set(std::shared_ptr<CHbaList> ports, std::shared_ptr<CHbaList> destination,
                              std::shared_ptr<CHbaList> slow, std::shared_ptr<Answers> answers, bool details) {
  if (ports == nullptr || destination == nullptr) return Clear();
  Replace(std::make_shared<const PortDiscoveryBlock>(PortDiscoveryBlock{
      std::move(ports), std::move(destination), std::move(slow), std::move(answers), details}));
}

void PortDiscoveryParams::Clear() {
  Replace(nullptr);
}

void PortDiscoveryParams::Replace(std::shared_ptr<const PortDiscoveryBlock> block) {
  {
    LockGuard guard(m_Lock);
    m_Block.swap(block);
  }
  // The old block goes here, without the lock: freeing lists may take long.
}

std::shared_ptr<const PortDiscoveryBlock> PortDiscoveryParams::Get() const {
  LockGuard guard(m_Lock);
  return m_Block;
}

void PortDiscoveryThreadProc(CZylTpThread* thread, void* params) {
  // The low half of the address tells the workers of one pool apart.
  const auto id = static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(thread));
  disco_printf(kLogInBand, nullptr, "Port Discovery Thread %x started", id);
  if (params != nullptr) WorkUntilTerminated(*thread, *static_cast<const PortDiscoveryParams*>(params), id);
  thread->SetIdle();
  disco_printf(kLogInBand, nullptr, "PortDiscovery Thread %x exitting", id);
}

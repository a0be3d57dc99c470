#include "discovery/PortChanges.h"

#include <cstring>

#include "discovery/PortRecords.h"

namespace {

unsigned int PhysicalLink(const CHbaEntry& port) {
  const unsigned int link = port.GetLinkStatus();
  return link == kLinkOverTemperature ? link : link & 0xFFU;
}

unsigned int FunctionLink(const CHbaEntry& port) {
  const unsigned int link = port.GetLinkStatus();
  return link == kLinkOverTemperature ? 0U : (link >> 8) & 0xFFU;
}

// The record without what has changes of its own.
hba_discovery_info_V4 Attributes(const CHbaEntry& port) {
  hba_discovery_info_V4 record;
  FillRecord(port, &record);
  record.unanswered = 0;
  record.status = 0;
  record.unansweredSince = 0;
  record.base.vfCount = 0;
  record.base.base.vportCount = 0;
  record.base.base.base.targetCount = 0;
  record.base.base.base.linkStatus = 0;
  return record;
}

template <class Record>
bool SameBytes(const Record& one, const Record& other) {
  return std::memcmp(&one, &other, sizeof one) == 0;
}

discovery_iscsi_names NamesOf(const CHbaEntry& port) {
  discovery_iscsi_names names;
  FillRecord(*port.GetISCSINames(), &names);
  return names;
}

bool SameMark(const CHbaEntry& one, const CHbaEntry& other) {
  const auto& mine = one.GetUnanswered();
  const auto& theirs = other.GetUnanswered();
  if ((mine == nullptr) != (theirs == nullptr)) return false;
  return mine == nullptr || (StatusOf(*mine) == StatusOf(*theirs) && mine->since == theirs->since);
}

bool SameItem(const CTargetEntry& one, const CTargetEntry& other) {
  return SameBytes(*one.GetTargetEntry(), *other.GetTargetEntry());
}
// Its targets have changes of their own.
bool SameItem(const CVPortEntry& one, const CVPortEntry& other) {
  return std::memcmp(one.GetHbaInfo()->nodeWwn, other.GetHbaInfo()->nodeWwn, sizeof(HBA_NAME)) == 0;
}
bool SameItem(const CVFEntry& /*one*/, const CVFEntry& /*other*/) {
  return true;
}

// One visit of the changes of a port. The lists are handles: what they point at lives as long as this.
class Comparison {
 public:
  Comparison(const CHbaEntry* before, const CHbaEntry* after, const PortChangeVisitor& visit)
      : m_Before(before), m_After(after), m_Visit(visit) {}

  void Run() {
    if (m_After == nullptr) return Tell(HBADISC_CHANGE_REMOVED);
    if (m_Before == nullptr) {
      Tell(HBADISC_CHANGE_ADDED);
    } else {
      Values();
    }
    const CHbaEntry none;
    const CHbaEntry& old = m_Before == nullptr ? none : *m_Before;
    if (m_Before == nullptr ? HasNames(*m_After) : !SameBytes(NamesOf(old), NamesOf(*m_After))) {
      Tell(HBADISC_CHANGE_ISCSI_NAMES);
    }
    const CTargetList oldTargets = old.GetTargetList();
    const CTargetList newTargets = m_After->GetTargetList();
    Items(HBADISC_CHANGE_TARGET, oldTargets, newTargets);
    VPorts(old.GetVPortList(), m_After->GetVPortList());
    Items(HBADISC_CHANGE_FUNCTION, old.GetVFList(), m_After->GetVFList());
    if (m_Before != nullptr && !SameMark(old, *m_After)) Tell(HBADISC_CHANGE_UNANSWERED);
  }

 private:
  static bool HasNames(const CHbaEntry& port) { return !SameBytes(NamesOf(port), discovery_iscsi_names{}); }

  void Tell(unsigned int kind) const { m_Visit({kind, m_Before, m_After}); }

  void Values() const {
    if (PhysicalLink(*m_Before) != PhysicalLink(*m_After)) Tell(HBADISC_CHANGE_LINK);
    if (FunctionLink(*m_Before) != FunctionLink(*m_After)) Tell(HBADISC_CHANGE_FUNCTION_LINK);
    if (!SameBytes(Attributes(*m_Before), Attributes(*m_After))) Tell(HBADISC_CHANGE_ATTRIBUTES);
  }

  // Both lists are in order. `both` is called with each pair of equal keys, `one` with each that is alone.
  template <class List, class Pair>
  static void Walk(const List& old, const List& now, Pair pair) {
    unsigned int i = 0;
    unsigned int k = 0;
    while (i < old.GetCount() || k < now.GetCount()) {
      int order = 0;
      if (k == now.GetCount())
        order = -1;
      else if (i == old.GetCount())
        order = 1;
      else
        order = old.GetEntry(i).CompareOrder(now.GetEntry(k));
      pair(order <= 0 ? &old.GetEntry(i) : nullptr, order >= 0 ? &now.GetEntry(k) : nullptr);
      if (order <= 0) ++i;
      if (order >= 0) ++k;
    }
  }

  template <class List>
  void Items(unsigned int kind, const List& old, const List& now, const CVPortEntry* vport = nullptr) const {
    if (old.IsSameStorage(now)) return;
    Walk(old, now, [&](const auto* was, const auto* is) {
      if (was == nullptr || is == nullptr || !SameItem(*was, *is)) {
        m_Visit({kind, m_Before, m_After, vport, was, is});
      }
    });
  }

  void VPorts(const CVPortList& old, const CVPortList& now) const {
    if (old.IsSameStorage(now)) return;
    Walk(old, now, [&](const CVPortEntry* was, const CVPortEntry* is) {
      const PortChange change{HBADISC_CHANGE_VPORT, m_Before, m_After, nullptr, was, is};
      const CTargetList oldTargets = was == nullptr ? CTargetList() : was->GetTargetList();
      const CTargetList newTargets = is == nullptr ? CTargetList() : is->GetTargetList();
      // A virtual port is there while its targets are.
      if (was == nullptr || (is != nullptr && !SameItem(*was, *is))) m_Visit(change);
      Items(HBADISC_CHANGE_TARGET, oldTargets, newTargets, is == nullptr ? was : is);
      if (is == nullptr) m_Visit(change);
    });
  }

  const CHbaEntry* const m_Before;
  const CHbaEntry* const m_After;
  const PortChangeVisitor& m_Visit;
};

void FillItem(unsigned int kind, const void* item, hbadisc_change_value* value) {
  if (kind == HBADISC_CHANGE_TARGET) {
    value->target = *static_cast<const CTargetEntry*>(item)->GetTargetEntry();
  } else if (kind == HBADISC_CHANGE_VPORT) {
    const auto& vport = *static_cast<const CVPortEntry*>(item);
    std::memcpy(&value->vport.portWwn, vport.GetHbaInfo()->portWwn, sizeof(HBA_NAME));
    std::memcpy(&value->vport.nodeWwn, vport.GetHbaInfo()->nodeWwn, sizeof(HBA_NAME));
    value->vport.targetCount = vport.GetTargetCount();
  } else {
    value->function = static_cast<const CVFEntry*>(item)->GetAddress();
  }
}

void FillValue(unsigned int kind, const CHbaEntry& port, hbadisc_change_value* value) {
  switch (kind) {
    case HBADISC_CHANGE_LINK:
      value->link = PhysicalLink(port);
      return;
    case HBADISC_CHANGE_FUNCTION_LINK:
      value->link = FunctionLink(port);
      return;
    case HBADISC_CHANGE_ISCSI_NAMES:
      value->iscsiNames = NamesOf(port);
      return;
    default:
      FillRecord(port, &value->port);
  }
}

}  // namespace

void VisitPortChanges(const CHbaEntry* before, const CHbaEntry* after, const PortChangeVisitor& visit) {
  Comparison(before, after, visit).Run();
}

void FillRecord(const PortChange& change, hbadisc_change* record) {
  const bool isItem = change.oldItem != nullptr || change.newItem != nullptr;
  const bool hasBefore = isItem ? change.oldItem != nullptr : change.before != nullptr;
  const bool hasAfter = isItem ? change.newItem != nullptr : change.after != nullptr;
  record->kind = change.kind;
  record->values =
      (hasBefore ? 1U * HBADISC_CHANGE_HAS_BEFORE : 0U) | (hasAfter ? 1U * HBADISC_CHANGE_HAS_AFTER : 0U);
  if (const CHbaEntry* port = change.after != nullptr ? change.after : change.before; port != nullptr) {
    std::memcpy(&record->port, port->GetHbaInfo()->portWwn, sizeof record->port);
  }
  std::memset(&record->vport, 0, sizeof record->vport);
  if (change.vport != nullptr) {
    std::memcpy(&record->vport, change.vport->GetHbaInfo()->portWwn, sizeof record->vport);
  }
  std::memset(&record->before, 0, sizeof record->before);
  std::memset(&record->after, 0, sizeof record->after);
  if (isItem) {
    if (hasBefore) FillItem(change.kind, change.oldItem, &record->before);
    if (hasAfter) FillItem(change.kind, change.newItem, &record->after);
    return;
  }
  if (hasBefore) FillValue(change.kind, *change.before, &record->before);
  if (hasAfter) FillValue(change.kind, *change.after, &record->after);
}

#include "discovery/KeptPicture.h"

#include <cstring>
#include <new>
#include <set>
#include <vector>

#include "config/DiscConfig.h"
#include "model/WwpnKey.h"

namespace {

constexpr int kDay = 86400;  // seconds
constexpr int kChangeRecords = 10000;
constexpr int kMostChangeRecords = 10000000;

int SettingOf(const char* key, int missing) {
  int value = missing;
  getDiscConfigIntValue(&value, key);
  return value;
}

std::vector<const CHbaEntry*> EntriesOf(CHbaList* list) {
  std::vector<const CHbaEntry*> entries;
  if (list == nullptr) return entries;
  CHbaList& ports = *list;
  HbaListGuard guard(ports);
  ports.ForEach([&entries](const CHbaEntry& entry) { entries.push_back(&entry); });
  return entries;
}

int Order(const CHbaEntry& one, const CHbaEntry& other) {
  return std::memcmp(one.GetHbaInfo()->portWwn, other.GetHbaInfo()->portWwn, sizeof(HBA_NAME));
}

}  // namespace

struct KeptPicture::Settings {
  int changeRecords = kChangeRecords;
  int keepSeconds = kDay;
};

KeptPicture::Settings KeptPicture::ReadSettings() {
  Settings settings;
  const int records = SettingOf("DISCO_CHANGE_RECORDS", kChangeRecords);
  if (records >= 1 && records <= kMostChangeRecords) settings.changeRecords = records;
  const int keep = SettingOf("DISCO_KEEP_UNANSWERED", kDay);
  if (keep >= 0) settings.keepSeconds = keep;
  return settings;
}

// Settings and provider are asked without the lock, which cycles need.
KeptPicture::Taken KeptPicture::Take() {
  const Settings settings = m_Followed.load() ? Settings{} : ReadSettings();
  const bool secured = m_Current.GetCurrentList() != nullptr && CurrentPicture::IsSecured();
  LockGuard guard(m_Lock);
  if (!m_Followed.load()) FollowLocked(settings);
  // Somebody wants to see what there is before the first cycle ends.
  m_WithGathered = m_WithGathered || m_First.IsAwaited();
  NoteLocked(BuildLocked(secured));
  return {m_Last, m_Changes.Last()};
}

void KeptPicture::Update(Side side, const std::function<void()>& merge) {
  if (!m_Followed.load()) return merge();
  LockGuard guard(m_Lock);
  merge();
  try {
    (side == Side::kBoards ? m_Boards : m_Hosts) = std::make_shared<const AnswerView>(m_Answers);
  } catch (const std::bad_alloc&) {
    // The answers before count for another cycle.
  }
}

void KeptPicture::Note() {
  if (!m_Followed.load()) return;
  try {
    const bool secured = m_Current.GetCurrentList() != nullptr && CurrentPicture::IsSecured();
    LockGuard guard(m_Lock);
    NoteLocked(BuildLocked(secured));
  } catch (...) {
    // The picture before stays the one that the next is compared with.
  }
}

void KeptPicture::Close() {
  if (!m_Followed.load()) return;
  try {
    LockGuard guard(m_Lock);
    NoteLocked(nullptr);
    m_Boards = m_Hosts = std::make_shared<const AnswerView>(m_Answers);
  } catch (...) {
    // As above: the next start compares with what was there.
  }
}

void KeptPicture::FollowLocked(const Settings& settings) {
  m_Changes.SetLimit(static_cast<std::uint64_t>(settings.changeRecords));
  m_KeepMilliseconds = std::int64_t{settings.keepSeconds} * 1000;
  m_Boards = m_Hosts = std::make_shared<const AnswerView>(m_Answers);
  m_Followed = true;
}

std::optional<AnswerRecord> KeptPicture::WhyUnseen(const CHbaEntry& port) const {
  return (port.IsLocalPort() != 0 ? *m_Boards : *m_Hosts).WhyUnseen(port);
}

// Compares with the last picture, and takes its place: both, or neither for want of memory.
void KeptPicture::NoteLocked(const std::shared_ptr<CHbaList>& ports) {
  const std::int64_t now = NowMilliseconds();
  const std::vector<const CHbaEntry*> before = EntriesOf(m_Last.get());
  const std::vector<const CHbaEntry*> after = EntriesOf(ports.get());
  ChangeLog::Batch batch;
  auto old = before.begin();
  auto present = after.begin();
  while (old != before.end() || present != after.end()) {
    int order = 0;
    if (old == before.end()) {
      order = 1;
    } else {
      order = present == after.end() ? -1 : Order(**old, **present);
    }
    ChangeLog::Add(batch, order <= 0 ? *old : nullptr, order >= 0 ? *present : nullptr, now);
    if (order <= 0) ++old;
    if (order >= 0) ++present;
  }
  m_Changes.Append(batch);
  m_Last = ports;
  m_Changes.Announce();
}

std::shared_ptr<CHbaList> KeptPicture::BuildLocked(bool secured) {
  m_WithGathered = m_WithGathered && m_First.IsAwaited();
  std::shared_ptr<CHbaList> ports = m_Current.CopyPorts(secured, m_WithGathered);
  if (ports == nullptr) return nullptr;
  KeepUnanswered(*ports);
  return ports;
}

// Marks what could not be asked, puts back what is missing for that reason alone, and takes out what is gone or
// has not answered for too long.
void KeptPicture::KeepUnanswered(CHbaList& ports) {
  const std::int64_t now = NowMilliseconds();
  const auto tooOld = [&](const AnswerRecord& why) REQUIRES(m_Lock) {
    return now - (why.since != 0 ? why.since : why.asking) >= m_KeepMilliseconds;
  };
  const std::vector<const CHbaEntry*> before = EntriesOf(m_Last.get());
  std::set<std::uint64_t> dropped;
  HbaListGuard guard(ports);
  for (CHbaEntry* port = ports.GetFirstEntry(); port != nullptr; port = ports.GetNextEntry()) {
    const std::optional<AnswerRecord> why = WhyUnseen(*port);
    if (why ? tooOld(*why) : m_Boards->IsGone(*port)) {
      // A lite cycle leaves it in the current list.
      dropped.insert(WwpnKey(port->GetHbaInfo()->portWwn));
      ports.RemoveCurrentEntry();
    } else {
      port->SetUnanswered(why);
    }
  }
  for (const CHbaEntry* known : before) {
    const unsigned char* name = known->GetHbaInfo()->portWwn;
    if (ports.FindEntry(name) != nullptr || dropped.contains(WwpnKey(name))) continue;
    std::optional<AnswerRecord> why = WhyUnseen(*known);
    if (!why) continue;
    if (known->GetUnanswered() && known->GetUnanswered()->since != 0)
      why->since = known->GetUnanswered()->since;
    if (tooOld(*why)) continue;
    CHbaEntry kept(*known);
    kept.SetUnanswered(why);
    ports.AddEntry(&kept);
  }
}

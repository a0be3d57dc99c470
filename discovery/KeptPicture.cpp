#include "discovery/KeptPicture.h"

#include <cstring>
#include <new>
#include <vector>

#include "config/DiscConfig.h"

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

KeptPicture::Taken KeptPicture::Take() {
  LockGuard guard(m_Lock);
  FollowLocked();
  // Somebody wants to see what there is before the first cycle ends.
  m_WithGathered = m_WithGathered || m_First.IsAwaited();
  NoteLocked(BuildLocked());
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
    LockGuard guard(m_Lock);
    NoteLocked(BuildLocked());
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

void KeptPicture::FollowLocked() {
  if (m_Followed.load()) return;
  const int records = SettingOf("DISCO_CHANGE_RECORDS", kChangeRecords);
  m_Changes.SetLimit(
      static_cast<std::uint64_t>(records < 1 || records > kMostChangeRecords ? kChangeRecords : records));
  const int keep = SettingOf("DISCO_KEEP_UNANSWERED", kDay);
  m_KeepMilliseconds = std::int64_t{keep < 0 ? kDay : keep} * 1000;
  m_Boards = m_Hosts = std::make_shared<const AnswerView>(m_Answers);
  m_Followed = true;
}

std::optional<AnswerRecord> KeptPicture::WhyUnseen(const CHbaEntry& port) const {
  return (port.IsLocalPort() != 0 ? *m_Boards : *m_Hosts).WhyUnseen(port);
}

// Compares with the last picture, and takes its place.
void KeptPicture::NoteLocked(const std::shared_ptr<CHbaList>& ports) {
  const std::int64_t now = NowMilliseconds();
  const std::vector<const CHbaEntry*> before = EntriesOf(m_Last.get());
  const std::vector<const CHbaEntry*> after = EntriesOf(ports.get());
  auto old = before.begin();
  auto present = after.begin();
  while (old != before.end() || present != after.end()) {
    int order = 0;
    if (old == before.end()) {
      order = 1;
    } else {
      order = present == after.end() ? -1 : Order(**old, **present);
    }
    m_Changes.Add(order <= 0 ? *old : nullptr, order >= 0 ? *present : nullptr, now);
    if (order <= 0) ++old;
    if (order >= 0) ++present;
  }
  m_Last = ports;
  m_Changes.Announce();
}

std::shared_ptr<CHbaList> KeptPicture::BuildLocked() {
  m_WithGathered = m_WithGathered && m_First.IsAwaited();
  std::shared_ptr<CHbaList> ports = m_Current.GetCurrentHbaList(m_WithGathered);
  if (ports == nullptr) return nullptr;
  KeepUnanswered(*ports);
  return ports;
}

// Marks what could not be asked, and puts back what is missing for that reason alone.
void KeptPicture::KeepUnanswered(CHbaList& ports) {
  const std::int64_t now = NowMilliseconds();
  const std::vector<const CHbaEntry*> before = EntriesOf(m_Last.get());
  HbaListGuard guard(ports);
  for (CHbaEntry* port = ports.GetFirstEntry(); port != nullptr; port = ports.GetNextEntry()) {
    port->SetUnanswered(WhyUnseen(*port));
  }
  for (const CHbaEntry* known : before) {
    if (ports.FindEntry(known->GetHbaInfo()->portWwn) != nullptr) continue;
    std::optional<AnswerRecord> why = WhyUnseen(*known);
    if (!why) continue;
    if (known->GetUnanswered() && known->GetUnanswered()->since != 0)
      why->since = known->GetUnanswered()->since;
    const std::int64_t since = why->since != 0 ? why->since : why->asking;
    if (now - since >= m_KeepMilliseconds) continue;
    CHbaEntry kept(*known);
    kept.SetUnanswered(why);
    ports.AddEntry(&kept);
  }
}

// The current picture as it is followed: with the ports that could not be asked, each with its mark, and with a
// record of what has changed from one picture to the next.
//
// It begins when somebody first wants it. From then on discovery notes a picture whenever it may have changed.
//
// Thread safety: internally locked. Lock order: its lock, then the current list's.
// Ownership: pictures are shared and never changed; picture, answers and first picture outlive the object.
#ifndef DISCOVERY_KEPTPICTURE_H_
#define DISCOVERY_KEPTPICTURE_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "discovery/ChangeLog.h"
#include "discovery/CurrentPicture.h"
#include "discovery/FirstPicture.h"
#include "model/Answers.h"
#include "model/HbaList.h"
#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

class KeptPicture {
 public:
  KeptPicture(const CurrentPicture& current, const Answers& answers, const FirstPicture& first)
      : m_Current(current), m_Answers(answers), m_First(first) {}

  struct Taken {
    std::shared_ptr<CHbaList> ports;  // null: discovery does not run
    std::uint64_t sequence = 0;       // of the last change in it
  };
  // The picture as it is now, which is followed from here on.
  Taken Take() EXCLUDES(m_Lock);
  bool IsFollowed() const { return m_Followed.load(); }
  // Follows it from here on.
  void Follow() {
    if (!m_Followed.load()) Take();
  }
  // Runs `merge`, which brings the current list up to date with a cycle. What was answered in it counts from
  // then on, and not before: else a port whose board answers again would be missing, for no reason, until the
  // cycle's end.
  enum class Side { kBoards, kHosts };
  void Update(Side side, const std::function<void()>& merge) EXCLUDES(m_Lock);
  // Notes the picture when it is followed. What cannot be noted for want of memory is, the next time.
  void Note() EXCLUDES(m_Lock);
  // Discovery has stopped: there are no ports.
  void Close() EXCLUDES(m_Lock);

  ChangeLog& Changes() { return m_Changes; }

 private:
  struct Settings;
  static Settings ReadSettings();
  void FollowLocked(const Settings& settings) REQUIRES(m_Lock);
  void NoteLocked(const std::shared_ptr<CHbaList>& ports) REQUIRES(m_Lock);
  std::shared_ptr<CHbaList> BuildLocked(bool secured) REQUIRES(m_Lock);
  void KeepUnanswered(CHbaList& ports) REQUIRES(m_Lock);
  std::optional<AnswerRecord> WhyUnseen(const CHbaEntry& port) const REQUIRES(m_Lock);

  const CurrentPicture& m_Current;
  const Answers& m_Answers;
  const FirstPicture& m_First;
  ChangeLog m_Changes;
  std::atomic<bool> m_Followed{false};  // atomic: looked at by every cycle
  CZylThreadLock m_Lock;
  std::int64_t m_KeepMilliseconds GUARDED_BY(m_Lock) = 0;
  std::shared_ptr<CHbaList> m_Last GUARDED_BY(m_Lock);  // null: no ports
  // What was answered up to the last cycle of each side.
  std::shared_ptr<const AnswerView> m_Boards GUARDED_BY(m_Lock);
  std::shared_ptr<const AnswerView> m_Hosts GUARDED_BY(m_Lock);
  bool m_WithGathered GUARDED_BY(m_Lock) = false;  // the last picture has what the first cycle had read so far
};

#endif  // DISCOVERY_KEPTPICTURE_H_

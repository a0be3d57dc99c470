// The little that the discoverers below the controller (slow and out-of-band discovery) may ask of it.
//
// Thread safety: every call may be made from any thread.
// Ownership: the owner outlives whoever it is given to.
#ifndef MODEL_DISCOVERYOWNER_H_
#define MODEL_DISCOVERYOWNER_H_

#include <functional>
#include <memory>

class Answers;
class CHbaList;

class DiscoveryOwner {
 public:
  // The merged result of all cycles; null when discovery is stopped.
  virtual std::shared_ptr<CHbaList> GetCurrentList() const = 0;
  // Tells the application; nothing once discovery is stopped.
  virtual void DoCallBack(int changed, int forced, int intermediate) = 0;
  // Most workers of slow discovery.
  virtual unsigned int GetMaxSlowThreads() const = 0;
  // True when every in-band cycle is a full one; slow discovery then rests.
  virtual bool IsFullDiscoveryOnly() const = 0;
  // True until the first in-band cycle has ended.
  virtual bool IsFirstCyclePending() const = 0;
  // Time between the intermediate callbacks of a forced cycle, in seconds.
  virtual unsigned int GetIntermediateCBInterval() const = 0;
  // Where what was asked is noted; null: nowhere.
  virtual std::shared_ptr<Answers> GetAnswers() const { return nullptr; }
  // Runs `merge`, by which the current list takes over what a cycle of remote hosts has found: what these have
  // answered counts from then on.
  virtual void UpdateFromHosts(const std::function<void()>& merge) { merge(); }
  // The current list, or what did not answer, may have changed.
  virtual void NotePicture() {}
  // True on a thread that runs the application's callback: it holds what a cycle's end may wait for.
  virtual bool IsInCallBack() const { return false; }

 protected:
  ~DiscoveryOwner() = default;
};

#endif  // MODEL_DISCOVERYOWNER_H_

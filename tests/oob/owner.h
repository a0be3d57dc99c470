// The controller above, as far as out-of-band discovery asks for it.
#ifndef TESTS_OOB_OWNER_H_
#define TESTS_OOB_OWNER_H_

#include <atomic>
#include <functional>
#include <memory>

#include "discovery/DiscoveryOwner.h"
#include "discovery/HbaDiscoveryList.h"

class Owner final : public DiscoveryOwner {
 public:
  std::shared_ptr<CHbaList> GetCurrentList() const override { return current; }
  void DoCallBack(int changed, int forced, int intermediate) override {
    if (changed == 1 && forced == 0 && intermediate == 0) ++callbacks;
    if (onCallBack) onCallBack();
  }
  unsigned int GetMaxSlowThreads() const override { return 15; }
  bool IsFullDiscoveryOnly() const override { return false; }
  bool IsFirstCyclePending() const override { return false; }
  unsigned int GetIntermediateCBInterval() const override { return intermediateInterval; }
  bool IsInCallBack() const override { return inCallBack; }

  std::shared_ptr<CHbaList> current = std::make_shared<CHbaList>(ListRank::kCurrent);
  std::function<void()> onCallBack;
  std::atomic<int> callbacks{0};
  std::atomic<bool> inCallBack{false};
  unsigned int intermediateInterval = 8;
};

#endif  // TESTS_OOB_OWNER_H_

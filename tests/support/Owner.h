// The controller above, as far as slow and out-of-band discovery ask for it.
#ifndef TESTS_SUPPORT_OWNER_H_
#define TESTS_SUPPORT_OWNER_H_

#include "model/DiscoveryOwner.h"
#include "model/HbaList.h"
#include "tests/support/Testing.h"

class Owner final : public DiscoveryOwner {
 public:
  std::shared_ptr<CHbaList> GetCurrentList() const override { return current; }
  // They only report changes; a callback of another kind spoils the count.
  void DoCallBack(int changed, int forced, int intermediate) override {
    callbacks += changed == 1 && forced == 0 && intermediate == 0 ? 1 : 1000;
  }
  unsigned int GetMaxSlowThreads() const override { return 15; }
  bool IsFullDiscoveryOnly() const override { return false; }
  bool IsFirstCyclePending() const override { return firstPending; }
  unsigned int GetIntermediateCBInterval() const override { return 8; }
  bool IsInCallBack() const override { return inCallBack; }

  std::shared_ptr<CHbaList> current = std::make_shared<CHbaList>(ListRank::kCurrent);
  std::atomic<int> callbacks{0};
  std::atomic<bool> firstPending{false};
  std::atomic<bool> inCallBack{false};
};

#endif  // TESTS_SUPPORT_OWNER_H_

// The parts of the controller, which cycles, directed discovery and the application's requests share, and what
// the discoverers below may ask of them.
//
// Lock order: start and stop, force lock, callback lock, current list, other lists. The gate's lock, and inside
// it the kill lock of the state word, and the leaves (slots, registration, control calls) are held for a
// moment.
#ifndef DISCOVERY_PARTS_H_
#define DISCOVERY_PARTS_H_

#include <atomic>
#include <memory>

#include "discovery/Callback.h"
#include "discovery/ControlCalls.h"
#include "discovery/CurrentPicture.h"
#include "discovery/CycleGate.h"
#include "discovery/FirstPicture.h"
#include "discovery/KeptPicture.h"
#include "discovery/RemoteSide.h"
#include "discovery/SlowSide.h"
#include "discovery/StateWord.h"
#include "model/Answers.h"
#include "model/DiscoveryOwner.h"
#include "thread/zyl_thread.h"

struct DiscoverySettings {
  bool fullDiscoveryOnly = false;
  unsigned int maxPortThreads = 15;
};

// Thread safety: each part is internally locked. Ownership: the thread outlives the parts.
struct Parts final : public DiscoveryOwner {
  Parts(CZylThread& mainInBand, const DiscoverySettings& read)
      : settings(read),
        mainThread(mainInBand),
        state(mainInBand),
        gate(state),
        picture(remote),
        kept(picture, *answers, first) {}
  virtual ~Parts() = default;
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;

  std::shared_ptr<CHbaList> GetCurrentList() const override { return picture.GetCurrentList(); }
  void DoCallBack(int changed, int forced, int intermediate) override {
    Report({changed != 0, forced != 0, intermediate != 0});
  }
  // The followed picture is noted first: who is called back finds it there.
  void Report(const CycleReport& report) {
    kept.Note();
    callback.Report(report);
  }
  std::shared_ptr<Answers> GetAnswers() const override { return answers; }
  void UpdateFromHosts(const std::function<void()>& merge) override {
    kept.Update(KeptPicture::Side::kHosts, merge);
  }
  void NotePicture() override { kept.Note(); }
  unsigned int GetMaxSlowThreads() const override { return 15; }
  bool IsFullDiscoveryOnly() const override { return settings.fullDiscoveryOnly; }
  bool IsFirstCyclePending() const override { return firstCyclePending.load(); }
  unsigned int GetIntermediateCBInterval() const override { return 8; }
  bool IsInCallBack() const override { return Callback::IsInside(); }

  const DiscoverySettings settings;
  CZylThread& mainThread;  // the in-band one: runs the cycles
  StateWord state;
  CycleGate gate;
  Callback callback;
  ControlCalls controlCalls;
  SlowSide slow;
  RemoteSide remote;
  CurrentPicture picture;
  const std::shared_ptr<Answers> answers = std::make_shared<Answers>();  // shared with workers
  FirstPicture first;
  KeptPicture kept;
  std::atomic<bool> hurried{false};           // somebody waits for the picture: cycles make no pauses
  std::atomic<bool> firstCyclePending{true};  // until a cycle has ended, completed or stopped
};

#endif  // DISCOVERY_PARTS_H_

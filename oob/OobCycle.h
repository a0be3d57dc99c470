// What one out-of-band cycle and its workers share.
#ifndef OOB_OOBCYCLE_H_
#define OOB_OOBCYCLE_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

#include "model/Answers.h"
#include "model/HbaList.h"
#include "oob/OobIpAddressList.h"
#include "thread/SharedSlot.h"
#include "thread/zyl_thread_pool.h"

// Bits of the state word of out-of-band discovery.
enum OobState : std::uint32_t {
  kOobRunning = 1,        // the main thread lives
  kOobEnabled = 2,        // periodic cycles are wanted
  kOobInCycle = 4,        // between the claim of a cycle and its end
  kOobStopRequested = 8,  // the running cycle is to stop
  kOobForced = 16,        // a cycle was asked for, or is running
};

// What outlives a cycle. A late worker may need it longer than the controller lives.
//
// Thread safety: the lists lock themselves; their locks are never held together with another.
struct OobShared {
  explicit OobShared(std::chrono::milliseconds limit = std::chrono::seconds(10),
                     std::shared_ptr<Answers> noted = nullptr)
      : callLimit(limit), answers(noted != nullptr ? std::move(noted) : std::make_shared<Answers>()) {}

  const std::chrono::milliseconds callLimit;  // of one remote call
  const std::shared_ptr<Answers> answers;     // takes what was asked; locks itself
  std::atomic<std::uint32_t> state{0};        // atomic: changed by the main thread and by every caller
  COobIpAddressList unreachableHosts;         // their last query failed
  COobIpAddressList silentHosts;              // they kept their last worker waiting for nothing
};

// Made anew for every cycle and kept alive by its workers, so that a killed cycle's late worker never works on
// a later cycle. The pointers are constant; the lists lock themselves.
struct OobCycle {
  explicit OobCycle(std::shared_ptr<OobShared> kept) : shared(std::move(kept)) {}

  bool IsForced() const { return (shared->state.load() & kOobForced) != 0; }

  const std::shared_ptr<OobShared> shared;
  COobIpAddressList addresses;  // hosts to visit, from the cursor on
  CHbaList found{ListRank::kGathered};
  // Silent hosts that have answered and are being read: the cycle waits for these. Atomic: written by the
  // workers, read by the main thread.
  std::atomic<int> silentInReading{0};
  std::atomic<bool> isOver{false};  // atomic: written by the main thread, read by late workers
};

// The silent hosts of the cycle in which they began to be asked. Asking them may outlast it.
struct OobSilentHosts {
  explicit OobSilentHosts(std::shared_ptr<OobCycle> begun) : cycle(std::move(begun)) {}

  const std::shared_ptr<OobCycle> cycle;
  COobIpAddressList addresses;  // from the cursor on
};

// Where the workers find the running cycle; empty between cycles.
using OobCycleSlot = SharedSlot<OobCycle>;

// A worker's procedure; `slot` is an OobCycleSlot.
void HbaDiscoveryThread(CZylTpThread* thread, void* slot);

// The procedure of a worker that asks silent hosts and ends when there is none left; `hosts` is an
// OobSilentHosts.
void SilentHostThread(CZylTpThread* thread, void* hosts);

#endif  // OOB_OOBCYCLE_H_

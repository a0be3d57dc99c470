// Cycles, and the calls that begin and end them, survive the failure of each of their allocations: the process
// lives, the cycle ends, and the next one shows everything and calls back.

#include <unistd.h>

#include <limits>

#include "tests/system/memory_fixture.h"

namespace systemtest {
namespace {

constexpr char kDone[] = "** DISCOVERY CYCLE DONE Adapter Ports";
constexpr char kSlowDone[] = "SLOW DISCOVERY PROCESS CYCLE DONE";
constexpr char kSlowGivenUp[] = "Slow discovery: cycle given up";
constexpr char kRefreshDone[] = "-- Directed Discovery Done --";

// ---- What is done

void Rest(const Library&) {}

void StartLocal(const Library& library) {
  library.Start(kNever);
}

void StartAll(const Library& library) {
  library.StartupEx(kNever, kNever, 0);
}

void Stop(const Library& library) {
  library.Terminate();
  EXPECT_EQ(g_Provider.started, 0);
}

void Pause(const Library& library) {
  library.PauseDiscovery();
}

void Kill(const Library& library) {
  library.KillDiscoveryCycle();
}

// Once the forced cycle before it is over.
void Force(const Library& library) {
  EXPECT_TRUE(Eventually([&] { return library.StartDiscoveryCycle() == 1; }, kPatience));
}

// Wakes the discovery thread: a periodic cycle.
void Wake(const Library& library) {
  library.ChangeDiscoveryInterval(kNever);
}

void WakeOob(const Library& library) {
  library.ChangeOOBDiscoveryInterval(kNever);
}

void WakeWithLinkDown(const Library& library) {
  g_Provider.link = 2;
  Wake(library);
}

void WakeSeeingMore(const Library& library) {
  ++g_Provider.seen;
  Wake(library);
}

// Once the refresh before it is over.
void Refresh(const Library& library) {
  EXPECT_TRUE(Eventually([&] { return library.DirectedDiscoveryUpdate(NameOf(kFc), 0) == 1; }, kPatience));
}

// A short cycle may be over before it is seen.
void BeInCycle(const Library& library) {
  const auto inCycle = [&] {
    Wake(library);
    return library.InDiscoveryCycle() != 0;
  };
  EXPECT_TRUE(Eventually(inCycle, kPatience));
}

void RemoveBoards(const Library&) {
  g_Provider.hasBoards = false;
}

// ---- What has to go well again, and calls back; each gives the line of the log that ends it

const char* ForceAgain(const Library& library) {
  g_Provider.link = 1;
  Force(library);
  return kDone;
}

const char* RefreshAgain(const Library& library) {
  Refresh(library);
  return kRefreshDone;
}

const char* StartAgain(const Library& library) {
  StartLocal(library);
  Force(library);
  return RefreshAgain(library);
}

// Remote and slow discovery that have no thread stay away until a stop.
const char* RestartAll(const Library& library) {
  Stop(library);
  StartAll(library);
  Force(library);
  return RefreshAgain(library);
}

struct Row {
  const char* name;
  std::size_t ports;
  void (*start)(const Library&);
  // Brings about what the act needs.
  void (*prepare)(const Library&);
  Victims victims;
  // What fails, itself or in the library's threads.
  void (*act)(const Library&);
  const char* done;  // the line of the log when the threads are done
  bool callsBack;    // whoever asked for it may be waiting, whether it goes well or not
  const char* (*recover)(const Library&);
};

class CyclesWithoutMemory : public WithoutMemory,
                            public testing::WithParamInterface<std::tuple<Row, Failures>> {
 protected:
  static void ForgetLog() { EXPECT_EQ(truncate(Scratch("hbadisco.log").c_str(), 0), 0); }
  // False when there was no nth allocation any more.
  bool ActWithout(unsigned int nth) const;
  // The picture after that.
  std::string Recover() const;

  const Row& m_Row = std::get<0>(GetParam());
};

bool CyclesWithoutMemory::ActWithout(unsigned int nth) const {
  AsLibrary([&] { m_Row.prepare(library); });
  ForgetLog();
  const unsigned int before = CallBackCount();
  FailAllocation(nth, m_Row.victims, std::get<1>(GetParam()));
  AsLibrary([&] { m_Row.act(library); });
  const auto over = [&] {
    return m_Row.victims == Victims::kExposedThread || log.Has(m_Row.done) || log.Has(kSlowGivenUp);
  };
  EXPECT_TRUE(Eventually(over, kPatience)) << log.Text();
  EXPECT_TRUE(!m_Row.callsBack || AwaitCallBack(before)) << log.Text();
  const bool failed = StopFailing();
  EXPECT_TRUE(Eventually([&] { return library.InDiscoveryCycle() == 0; }, kPatience));
  return failed;
}

std::string CyclesWithoutMemory::Recover() const {
  ForgetLog();
  const unsigned int before = CallBackCount();
  const char* done = AsLibrary([&] { return m_Row.recover(library); });
  EXPECT_TRUE(AwaitCallBack(before)) << log.Text();
  EXPECT_TRUE(Eventually([&] { return log.Has(done); }, kPatience)) << log.Text();
  EXPECT_EQ(library.Ports().size(), m_Row.ports) << log.Text();
  return Picture();
}

TEST_P(CyclesWithoutMemory, SurviveWithoutMemory) {
  Register();
  AsLibrary([&] { m_Row.start(library); });
  ASSERT_TRUE(Eventually([&] { return log.Has(kDone); }, kPatience));
  EXPECT_FALSE(ActWithout(std::numeric_limits<unsigned int>::max()));
  const std::string expected = Recover();
  bool failed = true;
  unsigned int nth = 0;
  while (failed && !HasFailure()) {
    SCOPED_TRACE("allocation " + std::to_string(++nth));
    failed = ActWithout(nth);
    EXPECT_TRUE(Recover() == expected) << log.Text();
  }
  RecordProperty("allocations", static_cast<int>(nth - 1));
  EXPECT_TRUE(nth > 1 || m_Row.victims == Victims::kExposedThread) << "nothing was allocated";
}

constexpr Victims kThreads = Victims::kOtherThreads;
constexpr Victims kCaller = Victims::kExposedThread;

constexpr Row kRows[] = {
    {"FirstCycle", 3, StartLocal, Stop, kThreads, StartLocal, kDone, true, ForceAgain},
    {"FullCycle", 3, StartLocal, Rest, kThreads, Force, kDone, true, ForceAgain},
    {"LiteCycle", 3, StartLocal, Rest, kThreads, Wake, kDone, false, ForceAgain},
    {"LinkDownCycle", 3, StartLocal, Rest, kThreads, WakeWithLinkDown, kDone, false, ForceAgain},
    {"NewTargetCycle", 3, StartLocal, Rest, kThreads, WakeSeeingMore, kDone, false, ForceAgain},
    {"ForcedDuringCycle", 4, StartAll, BeInCycle, kThreads, Force, kDone, false, ForceAgain},
    {"RemoteCycle", 1, StartAll, RemoveBoards, kThreads, Force, kDone, false, ForceAgain},
    {"SlowCycle", 4, StartAll, Rest, kThreads, Rest, kSlowDone, false, ForceAgain},
    {"Refresh", 3, StartLocal, Rest, kThreads, Refresh, kRefreshDone, true, RefreshAgain},
    {"StartupEx", 3, StartLocal, Stop, kCaller, StartLocal, kDone, false, StartAgain},
    {"StartupExOfAll", 4, StartAll, Stop, kCaller, StartAll, kDone, false, RestartAll},
    {"Terminate", 4, StartAll, Rest, kCaller, Stop, kDone, false, RestartAll},
    {"PauseDiscovery", 4, StartAll, BeInCycle, kCaller, Pause, kDone, false, ForceAgain},
    {"StartDiscoveryCycle", 4, StartAll, BeInCycle, kCaller, Force, kDone, false, ForceAgain},
    {"KillDiscoveryCycle", 4, StartAll, BeInCycle, kCaller, Kill, kDone, false, ForceAgain},
    {"ChangeDiscoveryInterval", 4, StartAll, Rest, kCaller, Wake, kDone, false, ForceAgain},
    {"ChangeOOBDiscoveryInterval", 4, StartAll, Rest, kCaller, WakeOob, kDone, false, ForceAgain},
    {"DirectedDiscoveryUpdate", 3, StartLocal, Rest, kCaller, Refresh, kRefreshDone, false, RefreshAgain},
};

INSTANTIATE_TEST_SUITE_P(Kinds, CyclesWithoutMemory,
                         testing::Combine(testing::ValuesIn(kRows),
                                          testing::Values(Failures::kOne, Failures::kAllFromThere)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) +
                                  (std::get<1>(test.param) == Failures::kOne ? "One" : "AndAllThatFollow");
                         });

}  // namespace
}  // namespace systemtest

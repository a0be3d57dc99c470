// What an answer costs its reader: time and memory follow its length, whatever it holds.
#include <gtest/gtest.h>

#include <ctime>
#include <fstream>

#include "provider/remote/WireCodec.h"

namespace agenttest {
namespace {

using provider::DecodeAnswer;
using provider::ListAnswer;

#ifdef __has_feature
#define HAS_FEATURE(feature) __has_feature(feature)
#else
#define HAS_FEATURE(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || HAS_FEATURE(address_sanitizer) || \
    HAS_FEATURE(thread_sanitizer)
constexpr bool kIsSanitized = true;  // many times slower, and memory is not given back
#else
constexpr bool kIsSanitized = false;
#endif
constexpr std::size_t kScale = kIsSanitized ? 8 : 1;
constexpr std::size_t kMostBytes = provider::kMostWireBytes / kScale;
constexpr double kMostSeconds = kIsSanitized ? 20 : 1;  // of this thread, so that a busy machine does not count
constexpr double kMostMemory = 8;                       // for each byte of the answer

double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The most memory since the last ForgetPeak.
double PeakBytes() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes * 1024;
  }
  ADD_FAILURE() << "no peak";
  return 0;
}

void ForgetPeak() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

// Reads the answer within its means; false when it is refused.
template <class Result>
bool IsTaken(const std::string& text) {
  bool isTaken = true;
  ForgetPeak();
  const double bytes = PeakBytes();
  const double seconds = ThreadSeconds();
  try {
    DecodeAnswer<Result>(text);
  } catch (const provider::WireError&) {
    isTaken = false;
  }
  EXPECT_LT(ThreadSeconds() - seconds, kMostSeconds) << text.substr(0, 60);
  const double most = kMostMemory * static_cast<double>(text.size());
  EXPECT_TRUE(kIsSanitized || PeakBytes() - bytes < most) << PeakBytes() - bytes << " " << text.substr(0, 60);
  return isTaken;
}

// As long as an answer may be.
std::string Filled(const std::string& before, std::string unit, const std::string& after) {
  while (unit.size() < 1024) unit += unit;
  std::string text = R"({"format_version":1,"status":0,)" + before;
  text.reserve(kMostBytes);
  while (text.size() + unit.size() + after.size() < kMostBytes) text += unit;
  return text + after;
}

TEST(AnswerCost, HostileAnswers) {
  using Names = ListAnswer<HBA_NAME>;
  using Attributes = provider::Answer<provider::Attributes>;
  for (const char* unit : {"{},", "[],", "0,", "\"\",", "[[],[]],", R"({"a":0,"b":1},)"}) {
    EXPECT_FALSE(IsTaken<Names>(Filled(R"("records":[)", unit, "0]}")));
    EXPECT_FALSE(IsTaken<Attributes>(Filled(R"("value":[)", unit, "0]}")));
    EXPECT_TRUE(IsTaken<Names>(Filled(R"("more":[)", unit, R"(0],"records":[]})")));
  }
  std::string keys;
  for (int i = 0; keys.size() < kMostBytes / 2; ++i) keys += '"' + std::to_string(i) + "\":0,";
  EXPECT_TRUE(IsTaken<Names>(Filled(keys + R"("records":[)", " ", "]}")));
  EXPECT_FALSE(IsTaken<Names>(Filled(R"("records":[{)" + keys, " ", R"("a":0}]})")));
  EXPECT_FALSE(IsTaken<Names>(Filled(R"("records":[0.)", "1", "]}")));
  EXPECT_FALSE(IsTaken<Names>(Filled(R"("records":[)", "1", "e-8000000]}")));
  EXPECT_FALSE(IsTaken<Names>(Filled(R"("records":[")", "\\u20ac", "\"]}")));
  EXPECT_FALSE(IsTaken<Names>(Filled(R"("records":)", "[", "")));
  EXPECT_FALSE(IsTaken<Names>(Filled(R"("records":[],)", R"("status":0,)", R"("x":0})")));
}

template <class Record>
void ExpectLargest(std::size_t count, std::size_t leastBytes) {
  ListAnswer<Record> answer;
  count /= kScale;
  answer.records.resize(count);
  const std::string text = EncodeAnswer("/", answer);
  EXPECT_GE(text.size(), leastBytes / kScale);
  EXPECT_TRUE(IsTaken<ListAnswer<Record>>(text));
  EXPECT_EQ(DecodeAnswer<ListAnswer<Record>>(text).records.size(), count);
}

// The largest that an agent gives are read to their end: as many records as there may be, or as fit.
TEST(AnswerCost, LargestAnswers) {
  constexpr std::size_t kNearlyAll = provider::kMostWireBytes / 16 * 15;
  ExpectLargest<HBA_NAME>(provider::kMostWireRecords, 0);
  ExpectLargest<RM_VPortEntry>(provider::kMostWireRecords, 0);
  ExpectLargest<RM_NodeInfoEntry>(34'000, kNearlyAll);
  ExpectLargest<RM_VPortTargetEntry>(44'000, kNearlyAll);
}

}  // namespace
}  // namespace agenttest

// Prints a line for every port that comes, goes, changes its link or does not answer:
//   c++ watch_ports.cpp -lhbadiscovery
// Ends after the number of looks that is its argument, or when it is interrupted.
//
// The descriptor of the changes would fit into any event loop; here poll is the loop.
#include <hbadiscovery.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr unsigned int kSecondsBetweenCycles = 5;
constexpr int kStep = 500;  // milliseconds

std::atomic<long> g_Cycles{0};

void CountCycle(unsigned int reason, void* /*context*/) {
  if ((reason & HBADISC_REASON_INTERMEDIATE) == 0) ++g_Cycles;
}

std::string NameText(const HBA_NAME& name) {
  std::string text;
  std::array<char, 3> digits{};
  for (const uint8_t byte : name.wwn) {
    std::snprintf(digits.data(), digits.size(), "%02x", byte);
    text += (text.empty() ? "" : ":") + std::string(digits.data());
  }
  return text;
}

void Print(const hbadisc_change& change) {
  const std::string name = NameText(change.port);
  const hba_discovery_info_V4& now = change.after.port;
  switch (change.kind) {
    case HBADISC_CHANGE_ADDED:
      std::printf("%s is there, link %s\n", name.c_str(), HBADisc_GetLinkText(now.base.base.base.linkStatus));
      break;
    case HBADISC_CHANGE_REMOVED:
      std::printf("%s is gone\n", name.c_str());
      break;
    case HBADISC_CHANGE_LINK:
      std::printf("%s link %s\n", name.c_str(), HBADisc_GetLinkText(change.after.link));
      break;
    case HBADISC_CHANGE_UNANSWERED:
      std::printf("%s %s\n", name.c_str(),
                  now.unanswered != 0 ? HBADisc_GetStatusText(now.status) : "answers again");
      break;
    default:
      break;
  }
}

// Prints what is new since `*sequence`, and moves that on.
void PrintChanges(uint64_t* sequence) {
  static std::array<hbadisc_change, 16> s_Changes;
  for (unsigned int count = s_Changes.size(); count == s_Changes.size();) {
    if (HBADisc_GetChanges(*sequence, s_Changes.data(), &count) != 0) std::puts("some changes were missed");
    for (unsigned int i = 0; i < count; ++i) Print(s_Changes[i]);
    if (count != 0) *sequence = s_Changes[count - 1].sequence;
  }
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const long cycles = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 0;
  pollfd news{HBADisc_GetChangeDescriptor(), POLLIN, 0};
  HBADisc_RegisterCallBack(CountCycle, HBADISC_EVENT_EVERY_CYCLE | HBADISC_EVENT_FORCED, nullptr);
  HBADisc_StartupEx(kSecondsBetweenCycles, HBADISC_NO_OOB_DISCOVERY, 1);
  uint64_t sequence = 0;
  for (bool last = false; !last;) {
    last = cycles != 0 && g_Cycles >= cycles;
    uint64_t number = 0;
    if (poll(&news, 1, kStep) > 0 && read(news.fd, &number, sizeof number) > 0) PrintChanges(&sequence);
  }
  HBADisc_Terminate();
}

// Prints a line for every port that comes, goes or changes its link:  c++ watch_ports.cpp -lhbadiscovery
// Ends after the number of cycles that is its argument, or when it is interrupted.
#include <hbadiscovery.h>

#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

namespace {

constexpr unsigned int kSecondsBetweenCycles = 5;

// Counts ended cycles for the thread that waits for the next one.
class CycleCounter {
 public:
  void WaitFor(long cycle) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Ended.wait(lock, [&] { return m_Cycles >= cycle; });
  }

  static void OnCallBack(unsigned int reason, void* context) {
    if (reason & HBADISC_REASON_INTERMEDIATE) return;  // the first cycle goes on
    auto& self = *static_cast<CycleCounter*>(context);
    const std::lock_guard<std::mutex> lock(self.m_Mutex);
    ++self.m_Cycles;
    self.m_Ended.notify_all();
  }

 private:
  std::mutex m_Mutex;
  std::condition_variable m_Ended;
  long m_Cycles = 0;
};

std::string NameOf(const hba_port_info& port) {
  std::string text;
  std::array<char, 3> digits{};
  for (const uint8_t byte : port.portWwn) {
    std::snprintf(digits.data(), digits.size(), "%02x", byte);
    text += (text.empty() ? "" : ":") + std::string(digits.data());
  }
  return text;
}

using Ports = std::map<std::string, std::string>;  // name: link

Ports ReadPorts() {
  Ports ports;
  hba_discovery_info_V3 info{};
  for (int more = HBADisc_GetFirstHbaV3(&info); more != 0; more = HBADisc_GetNextHbaV3(&info)) {
    const hba_discovery_info& base = info.base.base;
    ports[NameOf(base.port)] = (base.linkStatus & 0xFF) == 1 ? "up" : "down";
  }
  return ports;
}

void PrintChanges(const Ports& before, const Ports& now) {
  for (const auto& [name, link] : now) {
    const auto old = before.find(name);
    if (old == before.end()) {
      std::printf("%s is there, link %s\n", name.c_str(), link.c_str());
    } else if (old->second != link) {
      std::printf("%s link %s\n", name.c_str(), link.c_str());
    }
  }
  for (const auto& old : before) {
    if (now.count(old.first) == 0) std::printf("%s is gone\n", old.first.c_str());
  }
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const long cycles = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 0;
  static CycleCounter counter;  // outlives every callback
  HBADisc_RegisterCallBack(CycleCounter::OnCallBack, HBADISC_EVENT_EVERY_CYCLE | HBADISC_EVENT_FORCED,
                           &counter);
  HBADisc_StartupEx(kSecondsBetweenCycles, HBADISC_NO_OOB_DISCOVERY, 1);
  Ports before;
  for (long cycle = 1; cycles == 0 || cycle <= cycles; ++cycle) {
    counter.WaitFor(cycle);
    Ports now = ReadPorts();
    PrintChanges(before, now);
    before.swap(now);
  }
  HBADisc_Terminate();
}

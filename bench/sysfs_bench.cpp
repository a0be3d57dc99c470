// What it costs to list the ports of a Linux machine that sees many targets.
//
// Trees as the kernel makes them, of so many FC hosts with so many remote ports each and a disk behind each of
// these, lie in memory (/dev/shm). `hbadisc list` and `lsscsi -tL`, which looks at the same devices, are run in
// turns; printed are wall time, processor time and peak memory of both, and the ratio of the processor times,
// which must not exceed 1.0. That the cost grows with the number of ports and not faster is held by the cost of
// one port in the largest tree against that in the smallest: at most 1.5. Exits with 1 when a limit is missed.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr int kRounds = 3;
constexpr double kCostLimit = 1.0;
constexpr double kGrowthLimit = 1.5;

using Attributes = std::vector<std::pair<const char*, std::string>>;

class Tree {
 public:
  Tree(int hosts, int ports) : m_Root("/dev/shm/sysfs_bench." + std::to_string(getpid())) {
    for (const char* folder :
         {"class/fc_host", "class/fc_transport", "class/scsi_device", "bus/scsi/devices"}) {
      fs::create_directories(m_Root / folder);
    }
    for (int host = 0; host < hosts; ++host) AddHost(host, ports);
  }
  ~Tree() { fs::remove_all(m_Root); }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  std::string Root() const { return m_Root; }

 private:
  void Write(const fs::path& folder, const Attributes& attributes) const {
    fs::create_directories(m_Root / folder);
    for (const auto& [name, value] : attributes) std::ofstream(m_Root / folder / name) << value << '\n';
  }
  // From a folder two below the root, where classes and busses have their links.
  void Link(const fs::path& from, const fs::path& to) const {
    fs::path up;
    for (const auto& part : from.parent_path()) static_cast<void>(part), up /= "..";
    fs::create_symlink(up / to, m_Root / from);
  }

  void AddHost(int host, int ports) const {
    char pci[16];
    std::snprintf(pci, sizeof pci, "0000:%02x:%02x.0", static_cast<unsigned>(host) / 8 % 256,
                  static_cast<unsigned>(host) % 8);
    const std::string number = std::to_string(host);
    const fs::path device = fs::path("devices/pci0000:00") / pci;
    const fs::path scsi = device / ("host" + number);
    Write(device, {{"vendor", "0x0bad"}, {"device", "0xe300"}});
    char name[32];
    std::snprintf(name, sizeof name, "0x10000000c9%06x", static_cast<unsigned>(host));
    Write(scsi / "fc_host" / ("host" + number), {{"port_name", name},
                                                 {"node_name", name},
                                                 {"fabric_name", "0x100000051e000001"},
                                                 {"port_state", "Online"},
                                                 {"speed", "16 Gbit"},
                                                 {"symbolic_name", "bench"},
                                                 {"tgtid_bind_type", "wwpn (World Wide Port Name)"}});
    Write(scsi / "scsi_host" / ("host" + number), {{"proc_name", "drv"}, {"active_mode", "Initiator"}});
    fs::create_symlink("../../../host" + number, m_Root / scsi / "fc_host" / ("host" + number) / "device");
    Link("class/fc_host/host" + number, scsi / "fc_host" / ("host" + number));
    for (int port = 0; port < ports; ++port) AddPort(scsi, host, port);
  }

  void AddPort(const fs::path& scsi, int host, int port) const {
    const std::string at = std::to_string(host) + ":0:" + std::to_string(port);
    const std::string remote = "rport-" + std::to_string(host) + ":0-" + std::to_string(port);
    char name[32];
    std::snprintf(name, sizeof name, "0x5006%04x%08x", static_cast<unsigned>(host),
                  static_cast<unsigned>(port));
    const Attributes names = {{"port_name", name}, {"node_name", name}, {"port_id", "0x010200"}};
    Write(scsi / remote / "fc_remote_ports" / remote, names);
    Write(scsi / remote / "fc_remote_ports" / remote,
          {{"port_state", "Online"}, {"roles", "FCP Target"}, {"scsi_target_id", std::to_string(port)}});
    const fs::path target = scsi / remote / ("target" + at);
    Write(target / "fc_transport" / ("target" + at), names);
    Link("class/fc_transport/target" + at, target / "fc_transport" / ("target" + at));
    const fs::path disk = target / (at + ":0");
    Write(disk, {{"type", "0"},
                 {"vendor", "V"},
                 {"model", "M"},
                 {"rev", "1"},
                 {"state", "running"},
                 {"wwid", "naa.6"}});
    fs::create_directories(m_Root / disk / "block" / ("sd" + at));
    Link("bus/scsi/devices/" + at + ":0", disk);
  }

  const fs::path m_Root;
};

struct Cost {
  double wall = 0;       // seconds
  double processor = 0;  // seconds
  long memory = 0;       // KiB, at most
};

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

Cost Run(std::vector<std::string> command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const auto begin = std::chrono::steady_clock::now();
  pid_t child = 0;
  const int error = posix_spawnp(&child, arguments[0], &files, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (error != 0) throw std::runtime_error("cannot run " + command[0]);
  int status = 0;
  rusage used{};
  wait4(child, &status, 0, &used);
  if (status != 0) throw std::runtime_error(command[0] + " failed");
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
  return {wall.count(), Seconds(used.ru_utime) + Seconds(used.ru_stime), used.ru_maxrss};
}

// The one of several that took the least processor time.
Cost Least(const Cost& one, const Cost& other) {
  return one.processor == 0 || other.processor < one.processor ? other : one;
}

void Print(const char* program, const Cost& cost) {
  std::printf("  %-8s wall %6.2f s  processor %6.3f s  memory %6ld KiB\n", program, cost.wall, cost.processor,
              cost.memory);
}

bool Judge(const char* what, double ratio, double limit) {
  std::printf("%-9s %.3f (limit %.2f) %s\n", what, ratio, limit, ratio <= limit ? "OK" : "FAIL");
  return ratio <= limit;
}

// Processor time of hbadisc for one remote port, in seconds; false in `good` when it is too much.
double Measure(int hosts, int ports, bool* good) {
  const Tree tree(hosts, ports);
  Cost ours;
  Cost theirs;
  for (int round = 0; round < kRounds; ++round) {
    ours =
        Least(ours, Run({HBADISC_TOOL, "--sysfsroot", tree.Root(), "--local-only", "--timeout", "0", "list"}));
    theirs = Least(theirs, Run({"lsscsi", "-y", tree.Root(), "-tL"}));
  }
  std::printf("\n%d hosts of %d remote ports\n", hosts, ports);
  Print("hbadisc", ours);
  Print("lsscsi", theirs);
  // Below that, a program's own start is what is measured.
  constexpr double kMeasurable = 0.1;
  if (theirs.processor > kMeasurable)
    *good &= Judge("processor", ours.processor / theirs.processor, kCostLimit);
  return ours.processor / (hosts * ports);
}

}  // namespace

int main() {
  try {
    bool good = true;
    Measure(16, 16, &good);
    const double small = Measure(64, 64, &good);
    const double large = Measure(128, 128, &good);
    good &= Judge("growth", large / small, kGrowthLimit);
    return good ? 0 : 1;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "sysfs_bench: %s\n", failure.what());
    return 1;
  }
}

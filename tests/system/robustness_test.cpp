// Bad settings, bad providers, and repetition.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/Testing.h"
#include "tests/system/Fabric.h"

namespace systemtest {
namespace {

constexpr char kFc[] = "1000000000000001";
constexpr char kNic[] = "1000000000000002";
constexpr char kIscsi[] = "1000000000000003";

std::vector<json> ThreeKinds() {
  json fc = FcBoard(kFc);
  fc["targets"] = {{{"wwpn", "5000000000000001"}, {"count", 40}}};
  fc["virtual_ports"] = {{{"wwpn", "1100000000000001"}, {"count", 2}}};
  return {fc, NicBoard(kNic), IscsiBoard(kIscsi)};
}

// Loads the library, runs its first cycle and returns the ports.
std::map<std::string, hba_discovery_info_V3> DiscoverOnce(const Fabric& fabric) {
  Library library(fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_FORCED);
  library.Start(3600);
  EXPECT_EQ(callBacks.Await(1).size(), 1u);
  auto ports = library.Ports();
  library.Terminate();
  return ports;
}

// ---- Settings

class BadSettings : public testing::TestWithParam<std::pair<const char*, void (*)()>> {};

TEST_P(BadSettings, DiscoveryRunsAllTheSame) {
  const Log log;
  GetParam().second();
  EXPECT_EQ(DiscoverOnce(Fabric(ThreeKinds())).size(), 3u);
}

INSTANTIATE_TEST_SUITE_P(
    BadFiles, BadSettings,
    testing::Values(
        std::pair{"Missing", +[] { std::filesystem::remove(kSettingsPath); }},
        std::pair{"IsAFolder",
                  +[] {
                    std::filesystem::remove(kSettingsPath);
                    std::filesystem::create_directory(kSettingsPath);
                  }},
        std::pair{
            "OverLongLines",
            +[] { WriteFile(kSettingsPath, std::string(100'000, 'x') + ":1\n" + std::string(5000, ':')); }},
        std::pair{"Garbage",
                  +[] { WriteFile(kSettingsPath, std::string("\0\xff\x01:\n::\nDISCO_LOG_MODE:zz\n", 21)); }},
        std::pair{"LogPathIsAFolder",
                  +[] { WriteFile(kSettingsPath, "DISCO_LOG_MODE:7\nDISCO_LOG_PATH:/etc\n"); }},
        std::pair{"LogPathIsAPipe",
                  +[] {
                    mkfifo("/run/lock/pipe", 0600);
                    WriteFile(kSettingsPath, "DISCO_LOG_MODE:7\nDISCO_LOG_PATH:/run/lock/pipe\n");
                  }},
        std::pair{"NoWorkers", +[] { WriteFile(kSettingsPath, "DISCO_MAX_THREADS:0\n"); }},
        std::pair{"NegativeWorkers", +[] { WriteFile(kSettingsPath, "DISCO_MAX_THREADS:-3\n"); }}),
    [](const auto& test) { return test.param.first; });

TEST(LogFile, LinesFollowTheMask) {
  const Log log(0x200);
  DiscoverOnce(Fabric(ThreeKinds()));
  EXPECT_THAT(log.Text(), testing::MatchesRegex(
                              "\n\\[ ../../.. ..:..:..: DRAXONITE DISCOVERY VERSION 14\\.0\\.326\\.24 \\]\n\n"
                              "..:..:..: In-Band Discovery: Doing full discovery cycle\n"
                              "..:..:..: \\*\\* DISCOVERY CYCLE DONE Adapter Ports=3 \\*\\*\n\n"));
}

// ---- Providers

// A fault, the ports that are found all the same, and the targets of the Fibre Channel port.
class BadProviders : public testing::TestWithParam<json> {};

TEST_P(BadProviders, OneBadAnswerCostsNoOtherPort) {
  const Log log;
  Fabric fabric(ThreeKinds());
  fabric.AddFault(GetParam()["fault"]);
  fabric.Write();
  const auto ports = DiscoverOnce(fabric);
  EXPECT_EQ(ports.size(), GetParam()["ports"]);
  if (ports.count(kFc) != 0) {
    EXPECT_EQ(ports.at(kFc).base.base.targetCount, GetParam()["targets"]);
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, BadProviders, testing::ValuesIn(json::parse(std::ifstream(PROVIDER_FAULTS))),
                         [](const auto& test) { return test.param["name"].template get<std::string>(); });

// ---- Repetition

TEST(Repetition, StartAndStopAtAnyMoment) {
  const Log log;
  Fabric fabric(ThreeKinds());
  Library library(fabric.Path());
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  for (int round = 0; round < 20; ++round) {
    library.Start(3600);
    // At another stage of the first cycle each time.
    std::this_thread::sleep_for(Milliseconds(round));
    library.Terminate();
  }
  EXPECT_EQ(log.Count("Discovery startup"), 20u);
  EXPECT_EQ(log.Count("Discovery terminated"), 20u);
  const std::size_t before = callBacks.Reasons().size();
  library.Start(3600);
  EXPECT_GT(callBacks.Await(before + 1).size(), before);
  EXPECT_EQ(library.Ports().size(), 3u);
}

TEST(Repetition, LastReferenceMayGoWhileDiscoveryRuns) {
  const Log log;
  Fabric fabric(ThreeKinds());
  Library(fabric.Path()).Start(3600);
  // The library stays in place, so its threads do too.
  Library library;
  CallBacks callBacks(library, HBADISC_EVENT_EVERY_CYCLE);
  EXPECT_TRUE(Eventually([&] { return log.Has("CYCLE DONE"); }));
  EXPECT_EQ(library.Ports().size(), 3u);
  EXPECT_EQ(log.Count("VERSION"), 1u);
}

}  // namespace
}  // namespace systemtest

// The built program on fabric files, through the library and the open provider. The cases run in a mount
// namespace of their own, so that the settings under /etc are theirs.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

namespace tooltest {
namespace {

using Json = nlohmann::json;

// For the shell: a checkout may lie in any folder.
const std::string kTool = "'" HBADISC_PROGRAM "'";
const std::string kExamples = HBADISC_EXAMPLES;
// Of this process's private /run/lock.
const std::string kFabric = "/run/lock/fabric.json";
const std::string kErrors = "/run/lock/errors";

// A program as a shell runs it, with its output in hand. The object ends what it has started.
class Program {
 public:
  explicit Program(const std::string& command) : m_Output(popen(command.c_str(), "re")) {
    if (!m_Output) throw std::runtime_error("cannot start a shell");
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() {
    if (m_Output) pclose(m_Output);
  }

  // Waits for a line, without its end; none at the end of the output.
  std::optional<std::string> ReadLine() {
    std::string line;
    for (int c; (c = std::fgetc(m_Output)) != EOF;) {
      if (c == '\n') return line;
      line += static_cast<char>(c);
    }
    return line.empty() ? std::nullopt : std::optional(line);
  }
  // What is left of the output.
  std::string ReadAll() {
    std::string text;
    while (const auto line = ReadLine()) text += *line + '\n';
    return text;
  }
  // Waits for the end of the program; its exit code, or 128 and the signal that ended it.
  int Wait() {
    const int status = pclose(std::exchange(m_Output, nullptr));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  std::FILE* m_Output;
};

struct Result {
  int code = 0;
  std::string output;
  std::string errors;
};

std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// In one step, as a program that is being read should find it.
void ReplaceFile(const std::string& path, const std::string& text) {
  std::ofstream(path + ".new") << text;
  std::filesystem::rename(path + ".new", path);
}

Result RunTool(const std::string& arguments) {
  Program program(kTool + ' ' + arguments + " 2>" + kErrors);
  Result result;
  result.output = program.ReadAll();
  result.code = program.Wait();
  result.errors = ReadFile(kErrors);
  return result;
}

// A host with two ports, the first with targets and a virtual port.
std::string FabricText(const std::string& link, int targets) {
  const Json target = {{"wwpn", "50:25:d0:aa:00:00:00:10"}, {"count", targets}, {"device", "/dev/sd{n}"}};
  Json first = {{"kind", "fc"}, {"wwpn", "10:00:02:5d:41:00:00:01"}, {"link", link}};
  if (targets > 0) {
    first["targets"] = Json::array({target});
    first["virtual_ports"] = {{{"wwpn", "11:00:02:5d:41:00:00:01"}, {"targets", {target}}}};
  }
  const Json second = {{"kind", "fc"}, {"wwpn", "10:00:02:5d:41:00:00:02"}};
  return Json({{"local", {{"name", "lab"}, {"boards", {first, second}}}}}).dump();
}

// "0x..." for the text of a fabric file.
std::string HexName(std::string name) {
  std::erase(name, ':');
  return "0x" + name;
}

TEST(EndToEndTest, ListHasEveryBoardOfAFabricFile) {
  for (const char* example : {"small-host.json", "datacenter-host.json"}) {
    const std::string path = kExamples + '/' + example;
    std::set<std::string> expected;
    const Json fabric = Json::parse(ReadFile(path));
    for (const Json& board : fabric["local"]["boards"]) expected.insert(HexName(board["wwpn"]));
    ASSERT_FALSE(expected.empty());

    const Result result = RunTool("list -j --fabric '" + path + "'");
    EXPECT_EQ(result.code, 0) << result.errors;
    const Json document = Json::parse(result.output);
    EXPECT_EQ(document["format_version"], 1);
    EXPECT_EQ(document["complete"], true);
    std::set<std::string> listed;
    for (const Json& port : document["ports"]) listed.insert(port["wwpn"]);
    EXPECT_EQ(listed, expected);
    EXPECT_EQ(result.errors, "") << "a good run is silent";
  }
}

TEST(EndToEndTest, ShowAndTargetsOfOnePort) {
  ReplaceFile(kFabric, FabricText("up", 3));
  const std::string port = " 1000025D41000001 --fabric " + kFabric;
  const Result show = RunTool("show -j" + port);
  EXPECT_EQ(show.code, 0) << show.errors;
  const Json shown = Json::parse(show.output)["port"];
  EXPECT_EQ(shown["wwpn"], "0x1000025d41000001");
  EXPECT_EQ(shown["system"], "lab");
  EXPECT_EQ(shown["link"], "up");
  EXPECT_EQ(shown["targets"].size(), 3U);
  EXPECT_EQ(shown["vports"][0]["wwpn"], "0x1100025d41000001");

  const Result targets = RunTool("targets -j" + port);
  EXPECT_EQ(targets.code, 0) << targets.errors;
  EXPECT_EQ(Json::parse(targets.output)["targets"], shown["targets"]);
  EXPECT_EQ(Json::parse(targets.output)["vports"][0]["targets"].size(), 3U);

  const Result table = RunTool("targets" + port);
  EXPECT_NE(table.output.find("50:25:d0:aa:00:00:00:12"), std::string::npos) << table.output;
  EXPECT_NE(table.output.find("Virtual port 11:00:02:5d:41:00:00:01"), std::string::npos) << table.output;
}

TEST(EndToEndTest, ExitCodes) {
  ReplaceFile(kFabric, FabricText("up", 0));
  const struct {
    const char* arguments;
    int code;
    const char* message;
  } rows[] = {
      {"show 2000000000000001 --fabric /run/lock/fabric.json", 4, "there is no port 20:00:00:00:00:00:00:01"},
      {"targets 1000025d41000002 --fabric /run/lock/fabric.json", 0, "has no targets"},
      {"show lab --fabric /run/lock/fabric.json", 2, "'lab'"},
      {"list --fabric a --sysfsroot b", 2, "--sysfsroot"},
      {"list --fabric /run/lock/missing.json", 1, "/run/lock/missing.json"},
      {"list --sysfsroot /run/lock/fabric.json", 1, "/run/lock/fabric.json"},
      {"list --fabric /run/lock/fabric.json >&-", 1, "cannot write"},
      {"list --fabric /run/lock/fabric.json >/dev/full", 1, "No space left"},
      {"--version", 0, ""}};
  for (const auto& row : rows) {
    const Result result = RunTool(row.arguments);
    EXPECT_EQ(result.code, row.code) << row.arguments;
    EXPECT_NE(result.errors.find(row.message), std::string::npos) << row.arguments << "\n" << result.errors;
  }
}

TEST(EndToEndTest, AnEmptyHostAndABadFileGiveValidJson) {
  ReplaceFile(kFabric, R"({"local": {"name": "lab", "boards": []}})");
  const Result empty = RunTool("list -j --fabric " + kFabric);
  EXPECT_EQ(empty.code, 0) << empty.errors;
  EXPECT_EQ(Json::parse(empty.output)["ports"], Json::array());
  ReplaceFile(kFabric, "{ nonsense");
  const Result bad = RunTool("list -j --fabric " + kFabric);
  EXPECT_EQ(bad.code, 1);
  EXPECT_EQ(Json::parse(bad.output)["ports"], Json::array());
  EXPECT_TRUE(Json::parse(bad.output)["error"].is_string());
}

TEST(EndToEndTest, SettingsThatLeadNowhereAreTold) {
  ReplaceFile("/etc/varnix/quorbench/rm.conf", "FabricFile:/nowhere.json\n");
  const Result result = RunTool("list -j");
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.errors, "hbadisc: no adapter ports were found: /nowhere.json: No such file or directory\n");
  EXPECT_TRUE(Json::parse(result.output)["error"].is_string());
}

TEST(EndToEndTest, ARefreshThatFindsTheSameIsNoChange) {
  ReplaceFile(kFabric, FabricText("up", 2));
  const Result result = RunTool("refresh 0x1000025d41000001 --fabric " + kFabric);
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.errors, "hbadisc: nothing has changed\n");
}

// The library cannot be stopped while its thread is inside the provider: the program ends all the same.
TEST(EndToEndTest, AHangingPortEndsWithTheTimeLimit) {
  Json fabric = Json::parse(FabricText("up", 1));
  fabric["local"]["faults"] = {{{"call", "RM_GetAllNodeInfo"}, {"hang", true}}};
  ReplaceFile(kFabric, fabric.dump());
  const Result result = RunTool("list -j --timeout 1 --fabric " + kFabric);
  EXPECT_EQ(result.code, 1) << result.errors;
  EXPECT_EQ(Json::parse(result.output)["complete"], false);
  EXPECT_NE(result.errors.find("within 1 second "), std::string::npos) << result.errors;
}

// Reads events until one has a change with that path; its "after".
Json WaitForChange(Program& watch, const Json& path) {
  while (const auto line = watch.ReadLine()) {
    const Json event = Json::parse(*line);
    for (const Json& change : event["changes"]) {
      if (change["path"] == path) return change["after"];
    }
  }
  return "the output ended";
}

TEST(EndToEndTest, WatchTellsWhatChanges) {
  ReplaceFile(kFabric, FabricText("up", 2));
  Program watch(kTool + " watch -o jsonl --interval 5 --count 8 --fabric " + kFabric + " 2>&1");
  const Json first = Json::parse(watch.ReadLine().value());
  EXPECT_EQ(first["format_version"], 1);
  EXPECT_EQ(first["reasons"][1], "forced");
  ASSERT_EQ(first["changes"].size(), 2U);
  EXPECT_EQ(first["changes"][0]["change"], "added");
  ReplaceFile(kFabric, FabricText("down", 2));
  EXPECT_EQ(WaitForChange(watch, {"link"}), "down");
}

TEST(EndToEndTest, WatchEndsWithItsReader) {
  ReplaceFile(kFabric, FabricText("up", 0));
  Program pipeline(kTool + " watch --interval 86400 --fabric " + kFabric + " | head -n 1");
  EXPECT_NE(pipeline.ReadAll().find("2 ports"), std::string::npos);
  EXPECT_EQ(pipeline.Wait(), 0);
}

TEST(EndToEndTest, TheExampleProgramPrintsThePorts) {
  ReplaceFile(kFabric, FabricText("up", 2));
  ReplaceFile("/etc/varnix/quorbench/rm.conf", "FabricFile:" + kFabric + "\n");
  Program program("'" LIST_PORTS_PROGRAM "'");
  const std::string output = program.ReadAll();
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_NE(output.find("10:00:02:5d:41:00:00:01"), std::string::npos) << output;
  EXPECT_NE(output.find("link up    2 targets"), std::string::npos) << output;
}

}  // namespace
}  // namespace tooltest

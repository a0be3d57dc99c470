// The commands on a double of the library: what is written, and the exit codes.
#include "tools/hbadisc/Commands.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "tests/tool/FakeLibrary.h"
#include "tools/hbadisc/JsonWriter.h"
#include "tools/hbadisc/Watch.h"

namespace hbadisc {
namespace {

using testing::HasSubstr;

class TextOutput : public Output {
 public:
  TextOutput() : Output(-1) {}
  void Write(std::string_view text) override { m_Text += text; }
  bool HasReader() const override { return true; }
  const std::string& Text() const { return m_Text; }

 private:
  std::string m_Text;
};

class CommandsTest : public testing::Test {
 protected:
  // The exit code of a command to which the library shows the script.
  int Run(const std::vector<fake::Step>& script, Command command, Format format = Format::JsonDocument,
          const char* wwpn = "0000000000000000") {
    fake::SetScript(script);
    m_Options.command = command;
    m_Options.format = format;
    m_Options.wwpn = ParseWwn(wwpn).value();
    m_Output = std::make_unique<TextOutput>();
    Messages messages(-1);
    return RunCommand(m_Options, *m_Output, messages);
  }
  int RunOnPort(const std::vector<fake::Step>& script, Command command, const char* wwpn) {
    return Run(script, command, Format::JsonDocument, wwpn);
  }

  Json Document() const { return Json::parse(m_Output->Text()); }

  std::vector<Json> Lines() const {
    std::vector<Json> lines;
    std::istringstream stream(m_Output->Text());
    for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
    return lines;
  }

  Options m_Options;
  std::unique_ptr<TextOutput> m_Output;
};

constexpr char kFirst[] = "1000025dfa000001";

fake::Port PortWithTargets() {
  fake::Port port = fake::MakePort(1);
  port.targets = {fake::MakeFcTarget(1)};
  port.vports = {fake::MakeVPort(1, {fake::MakeFcTarget(2)})};
  return port;
}

TEST_F(CommandsTest, ListsPorts) {
  // Not before the first cycle has ended.
  const std::vector<fake::Step> script = {
      {.reason = 20, .ports = {fake::MakePort(1)}, .awaitWalk = false},
      {.ports = {fake::MakePort(1), fake::MakePort(2)}},
  };
  EXPECT_EQ(Run(script, Command::List), 0);
  EXPECT_EQ(Document()["complete"], true);
  EXPECT_TRUE(Document()["error"].is_null());
  EXPECT_EQ(Document()["ports"].size(), 2U);

  EXPECT_EQ(Run(script, Command::List, Format::JsonLines), 0);
  ASSERT_EQ(Lines().size(), 2U);
  EXPECT_EQ(Lines()[1]["format_version"], 1);
  EXPECT_EQ(Lines()[1]["wwpn"], "0x1000025dfa000002");

  EXPECT_EQ(Run(script, Command::List, Format::Table), 0);
  EXPECT_THAT(m_Output->Text(), HasSubstr("10:00:02:5d:fa:00:00:02"));
  EXPECT_EQ(Run({{}}, Command::List, Format::Table), 0) << "nothing found is no failure";
  EXPECT_EQ(m_Output->Text(), "");
}

TEST_F(CommandsTest, ListsTargetsOfOnePort) {
  EXPECT_EQ(
      Run({{.ports = {PortWithTargets(), fake::MakePort(2)}}}, Command::Targets, Format::JsonLines, kFirst), 0);
  ASSERT_EQ(Lines().size(), 2U);
  EXPECT_EQ(Lines()[0]["target"]["wwpn"], "0x5000000000000001");
  EXPECT_EQ(Lines()[1]["vport"], "0x3000000000000001");
}

TEST_F(CommandsTest, RefreshesOnePort) {
  m_Options.what = HBADISC_REFRESH_TARGETS | HBADISC_REFRESH_VPORTS;
  m_Options.timeout = std::chrono::seconds(1);
  const auto refresh = [this](unsigned int reason, const char* wwpn) {
    return RunOnPort({{.ports = {PortWithTargets()}, .refreshReason = reason}}, Command::Refresh, wwpn);
  };
  EXPECT_EQ(refresh(HBADISC_REASON_DIRECTED, kFirst), 0);
  EXPECT_EQ(Document()["changed"], false);
  EXPECT_EQ(Document()["port"]["targets"].size(), 1U);
  EXPECT_EQ(fake::Recorded().refreshWhat, 6U);

  // The library counts its own mark as a change.
  EXPECT_EQ(refresh(HBADISC_REASON_DIRECTED | HBADISC_REASON_CHANGED, kFirst), 0);
  EXPECT_EQ(Document()["changed"], false);

  fake::Step changing{.ports = {PortWithTargets(), fake::MakePort(2)},
                      .refreshReason = HBADISC_REASON_DIRECTED};
  changing.refreshed = {fake::MakePort(1), fake::MakePort(2)};
  EXPECT_EQ(RunOnPort({changing}, Command::Refresh, kFirst), 0);
  EXPECT_EQ(Document()["changed"], true);
  EXPECT_EQ(Document()["port"]["targets"].size(), 0U);
  EXPECT_EQ(RunOnPort({changing}, Command::Refresh, "1000025dfa000002"), 0);
  EXPECT_EQ(Document()["changed"], false) << "of another port";

  EXPECT_EQ(refresh(HBADISC_REASON_DIRECTED, "3000000000000009"), 4);
  EXPECT_TRUE(Document()["port"].is_null());
  EXPECT_TRUE(Document()["changed"].is_null());

  EXPECT_EQ(refresh(0, kFirst), 3) << "it does not answer";
  EXPECT_EQ(Document()["port"]["wwpn"], "0x1000025dfa000001");
  EXPECT_TRUE(Document()["changed"].is_null());
}

TEST_F(CommandsTest, ScopeSaysWhoIsAskedAndWhatIsShown) {
  fake::Port remote = fake::MakePort(2);
  remote.record.base.base.isLocal = 0;
  const struct {
    Scope scope;
    std::size_t ports;
    int localOnly;
    unsigned int oobInterval;
  } rows[] = {{Scope::Everywhere, 2, 0, 0},
              {Scope::RemoteHosts, 1, 0, 0},
              {Scope::LocalHost, 2, 1, HBADISC_NO_OOB_DISCOVERY}};
  for (const auto& row : rows) {
    m_Options.scope = row.scope;
    EXPECT_EQ(Run({{.ports = {fake::MakePort(1), remote}}}, Command::List), 0);
    ASSERT_EQ(Document()["ports"].size(), row.ports);
    EXPECT_EQ(Document()["ports"].back()["local"], false);
    EXPECT_EQ(fake::Recorded().localOnly, row.localOnly);
    EXPECT_EQ(fake::Recorded().oobInterval, row.oobInterval);
    EXPECT_EQ(fake::Recorded().interval, 0U);
  }
}

TEST_F(CommandsTest, ListsHosts) {
  std::vector<hbadisc_oob_host> hosts(70);  // more than are asked for at first
  for (auto& host : hosts) {
    fake::SetText(host.host, "10.1.2.3:23333");
    fake::SetText(host.name, "*UNKNOWN HOST NAME*");
  }
  fake::SetText(hosts.back().name, "server7");
  fake::SetHosts(hosts, 0, 1);
  EXPECT_EQ(Run({}, Command::ListHosts), 0);
  ASSERT_EQ(Document()["hosts"].size(), 70U);
  EXPECT_EQ(Document()["hosts"][0]["host"], "10.1.2.3:23333");
  EXPECT_TRUE(Document()["hosts"][0]["name"].is_null());
  EXPECT_EQ(Document()["hosts"][69]["name"], "server7");
  EXPECT_EQ(Run({}, Command::ListHosts, Format::JsonLines), 0);
  EXPECT_EQ(Lines().size(), 70U);
  fake::SetHosts({}, 0, 1);
  EXPECT_EQ(Run({}, Command::ListHosts), 0);
  EXPECT_EQ(Document()["hosts"], Json::array());
}

TEST_F(CommandsTest, AddsAndRemovesHosts) {
  const struct {
    Command command;
    int answer;
    int code;
    const char* result;
  } rows[] = {{Command::AddHosts, 0, 0, "added"},        {Command::AddHosts, -3, 0, "known"},
              {Command::AddHosts, -1, 1, "refused"},     {Command::AddHosts, 2, 1, "no_answer"},
              {Command::AddHosts, -2, 1, "not_written"}, {Command::AddHosts, -4, 1, "this_host"},
              {Command::RemoveHosts, 1, 0, "removed"},   {Command::RemoveHosts, 0, 4, "not_listed"}};
  m_Options.hosts = {"10.1.2.3", "10.1.2.4"};
  for (const auto& row : rows) {
    fake::SetHosts({}, row.answer, row.answer);
    EXPECT_EQ(Run({}, row.command), row.code) << row.result;
    ASSERT_EQ(Document()["hosts"].size(), 2U);
    EXPECT_EQ(Document()["hosts"][1]["host"], "10.1.2.4");
    EXPECT_EQ(Document()["hosts"][1]["result"], row.result);
    EXPECT_EQ(fake::Recorded().startups, 1) << "only a running discovery takes hosts";
    const std::string verb = row.command == Command::AddHosts ? "add" : "remove";
    EXPECT_EQ(fake::Recorded().hosts, (std::vector<std::string>{verb + " 10.1.2.3", verb + " 10.1.2.4"}));
  }
}

TEST_F(CommandsTest, TellsHostsThatAreNotListedFromThoseThatStay) {
  std::vector<hbadisc_oob_host> listed(2);
  fake::SetText(listed[0].host, "10.1.2.3:23334");
  fake::SetText(listed[1].host, "[fe80::1]:23334");
  const struct {
    const char* host;
    int code;
    const char* result;
  } rows[] = {{"10.1.2.3", 1, "not_written"},  {"10.1.2.3:1", 1, "not_written"}, {"fe80::1", 1, "not_written"},
              {"[fe80::1]", 1, "not_written"}, {"10.1.2.4", 4, "not_listed"},    {"fe80::", 4, "not_listed"}};
  for (const auto& row : rows) {
    fake::SetHosts(listed, 0, 0);
    m_Options.hosts = {row.host};
    EXPECT_EQ(Run({}, Command::RemoveHosts), row.code) << row.host;
    EXPECT_EQ(Document()["hosts"][0]["result"], row.result) << row.host;
  }
  // The library would take these and never find them again.
  for (const char* host : {"10.1.2.5:1024", "10.1.2.5:65535", "[fe80::2]:1024"}) {
    m_Options.hosts = {host};
    EXPECT_EQ(Run({}, Command::AddHosts), 1) << host;
    EXPECT_EQ(fake::Recorded().hosts.size(), 0U) << host;
  }
}

TEST_F(CommandsTest, UnknownPort) {
  EXPECT_EQ(RunOnPort({{.ports = {PortWithTargets()}}}, Command::Show, "3000000000000001"), 4);
  EXPECT_TRUE(Document()["port"].is_null());
  EXPECT_EQ(Document()["error"],
            "there is no port 30:00:00:00:00:00:00:01; it is a virtual port of 10:00:02:5d:fa:00:00:01");

  const std::vector<fake::Step> other = {{.ports = {fake::MakePort(2)}}};
  EXPECT_EQ(RunOnPort(other, Command::Targets, kFirst), 4);
  EXPECT_EQ(Document()["targets"], Json::array());
  EXPECT_EQ(Document()["vports"], Json::array());
  EXPECT_EQ(Run(other, Command::Targets, Format::Table, kFirst), 4);
  EXPECT_EQ(m_Output->Text(), "");
}

TEST_F(CommandsTest, TheTimeLimitRunsOut) {
  m_Options.timeout = std::chrono::seconds(1);
  EXPECT_EQ(Run({{.reason = 20, .ports = {fake::MakePort(1)}, .awaitWalk = false}}, Command::List), 3);
  EXPECT_EQ(Document()["complete"], false);
  EXPECT_TRUE(Document()["error"].is_string());
  EXPECT_EQ(Document()["ports"].size(), 1U);

  m_Options.timeout = std::chrono::seconds(0);
  EXPECT_EQ(Run({}, Command::List), 1);
  EXPECT_EQ(Document()["ports"], Json::array());
  EXPECT_EQ(RunOnPort({}, Command::Show, kFirst), 1);
  EXPECT_TRUE(Document()["port"].is_null());
  EXPECT_EQ(Run({}, Command::Watch), 1);
  EXPECT_EQ(Document()["events"], Json::array());
  EXPECT_EQ(Document()["complete"], false);
}

TEST_F(CommandsTest, AProviderWithoutAChoice) {
  m_Options.source = {SourceKind::Fabric, "lab.json"};
  for (const Command command : {Command::List, Command::Watch}) {
    EXPECT_THAT([&] { Run({}, command); }, testing::Throws<Failure>(testing::AllOf(
                                               testing::Property(&Failure::Code, 1),
                                               testing::Property(&Failure::what, HasSubstr("--fabric")))));
    EXPECT_EQ(Document()["complete"], false);
    EXPECT_TRUE(Document()[command == Command::List ? "ports" : "events"].empty());
  }
  EXPECT_THROW(Run({}, Command::List, Format::JsonLines), Failure);
  EXPECT_EQ(m_Output->Text(), "");
}

TEST_F(CommandsTest, WatchTellsWhatChanges) {
  fake::Port down = fake::MakePort(1);
  down.record.base.base.linkStatus = 2;
  const std::vector<fake::Step> script = {
      {.ports = {fake::MakePort(1)}},
      {.reason = HBADISC_REASON_EVERY_CYCLE | HBADISC_REASON_CHANGED, .ports = {down}},
      {.reason = HBADISC_REASON_EVERY_CYCLE, .ports = {down}}};
  m_Options.intervalSeconds = 5;
  m_Options.callbackCount = 3;
  EXPECT_EQ(Run(script, Command::Watch, Format::JsonLines), 0);
  EXPECT_EQ(fake::Recorded().interval, 5U);
  EXPECT_EQ(fake::Recorded().terminates, 1);
  const std::vector<Json> lines = Lines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0]["changes"][0]["change"], "added");
  ASSERT_EQ(lines[1]["changes"].size(), 1U);
  EXPECT_EQ(lines[1]["changes"][0]["path"], Json::array({"link"}));
  EXPECT_EQ(lines[1]["changes"][0]["before"], "up");
  EXPECT_EQ(lines[1]["changes"][0]["after"], "down");
  EXPECT_EQ(lines[2]["changes"], Json::array());
  EXPECT_EQ(lines[2]["event"], 3);

  EXPECT_EQ(Run(script, Command::Watch), 0);
  EXPECT_EQ(Document()["events"].size(), 3U);
  EXPECT_EQ(Document()["complete"], true);
}

// In a system call, and not on its way into one: a signal there is kept back by clang 14's thread sanitizer.
void AwaitSleep(pid_t thread) {
  std::string state;
  while (state != "S") {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::getline(stat, state, ')');
    stat >> state;
  }
}

TEST_F(CommandsTest, WatchEndsWithASignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    fake::SetScript({});  // of the run before nothing counts
    std::thread user([signal, watcher = gettid()] {
      while (fake::Recorded().walksEnded < 2) std::this_thread::yield();
      AwaitSleep(watcher);
      kill(getpid(), signal);
    });
    EXPECT_EQ(Run({{}, {}}, Command::Watch), 0);
    user.join();
    EXPECT_EQ(Document()["events"].size(), 2U);
    EXPECT_EQ(fake::Recorded().terminates, 1);
  }
}

TEST(OutputTest, AFileThatTheStarterHasNotGivenIsNotWritten) {
  const int library = open("/dev/null", O_WRONLY | O_CLOEXEC);
  EXPECT_THROW(Output(library).Write("x"), OutputError);
  close(library);
}

// The library prints words of its own, on standard output.
TEST(OutputDeathTest, DataStandsAlone) {
  int data[2];
  ASSERT_EQ(pipe(data), 0);
  const auto write = [&data] {
    dup2(data[1], STDOUT_FILENO);
    std::puts("while it was loaded");
    Output(ClaimStandardOutput()).Write("data");
    std::puts("later");
    std::fflush(stdout);
    std::_Exit(0);
  };
  EXPECT_EXIT(write(), testing::ExitedWithCode(0), "while it was loaded\nlater");
  close(data[1]);
  char text[100] = {};
  EXPECT_EQ(read(data[0], text, sizeof text), 4);
  EXPECT_STREQ(text, "data");
  close(data[0]);
}

TEST(SourceTest, AsksTheProvider) {
  static std::string asked;
  const auto lookUp = [](const char* name) -> void* {
    if (std::string_view(name) == "RMOpen_SetSource") {
      return reinterpret_cast<void*>(+[](const char* kind, const char* path) {
        asked = std::string(kind) + ' ' + path;
        return asked == "fabric bad.json" ? 1 : 0;
      });
    }
    return reinterpret_cast<void*>(
        +[](char* text, unsigned int size) { std::snprintf(text, size, "line 3: no"); });
  };
  ChooseSource({SourceKind::SysfsRoot, "/x"}, lookUp);
  EXPECT_EQ(asked, "sysfs /x");
  EXPECT_THAT(
      [&] {
        ChooseSource({SourceKind::Fabric, "bad.json"}, lookUp);
      },
      testing::ThrowsMessage<Failure>("line 3: no"));
}

}  // namespace
}  // namespace hbadisc

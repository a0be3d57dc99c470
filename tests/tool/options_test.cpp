#include "tools/hbadisc/Options.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <vector>

namespace hbadisc {
namespace {

// A command line behind the program's name, its words apart by spaces; '' is an empty one.
std::variant<Options, Notification> Parse(const std::string& line) {
  std::istringstream stream("hbadisc " + line);
  const std::vector<std::string> words(std::istream_iterator<std::string>(stream), {});
  std::vector<const char*> arguments;
  for (const std::string& word : words) arguments.push_back(word == "''" ? "" : word.c_str());
  return ParseOptions(static_cast<int>(arguments.size()), arguments.data());
}

Options Good(const std::string& line) {
  const auto parsed = Parse(line);
  if (const auto* notification = std::get_if<Notification>(&parsed)) {
    ADD_FAILURE() << notification->text;
    return {};
  }
  return std::get<Options>(parsed);
}

TEST(OptionsTest, Defaults) {
  const Options options = Good("list");
  EXPECT_EQ(options.command, Command::List);
  EXPECT_EQ(options.format, Format::Table);
  EXPECT_EQ(options.source.kind, SourceKind::ProviderDefault);
  EXPECT_EQ(options.timeout, std::chrono::seconds(30));
  EXPECT_FALSE(options.verbose);
  const Options watch = Good("watch");
  EXPECT_EQ(watch.command, Command::Watch);
  EXPECT_EQ(watch.intervalSeconds, 90U);
  EXPECT_EQ(watch.callbackCount, 0U);
}

TEST(OptionsTest, GlobalOptionsStandBeforeOrAfterTheCommand) {
  for (const char* line : {"--fabric lab.json -v -j --timeout 5 show 10:00:02:5d:fa:00:00:01",
                           "show 10:00:02:5d:fa:00:00:01 -j --fabric=lab.json -v --timeout=5"}) {
    const Options options = Good(line);
    EXPECT_EQ(options.command, Command::Show);
    EXPECT_EQ(options.format, Format::JsonDocument);
    EXPECT_EQ(options.source.kind, SourceKind::Fabric);
    EXPECT_EQ(options.source.path, "lab.json");
    EXPECT_EQ(options.timeout, std::chrono::seconds(5));
    EXPECT_TRUE(options.verbose);
    EXPECT_EQ(ColonText(options.wwpn), "10:00:02:5d:fa:00:00:01");
  }
}

TEST(OptionsTest, Values) {
  EXPECT_FALSE(Good("list --timeout 0").timeout);
  EXPECT_EQ(Good("list -o jsonl").format, Format::JsonLines);
  EXPECT_EQ(Good("list --sysfsroot /x").source.kind, SourceKind::SysfsRoot);
  EXPECT_EQ(Good("refresh 1000025dfa000001").what, 0U);
  EXPECT_EQ(Good("refresh 1000025dfa000001 --what attributes,vports").what, 5U);
  EXPECT_EQ(Good("list --oob").scope, Scope::RemoteHosts);
  EXPECT_EQ(Good("--local-only watch").scope, Scope::LocalHost);
  const Options hosts = Good("hosts add 10.1.2.3 [fe80::1]:23333 --hosts-dir /x -j");
  EXPECT_EQ(hosts.command, Command::AddHosts);
  EXPECT_EQ(hosts.hosts, (std::vector<std::string>{"10.1.2.3", "[fe80::1]:23333"}));
  EXPECT_EQ(hosts.hostsDirectory, "/x");
  EXPECT_EQ(Good("hosts list").command, Command::ListHosts);
  EXPECT_EQ(Good("hosts remove 10.1.2.3").command, Command::RemoveHosts);
  EXPECT_EQ(Good("watch --interval 5").intervalSeconds, 5U);
  EXPECT_EQ(Good("watch --count 3").callbackCount, 3U);
}

TEST(OptionsTest, WrongUsage) {
  for (const char* line :
       {"", "lists", "list show", "list extra", "list --nonsense", "list --fabric a --sysfsroot b",
        "list --fabric", "list -j -o table", "list -o xml", "list --timeout -1", "list --timeout 1s",
        "list --timeout ''", "list --timeout 99999999999", "list --count 1", "show",
        "show 1000025dfa000001 1000025dfa000001", "watch --interval 4", "watch --interval 0",
        "watch --count 0"}) {
    const auto parsed = Parse(line);
    const auto* notification = std::get_if<Notification>(&parsed);
    ASSERT_TRUE(notification) << line;
    EXPECT_EQ(notification->exitCode, 2) << line;
    EXPECT_FALSE(notification->text.empty());
  }
}

TEST(OptionsTest, HelpAndVersionAreNoErrors) {
  const std::pair<const char*, const char*> rows[] = {{"--help", "hbadisc watch --interval 10"},
                                                      {"watch --help", "--count"},
                                                      {"-V", "Draxonite Discovery"},
                                                      {"--version", "14.0.326.24"}};
  for (const auto& [line, part] : rows) {
    const auto parsed = Parse(line);
    const auto* notification = std::get_if<Notification>(&parsed);
    ASSERT_TRUE(notification);
    EXPECT_EQ(notification->exitCode, 0);
    EXPECT_NE(notification->text.find(part), std::string::npos) << notification->text;
    EXPECT_TRUE(notification->text.ends_with('\n'));
  }
}

}  // namespace
}  // namespace hbadisc

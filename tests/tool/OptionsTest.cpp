#include "tools/hbadisc/Options.h"

#include <gtest/gtest.h>

#include <vector>

namespace hbadisc {
namespace {

std::variant<Options, Notification> Parse(std::vector<const char*> words) {
  words.insert(words.begin(), "hbadisc");
  return ParseOptions(static_cast<int>(words.size()), words.data());
}

Options Good(const std::vector<const char*>& words) {
  const auto parsed = Parse(words);
  if (const auto* notification = std::get_if<Notification>(&parsed)) {
    ADD_FAILURE() << notification->text;
    return {};
  }
  return std::get<Options>(parsed);
}

constexpr char kName[] = "10:00:02:5d:fa:00:00:01";

TEST(OptionsTest, Defaults) {
  const Options options = Good({"list"});
  EXPECT_EQ(options.command, Command::List);
  EXPECT_EQ(options.format, Format::Table);
  EXPECT_EQ(options.source.kind, SourceKind::ProviderDefault);
  EXPECT_EQ(options.timeout, std::chrono::seconds(30));
  EXPECT_FALSE(options.verbose);
  const Options watch = Good({"watch"});
  EXPECT_EQ(watch.command, Command::Watch);
  EXPECT_EQ(watch.intervalSeconds, 90U);
  EXPECT_EQ(watch.callbackCount, 0U);
}

TEST(OptionsTest, GlobalOptionsStandBeforeOrAfterTheCommand) {
  for (const auto& words :
       {std::vector<const char*>{"--fabric", "lab.json", "-v", "-j", "--timeout", "5", "show", kName},
        std::vector<const char*>{"show", kName, "-j", "--fabric=lab.json", "-v", "--timeout=5"}}) {
    const Options options = Good(words);
    EXPECT_EQ(options.command, Command::Show);
    EXPECT_EQ(options.format, Format::JsonDocument);
    EXPECT_EQ(options.source.kind, SourceKind::Fabric);
    EXPECT_EQ(options.source.path, "lab.json");
    EXPECT_EQ(options.timeout, std::chrono::seconds(5));
    EXPECT_TRUE(options.verbose);
    EXPECT_EQ(ColonText(options.wwpn), kName);
  }
}

TEST(OptionsTest, Values) {
  EXPECT_FALSE(Good({"list", "--timeout", "0"}).timeout);
  EXPECT_EQ(Good({"list", "-o", "jsonl"}).format, Format::JsonLines);
  EXPECT_EQ(Good({"list", "--sysfsroot", "/x"}).source.kind, SourceKind::SysfsRoot);
  EXPECT_EQ(Good({"refresh", kName}).what, 0U);
  EXPECT_EQ(Good({"refresh", kName, "--what", "attributes,vports"}).what, 5U);
  EXPECT_EQ(Good({"list", "--oob"}).scope, Scope::RemoteHosts);
  EXPECT_EQ(Good({"--local-only", "watch"}).scope, Scope::LocalHost);
  const Options hosts = Good({"hosts", "add", "10.1.2.3", "[fe80::1]:23333", "--hosts-dir", "/x", "-j"});
  EXPECT_EQ(hosts.command, Command::AddHosts);
  EXPECT_EQ(hosts.hosts, (std::vector<std::string>{"10.1.2.3", "[fe80::1]:23333"}));
  EXPECT_EQ(hosts.hostsDirectory, "/x");
  EXPECT_EQ(Good({"hosts", "list"}).command, Command::ListHosts);
  EXPECT_EQ(Good({"hosts", "remove", "10.1.2.3"}).command, Command::RemoveHosts);
  EXPECT_EQ(Good({"watch", "--interval", "5"}).intervalSeconds, 5U);
  EXPECT_EQ(Good({"watch", "--count", "3"}).callbackCount, 3U);
}

TEST(OptionsTest, WrongUsage) {
  const std::vector<const char*> rows[] = {{},
                                           {"lists"},
                                           {"list", "show"},
                                           {"list", "extra"},
                                           {"show"},
                                           {"show", kName, kName},
                                           {"list", "--nonsense"},
                                           {"list", "--fabric", "a", "--sysfsroot", "b"},
                                           {"list", "--fabric"},
                                           {"list", "-j", "-o", "table"},
                                           {"list", "-o", "xml"},
                                           {"list", "--timeout", "-1"},
                                           {"list", "--timeout", "1s"},
                                           {"list", "--timeout", ""},
                                           {"list", "--timeout", "99999999999"},
                                           {"watch", "--interval", "4"},
                                           {"watch", "--interval", "0"},
                                           {"watch", "--count", "0"},
                                           {"list", "--count", "1"}};
  for (const auto& words : rows) {
    const auto parsed = Parse(words);
    const auto* notification = std::get_if<Notification>(&parsed);
    ASSERT_TRUE(notification) << testing::PrintToString(words);
    EXPECT_EQ(notification->exitCode, 2) << testing::PrintToString(words);
    EXPECT_FALSE(notification->text.empty());
  }
}

TEST(OptionsTest, AWrongNameIsNamed) {
  const auto parsed = Parse({"targets", "10:00:00"});
  const Notification& notification = std::get<Notification>(parsed);
  EXPECT_EQ(notification.exitCode, 2);
  EXPECT_NE(notification.text.find("'10:00:00'"), std::string::npos) << notification.text;
}

TEST(OptionsTest, HelpAndVersionAreNoErrors) {
  const std::pair<std::vector<const char*>, std::string> rows[] = {{{"--help"}, "hbadisc watch --interval 10"},
                                                                   {{"watch", "--help"}, "--count"},
                                                                   {{"-V"}, "Draxonite Discovery"},
                                                                   {{"--version"}, "14.0.326.24"}};
  for (const auto& [words, part] : rows) {
    const auto parsed = Parse(words);
    const auto* notification = std::get_if<Notification>(&parsed);
    ASSERT_TRUE(notification);
    EXPECT_EQ(notification->exitCode, 0);
    EXPECT_NE(notification->text.find(part), std::string::npos) << notification->text;
    EXPECT_TRUE(notification->text.ends_with('\n'));
  }
}

}  // namespace
}  // namespace hbadisc

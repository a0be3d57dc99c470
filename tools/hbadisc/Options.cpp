#include "tools/hbadisc/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <map>
#include <numeric>
#include <sstream>
#include <utility>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Output.h"

namespace hbadisc {

namespace {

constexpr char kVersion[] = "hbadisc (Draxonite Discovery) " HBADISC_VERSION;

constexpr char kDescription[] =
    "Finds the Fibre Channel, FCoE, iSCSI, NIC and RoCE ports of this host and of remote hosts.\n";

constexpr char kFooter[] = R"(Options may stand before or after the command.

Examples:
  hbadisc list                            all ports, one line each
  hbadisc show 10:00:02:5d:fa:00:00:01    everything about one port
  hbadisc targets 0x1000025dfa000001 -j   its targets, as JSON
  hbadisc refresh 10:00:02:5d:fa:00:00:01 the port, read once more
  hbadisc watch --interval 10             what changes, until Ctrl-C
  hbadisc hosts add 10.1.2.3              ask that host, too, from now on
  hbadisc list --fabric lab.json          ports described in a fabric file

Exit codes: 0 all well, 1 failed, 2 wrong usage, 3 only a part could be shown (the
time limit ran out first, or something did not answer), 4 no such port or host.

The JSON is one object with "format_version" 1; world-wide names are texts like
"0x1000025dfa000001", unknown values are null. NO_COLOR in the environment turns
colours off.)";

constexpr char kListFooter[] =
    R"(The columns: WWPN (the port's name), WHERE (local, or seen through another host),
KIND (FC, FCoE, iSCSI, NIC, NIC+RoCE), LINK (physical, and after "/" that of the
function where it differs), MODEL, SYSTEM (host name), and the numbers of TARGETS,
VPORTS (NPIV virtual ports) and VFS (SR-IOV virtual functions). "-" is unknown.

Examples:
  hbadisc list
  hbadisc list -o jsonl | jq -r 'select(.link == "down") | .wwpn'

'hbadisc --help' shows the options that every command has.)";

constexpr char kShowFooter[] = R"(Example:
  hbadisc show 10:00:02:5d:fa:00:00:01

'hbadisc --help' shows the options that every command has.)";

constexpr char kTargetsFooter[] =
    R"(Fibre Channel targets are shown with their names, SCSI bus, target and LUN, FCP LUN,
device, FC address and readiness, iSCSI targets with their sessions and connection.
The targets of NPIV virtual ports follow, port by port.

Example:
  hbadisc targets 10:00:02:5d:fa:00:00:01 -o jsonl | jq .target.wwpn

'hbadisc --help' shows the options that every command has.)";

constexpr char kRefreshFooter[] =
    R"(Looks at all ports first, has the one port read again, and shows it. WHAT is a list of
attributes, targets and vports with commas between; all three when it is not given.
What cannot be read any more is shown as empty.

Examples:
  hbadisc refresh 10:00:02:5d:fa:00:00:01
  hbadisc refresh 10:00:02:5d:fa:00:00:01 --what targets,vports -j | jq .changed

'hbadisc --help' shows the options that every command has.)";

constexpr char kWatchFooter[] =
    R"(One line a look: the time, what it is about (first look; intermediate: the first one goes
on; changed; no change), how many ports there are, and what differs from the look
before. At the first line every port is new. Each look reads everything anew. What
cannot be asked "does not answer": it is not taken for gone. A first look may take as
long as it likes: --timeout does not count.

Examples:
  hbadisc watch
  hbadisc watch --changes-only
  hbadisc watch --interval 5 --count 10
  hbadisc watch -o jsonl | jq .changes

'hbadisc --help' shows the options that every command has.)";

constexpr char kHostsFooter[] =
    R"(Remote hosts are kept in a file that all programs with this library share. An agent
(hbadisc-agent) answers on each of them. HOST is an address, also with a port as in
10.1.2.3:23333 or [fe80::1]:23333, or, to add it, a name. A host is asked for its ports
and its name before it is added. It is removed by the address that 'hosts list' shows.
'hosts list' asks them all, and says what each answered; with --no-ask it only reads
the file.

Examples:
  hbadisc hosts add 10.1.2.3
  hbadisc hosts list
  hbadisc hosts remove 10.1.2.3

'hbadisc --help' shows the options that every command has.)";

constexpr char kWwnHelp[] =
    "name of the port (WWPN): 16 hexadecimal digits, also after 0x or as bytes with ':' or '-' between";

// A whole decimal number in [least, most], nothing else.
std::optional<unsigned int> ParseNumber(const std::string& text, unsigned int least, unsigned int most) {
  unsigned int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end || number < least || number > most) return std::nullopt;
  return number;
}

CLI::Validator NumberIn(unsigned int least, unsigned int most) {
  return CLI::Validator(
      [least, most](const std::string& text) -> std::string {
        if (ParseNumber(text, least, most)) return {};
        return "'" + text + "' is not a whole number from " + std::to_string(least) + " to " +
               std::to_string(most);
      },
      "");
}

CLI::Validator WwnText() {
  return CLI::Validator(
      [](const std::string& text) -> std::string {
        if (ParseWwn(text)) return {};
        return "'" + text +
               "' is no world-wide name: it takes 16 hexadecimal digits, also after 0x or as 8 bytes"
               " with ':' or '-' between";
      },
      "");
}

const std::map<std::string, unsigned int> kRefreshParts = {{"attributes", HBADISC_REFRESH_ATTRIBUTES},
                                                           {"targets", HBADISC_REFRESH_TARGETS},
                                                           {"vports", HBADISC_REFRESH_VPORTS}};

// The values as CLI11 stores them, all texts.
struct RawOptions {
  std::optional<std::string> fabric;
  std::optional<std::string> sysfsRoot;
  std::string hostsDirectory;
  bool localOnly = false;
  bool remoteOnly = false;
  std::vector<std::string> hosts;
  std::string format = "table";
  bool json = false;
  std::string timeout = "30";
  bool verbose = false;
  std::string wwpn;
  std::vector<std::string> what;
  std::string interval = "90";
  std::string count;
  bool changesOnly = false;
  bool noAsk = false;
  bool cycle = false;
};

constexpr unsigned int kDay = 86400;

void AddGlobalOptions(CLI::App& app, RawOptions& raw) {
  auto* fabric = app.add_option("--fabric", raw.fabric, "look at the host that this fabric file describes");
  auto* root = app.add_option("--sysfsroot", raw.sysfsRoot, "look at the sysfs tree below this directory");
  fabric->type_name("FILE")->excludes(root);
  root->type_name("DIR")->excludes(fabric);
  app.add_option("--hosts-dir", raw.hostsDirectory, "directory of the file of remote hosts")->type_name("DIR");
  auto* localOnly = app.add_flag("--local-only", raw.localOnly, "only this host; no remote host is asked");
  app.add_flag("--oob", raw.remoteOnly, "only ports of remote hosts (out-of-band)")->excludes(localOnly);
  auto* format = app.add_option("-o,--output", raw.format, "table, json, or jsonl (one JSON object a line)");
  format->type_name("FORMAT")->default_str("table")->check(CLI::IsMember({"table", "json", "jsonl"}));
  app.add_flag("-j,--json", raw.json, "the same as --output json")->excludes(format);
  app.add_option("--timeout", raw.timeout, "how long to wait for the first look; 0: as long as it takes")
      ->type_name("SEC")
      ->default_str("30")
      ->check(NumberIn(0, kDay));
  app.add_flag("--cycle", raw.cycle, "look as applications do, with the pauses of a full cycle");
  app.add_flag("-v,--verbose", raw.verbose, "tell on standard error what goes on");
  app.set_version_flag("-V,--version", kVersion, "show the version");
}

CLI::App* AddPortCommand(CLI::App& app, RawOptions& raw, const char* name, const char* description) {
  CLI::App* command = app.add_subcommand(name, description);
  command->add_option("WWPN", raw.wwpn, kWwnHelp)->type_name("")->required()->check(WwnText());
  return command;
}

CLI::App* AddHostCommand(CLI::App& hosts, RawOptions& raw, const char* name, const char* description) {
  CLI::App* command = hosts.add_subcommand(name, description);
  command->add_option("HOST", raw.hosts, "address of the host, also with its port")->type_name("")->required();
  return command;
}

using Commands = std::map<const CLI::App*, Command>;

Commands AddHostCommands(CLI::App& app, RawOptions& raw) {
  CLI::App* hosts = app.add_subcommand("hosts", "The remote hosts: list, add, remove.");
  hosts->require_subcommand(1);
  hosts->fallthrough();
  hosts->get_formatter()->label("SUBCOMMAND", "COMMAND");
  hosts->group("Commands");
  hosts->footer(kHostsFooter);
  CLI::App* list = hosts->add_subcommand("list", "All remote hosts, and what they answer.");
  list->add_flag("--no-ask", raw.noAsk, "only what the file says; ask none");
  return {{list, Command::ListHosts},
          {AddHostCommand(*hosts, raw, "add", "Ask these hosts, too, from now on."), Command::AddHosts},
          {AddHostCommand(*hosts, raw, "remove", "Do not ask these hosts any more."), Command::RemoveHosts}};
}

Commands AddCommands(CLI::App& app, RawOptions& raw) {
  CLI::App* list = app.add_subcommand("list", "All ports, one line each.");
  list->footer(kListFooter);
  CLI::App* show = AddPortCommand(app, raw, "show", "Everything about one port.");
  show->footer(kShowFooter);
  CLI::App* targets = AddPortCommand(app, raw, "targets", "The targets of one port and of its virtual ports.");
  targets->footer(kTargetsFooter);
  CLI::App* refresh = AddPortCommand(app, raw, "refresh", "Have one port read again, and show it.");
  refresh->add_option("--what", raw.what, "what to read: attributes, targets, vports (all three)")
      ->type_name("WHAT")
      ->delimiter(',')
      ->check(CLI::IsMember({"attributes", "targets", "vports"}));
  refresh->footer(kRefreshFooter);
  CLI::App* watch = app.add_subcommand("watch", "Look again and again, and tell what has changed.");
  watch->add_option("--interval", raw.interval, "time between two looks, 5 or more")
      ->type_name("SEC")
      ->default_str("90")
      ->check(NumberIn(5, kDay));
  watch->add_option("--count", raw.count, "end after N lines")->type_name("N")->check(NumberIn(1, 1000000000));
  watch->add_flag("--changes-only", raw.changesOnly, "only lines of looks that saw something change");
  watch->footer(kWatchFooter);
  for (CLI::App* command : {list, show, targets, refresh, watch}) command->group("Commands");
  Commands commands = AddHostCommands(app, raw);
  commands.insert({{list, Command::List},
                   {show, Command::Show},
                   {targets, Command::Targets},
                   {refresh, Command::Refresh},
                   {watch, Command::Watch}});
  return commands;
}

Format FormatOf(const RawOptions& raw) {
  if (raw.json || raw.format == "json") return Format::JsonDocument;
  return raw.format == "jsonl" ? Format::JsonLines : Format::Table;
}

// Everything has been checked by the validators; a value that is missing keeps its default.
Options Convert(const RawOptions& raw, Command command) {
  Options options;
  options.command = command;
  options.format = FormatOf(raw);
  if (raw.fabric) options.source = {SourceKind::Fabric, *raw.fabric};
  if (raw.sysfsRoot) options.source = {SourceKind::SysfsRoot, *raw.sysfsRoot};
  options.hostsDirectory = raw.hostsDirectory;
  if (raw.localOnly) options.scope = Scope::LocalHost;
  if (raw.remoteOnly) options.scope = Scope::RemoteHosts;
  options.hosts = raw.hosts;
  const unsigned int timeout = ParseNumber(raw.timeout, 0, kDay).value_or(0);
  options.timeout = timeout == 0 ? std::nullopt : std::optional(std::chrono::seconds(timeout));
  options.verbose = raw.verbose;
  options.wwpn = ParseWwn(raw.wwpn).value_or(Wwn{});
  for (const std::string& part : raw.what) options.what |= kRefreshParts.at(part);
  options.intervalSeconds = ParseNumber(raw.interval, 0, kDay).value_or(0);
  options.callbackCount = ParseNumber(raw.count, 0, 1000000000).value_or(0);
  options.changesOnly = raw.changesOnly;
  options.ask = !raw.noAsk;
  options.cycle = raw.cycle;
  return options;
}

// How many letters have to be typed, left out or replaced to come from one word to the other.
std::size_t Distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < one.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t k = 0; k < other.size(); ++k) {
      const std::size_t replaced = diagonal + (one[i] == other[k] ? 0 : 1);
      diagonal = row[k + 1];
      row[k + 1] = std::min({replaced, row[k] + 1, diagonal + 1});
    }
  }
  return row.back();
}

// What the first word that is no option may have been meant to be; empty when it is like none.
std::string Suggestion(const CLI::App& app, int argc, const char* const* argv) {
  constexpr std::size_t kAlike = 2;
  const std::string_view word = argc > 1 && argv[1][0] != '-' ? argv[1] : "";
  std::string best;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    const std::string& name = command->get_name();
    if (word.empty() || name == word) return {};
    if (Distance(word, name) > std::min(kAlike, word.size() / 2)) continue;
    if (best.empty() || Distance(word, name) < Distance(word, best)) best = name;
  }
  return best;
}

Notification ToNotification(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
    std::ostringstream text;
    app.exit(error, text, text);
    return {kOk, text.str()};
  }
  return {kUsage, error.what()};
}

}  // namespace

std::variant<Options, Notification> ParseOptions(int argc, const char* const* argv) {
  RawOptions raw;
  CLI::App app(kDescription, "hbadisc");
  app.footer(kFooter);
  app.fallthrough();
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  app.require_subcommand(0, 1);
  AddGlobalOptions(app, raw);
  const Commands commands = AddCommands(app, raw);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    Notification notification = ToNotification(app, error);
    const std::string meant = notification.exitCode == kUsage ? Suggestion(app, argc, argv) : "";
    if (!meant.empty())
      notification.text = std::string("there is no command '") + argv[1] + "'; did you mean '" + meant + "'?";
    return notification;
  }
  const auto chosen = app.get_subcommands();
  if (chosen.empty())
    return Notification{kUsage, "a command is missing: list, show, targets, refresh, watch or hosts"};
  const auto below = chosen.front()->get_subcommands();
  return Convert(raw, commands.at(below.empty() ? chosen.front() : below.front()));
}

}  // namespace hbadisc

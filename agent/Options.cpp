#include "agent/Options.h"

#include <CLI/CLI.hpp>
#include <sstream>

namespace agent {

using provider::NetAddress;

namespace {

constexpr char kVersion[] = "hbadisc-agent (Draxonite Discovery) " HBADISC_VERSION;
constexpr char kAbout[] =
    "Answers remote discovery's questions about this machine's adapter ports, over HTTP, read-only.";

std::string CheckAddress(const std::string& text) {
  return NetAddress::Parse(text).has_value() ? "" : "expected a numeric IPv4 or IPv6 address, not " + text;
}

}  // namespace

std::variant<Options, Saying> ParseOptions(int argc, const char* const* argv) {
  constexpr std::size_t kMostConnections = 65'536;
  Options options;
  std::vector<std::string> listen;
  CLI::App app(kAbout, "hbadisc-agent");
  app.set_version_flag("--version", kVersion);
  auto* fabric = app.add_option("--fabric", options.fabricFile,
                                "serve the hosts of this fabric file: each remote host at its address, and "
                                "the local host at --listen");
  app.add_option("--sysfsroot", options.sysfsRoot, "where sysfs lies")->capture_default_str()->excludes(fabric);
  app.add_option("--listen", listen,
                 "address to listen on, may be repeated; without it 127.0.0.1 and ::1, or those loopback "
                 "addresses that the fabric file's remote hosts have")
      ->check(CheckAddress);
  app.add_option("--port", options.server.port, "port to listen on, 0 for any")->capture_default_str();
  app.add_option("--user", options.user, "user to run as when started as root (nobody)");
  app.add_option("--max-connections", options.server.mostConnections, "connections at one time")
      ->check(CLI::Range(std::size_t{1}, kMostConnections))
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) {
      return Saying{2, std::string("hbadisc-agent: ") + error.what() + " (see hbadisc-agent --help)\n"};
    }
    std::ostringstream text;
    app.exit(error, text, text);
    return Saying{0, text.str()};
  }
  for (const std::string& text : listen) options.server.listen.push_back(NetAddress::Parse(text).value());
  return options;
}

}  // namespace agent

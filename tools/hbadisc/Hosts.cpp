#include "tools/hbadisc/Hosts.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Discovery.h"
#include "tools/hbadisc/JsonWriter.h"
#include "tools/hbadisc/Table.h"

namespace hbadisc {

namespace {

// What the library calls a host of which no name is known.
constexpr std::string_view kUnknownName = "*UNKNOWN HOST NAME*";

struct RemoteHost {
  std::string host;
  std::optional<std::string> name;
};

std::string Text(const char* field, std::size_t size) {
  return {field, strnlen(field, size)};
}

// The library's list: a count, and the records at byte 8.
class HostBuffer {
 public:
  explicit HostBuffer(std::uint32_t room)
      : m_Bytes(sizeof(hbadisc_oob_host_list) + room * sizeof(hbadisc_oob_host)), m_Room(room) {
    Header()->count = room;
  }
  hbadisc_oob_host_list* Header() { return reinterpret_cast<hbadisc_oob_host_list*>(m_Bytes.data()); }
  std::uint32_t Count() { return std::min(Header()->count, m_Room); }
  RemoteHost At(std::uint32_t index) const {
    hbadisc_oob_host record;
    std::memcpy(&record, m_Bytes.data() + sizeof(hbadisc_oob_host_list) + index * sizeof record, sizeof record);
    RemoteHost host{Text(record.host, sizeof record.host), Text(record.name, sizeof record.name)};
    if (host.name == kUnknownName) host.name.reset();
    return host;
  }

 private:
  std::vector<unsigned char> m_Bytes;
  std::uint32_t m_Room;
};

std::vector<RemoteHost> ReadHosts() {
  // Another process may add hosts between two looks.
  for (std::uint32_t room = 64;;) {
    HostBuffer buffer(room);
    if (HBADisc_GetOOBHostList(buffer.Header()) != 0 && buffer.Header()->count > room) {
      room = buffer.Header()->count + 64;
      continue;
    }
    std::vector<RemoteHost> hosts;
    hosts.reserve(buffer.Count());
    for (std::uint32_t i = 0; i < buffer.Count(); ++i) hosts.push_back(buffer.At(i));
    return hosts;
  }
}

void WriteHosts(const Options& options, const std::vector<Json>& hosts, Output& output) {
  if (options.format == Format::JsonDocument) {
    output.Write(Dump(Document({{"hosts", hosts}}), Layout::Indented));
    return;
  }
  for (const Json& host : hosts) output.Write(Dump(Document(host), Layout::OneLine));
}

int ListHosts(const Options& options, Output& output, Messages& messages) {
  const std::vector<RemoteHost> hosts = ReadHosts();
  if (options.format == Format::Table) {
    Table table({{"HOST"}, {"NAME"}});
    for (const RemoteHost& host : hosts) table.AddRow({{host.host}, {host.name.value_or("")}});
    output.Write(table.Render(output.Colour()));
    if (hosts.empty()) messages.Say("there are no remote hosts");
    return kOk;
  }
  std::vector<Json> lines;
  lines.reserve(hosts.size());
  for (const RemoteHost& host : hosts) {
    lines.push_back({{"host", host.host}, {"name", host.name ? Json(*host.name) : Json()}});
  }
  WriteHosts(options, lines, output);
  return kOk;
}

struct Outcome {
  ExitCode code = kOk;
  const char* word = "";  // in JSON
  const char* text = "";  // for people, behind the host
};

// "10.1.2.3:23333" or "[fe80::1]:23333" in two; an IPv6 address without brackets has no port.
struct HostAndPort {
  explicit HostAndPort(const std::string& text) : host(text) {
    const std::size_t colon = text.rfind(':');
    if (text.starts_with('[')) {
      const std::size_t end = text.find(']');
      host = text.substr(1, end - 1);
      if (colon != std::string::npos && colon > end) port = text.substr(colon + 1);
    } else if (colon != std::string::npos && colon == text.find(':')) {
      host = text.substr(0, colon);
      port = text.substr(colon + 1);
    }
  }

  std::string host;
  std::string port;
};

constexpr const char* kRefused =
    "is not added: no such host; or a port that is not allowed (1025 to 65534, as in 10.1.2.3:23333); or the"
    " settings turn remote hosts off";

// What HBADisc_AddOOBHostA answers.
Outcome AddHost(const std::string& host) {
  // The library takes these two, but does not find them again in its file.
  const std::string port = HostAndPort(host).port;
  if (port == "1024" || port == "65535") return {kFailed, "refused", kRefused};
  switch (HBADisc_AddOOBHostA(host.c_str())) {
    case 0:
      return {kOk, "added", "is added"};
    case -3:
      return {kOk, "known", "is listed already"};
    case -2:
      return {kFailed, "not_written", "is not added: the hosts file cannot be written"};
    case -4:
      return {kFailed, "this_host", "is this host, whose ports are shown anyway"};
    case 2:
      return {kFailed, "no_answer",
              "is not added: it does not answer, has no adapter port, or reports no name"};
    default:
      return {kFailed, "refused", kRefused};
  }
}

Outcome RemoveHost(const std::string& host) {
  if (HBADisc_RemoveOOBHostA(host.c_str()) == 1) return {kOk, "removed", "is removed"};
  const std::vector<RemoteHost> hosts = ReadHosts();
  const bool isListed = std::any_of(hosts.begin(), hosts.end(), [&](const RemoteHost& listed) {
    return HostAndPort(listed.host).host == HostAndPort(host).host;
  });
  if (isListed) return {kFailed, "not_written", "is not removed: the hosts file cannot be written"};
  return {kNotFound, "not_listed", "is not listed"};
}

int ChangeHosts(const Options& options, Output& output, Messages& messages) {
  const Notices notices;
  // Only a running discovery takes hosts, and asks them who they are.
  Discovery discovery(0, Scope::RemoteHosts, notices);
  ExitCode code = kOk;
  std::vector<Json> results;
  results.reserve(options.hosts.size());
  for (const std::string& host : options.hosts) {
    const Outcome outcome = options.command == Command::AddHosts ? AddHost(host) : RemoveHost(host);
    if (outcome.code != kOk) code = outcome.code;
    messages.Say(host + ' ' + outcome.text);
    results.push_back({{"host", host}, {"result", outcome.word}});
  }
  if (options.format != Format::Table) WriteHosts(options, results, output);
  discovery.Stop(code);
  return code;
}

}  // namespace

bool IsHostCommand(Command command) {
  return command == Command::ListHosts || command == Command::AddHosts || command == Command::RemoveHosts;
}

int RunHosts(const Options& options, Output& output, Messages& messages) {
  return options.command == Command::ListHosts ? ListHosts(options, output, messages)
                                               : ChangeHosts(options, output, messages);
}

}  // namespace hbadisc

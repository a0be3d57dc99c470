// The agent as a server: what it refuses, how many it lets in, and which host answers where.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "agent/Options.h"
#include "agent/RequestHeaders.h"
#include "tests/agent/Agents.h"

namespace agenttest {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string kNodes = std::string("/v1/ports/") + kPort + "/nodes";

TEST(Server, AnswersThatPeopleCanRead) {
  const Agent agent(Hosts{RemoteHost("127.0.1.1", {{"boards", {FcBoard()}}})});
  Client client("127.0.1.1", agent.Port());
  const std::string answer = client.Get("/v1/ports");
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 "));
  EXPECT_THAT(answer, HasSubstr("Content-Type: application/json\r\n"));
  EXPECT_EQ(json::parse(answer.substr(answer.find("\r\n\r\n"))), (json{{"format_version", 1},
                                                                       {"path", "/v1/ports"},
                                                                       {"status", 0},
                                                                       {"status_text", "ok"},
                                                                       {"records", {kPort}}}));
  EXPECT_THAT(client.Get("/"), HasSubstr("/v1/ports/{wwn}/nodes"));  // on the same connection
  EXPECT_THAT(client.Get("/v1/nothing"), StartsWith("HTTP/1.1 404 "));
  EXPECT_THAT(client.Get(kNodes), HasSubstr("\"records\": ["));
}

// With one answer, whatever comes behind it; then the connection is closed.
TEST(Server, RefusesWhatIsNoQuestion) {
  const Agent agent(Hosts{RemoteHost("127.0.1.1")});
  const std::string next = Client::Request("/v1/ports");
  const std::string length = "Content-Length: " + std::to_string(next.size()) + "\r\n";
  const auto get = [](const std::string& headers) {
    return "GET /v1/ports HTTP/1.1\r\nHost: 127.0.1.1\r\n" + headers + "\r\n";
  };
  const std::pair<std::string, std::string> rows[] = {
      {"POST /v1/ports HTTP/1.1\r\n" + length + "\r\n", "405"},
      {"DELETE /v1/ports HTTP/1.1\r\n\r\n", "405"},
      {get(length), "413"},
      {get("Content-Length: 99999999\r\n"), "413"},
      {get("Transfer-Encoding: chunked\r\n") + "0\r\n\r\n", "413"},
      {get("Transfer-Encoding: identity\r\n"), "413"},
      {get("Content-Length: 0\r\n" + length), "400"},
      {get(length + "Content-Length: 0\r\n"), "400"},
      {get("Content-Length: 0\r\nContent-Length: 0\r\n"), "400"},
      {get("Content-Length: 5x\r\n"), "400"},
      {get("Content-Length: -1\r\n"), "400"},
      {get("Content-Length : 5\r\n"), "400"},
      {get("Transfer-Encoding : chunked\r\n"), "400"},
      {get("Content-Length:\r\n 5\r\n"), "413"},
      {get("X: y\r\n Content-Length: 5\r\n"), "400"},
      {get("X: y\rContent-Length: 5\r\n"), "400"},
      {get("Host: 127.0.1.1\r\n"), "400"},
      {"GET / HTTP/1.1\r\nHost: ports.example\r\n\r\n", "421"},
      {"GET /" + std::string(300, 'x') + " HTTP/1.1\r\n\r\n", "414"},
      {get("X: " + std::string(20'000, 'x') + "\r\n"), "431"},
  };
  for (const auto& [request, code] : rows) {
    SCOPED_TRACE(request.substr(0, 80));
    const Client client("127.0.1.1", agent.Port());
    client.Send(request + next);
    const std::string answer = client.ReadToEnd().value_or("not closed");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 " + code + ' '));
    EXPECT_THAT(answer, testing::Not(HasSubstr("HTTP/1.1 200")));
  }
  const Client noHttp("127.0.1.1", agent.Port());
  noHttp.Send("\x16\x03\x01\r\n\r\n" + next);
  EXPECT_THAT(noHttp.ReadToEnd().value_or("not closed"),
              testing::Not(testing::AnyOf("not closed", HasSubstr(" 200 "))));
  EXPECT_EQ(agent.Remote("127.0.1.1")->PortNames().status, RM_STATUS_OK);
  Client client("127.0.1.1", agent.Port());
  EXPECT_THAT(client.Get("/%76%31/ports"), StartsWith("HTTP/1.1 404 "));
  EXPECT_THAT(client.Ask("GET /v1/ports HTTP/1.0\r\nContent-Length: 0\r\n\r\n"), HasSubstr(" 200 OK\r\n"));
}

TEST(Server, HostsThatAreAddresses) {
  for (const char* host :
       {"127.0.0.1", "10.0.0.5:23333", "[::1]", "[FE80::1]:1", "localhost", "LocalHost:80"}) {
    EXPECT_TRUE(agent::IsByAddress(host)) << host;
  }
  for (const char* host : {"", "ports.example", "localhost.example", "127.0.0.1.example", "127.0.0.1:",
                           "127.0.0.1:x", "127.0.0.1:123456", "127.0.0.256", "127.0.0.1, h", "::1", "[::1",
                           "[::1]x", "[127.0.0.1]", "[localhost]", "[]", ":80", "user@127.0.0.1"}) {
    EXPECT_FALSE(agent::IsByAddress(host)) << host;
  }
}

TEST(Server, EachHostAtItsAddressOnly) {
  if (!HasIpv6()) GTEST_SKIP() << "no IPv6 here";
  const Agent agent(Hosts{RemoteHost(json{"127.0.1.1", "::1"}, {{"name", "first"}}),
                          RemoteHost("127.0.1.2", {{"name", "second"}}),
                          RemoteHost("127.0.1.3", {{"unreachable", true}}), RemoteHost("10.255.255.1")});
  const auto nameAt = [&agent](const std::string& address) {
    const provider::Answer<provider::Board> board = agent.Remote(address)->ReadBoard(0);
    return board.status == RM_STATUS_OK ? board.value.info.hostName : std::to_string(board.status);
  };
  EXPECT_EQ(nameAt("127.0.1.1"), "first");
  EXPECT_EQ(nameAt("::1"), "first");
  EXPECT_EQ(nameAt("127.0.1.2"), "second");
  EXPECT_EQ(nameAt("127.0.1.3"), "302");
  EXPECT_EQ(nameAt("127.0.0.1"), "302");
  EXPECT_EQ(agent.Addresses(), "listening on 127.0.1.1:" + std::to_string(agent.Port()) +
                                   "\nlistening on 127.0.1.2:" + std::to_string(agent.Port()) +
                                   "\nlistening on [::1]:" + std::to_string(agent.Port()));
}

TEST(Server, TheLocalHostWhereItIsToldTo) {
  agent::ServerOptions options;
  options.listen = {At("127.0.0.1"), At("127.0.1.1")};
  const Agent agent(Hosts{RemoteHost("127.0.1.1"), RemoteHost("127.0.1.2")}, options);
  EXPECT_EQ(agent.Remote("127.0.0.1")->PortNames().records.size(), 0u);  // the local host has no ports
  EXPECT_EQ(agent.Remote("127.0.0.1")->PortNames().status, RM_STATUS_OK);
  EXPECT_EQ(agent.Remote("127.0.1.1")->PortNames().records.size(), 1u);
  EXPECT_EQ(agent.Remote("127.0.1.2")->PortNames().status, RM_STATUS_HOST_UNUSABLE);
}

TEST(Server, FollowsTheFile) {
  Agent agent(Hosts{RemoteHost("127.0.1.1")});
  EXPECT_EQ(agent.Remote("127.0.1.1")->PortNames().records.size(), 1u);
  agent.Rewrite({RemoteHost("127.0.1.1", {{"boards", json::array()}}), RemoteHost("127.0.1.9")});
  EXPECT_TRUE(Eventually([&] { return agent.Remote("127.0.1.9")->PortNames().status == RM_STATUS_OK; }));
  EXPECT_EQ(agent.Remote("127.0.1.1")->PortNames().records.size(), 0u);
  agent.Rewrite({RemoteHost("127.0.1.9", {{"unreachable", true}})});
  for (const char* address : {"127.0.1.1", "127.0.1.9"}) {
    EXPECT_TRUE(
        Eventually([&] { return agent.Remote(address)->PortNames().status == RM_STATUS_HOST_UNUSABLE; }));
  }
}

// A call that hangs for ever holds up neither its host's other calls nor the end of the agent.
TEST(Server, AHangHoldsUpNobody) {
  const json hang = {{{"call", "RM_GetAllNodeInfo"}, {"hang", true}}};
  std::vector<std::unique_ptr<Client>> hanging;
  {
    const Agent agent(Hosts{RemoteHost("127.0.1.1", {{"faults", hang}}), RemoteHost("127.0.1.2")});
    for (int i = 0; i < 20; ++i) {
      hanging.push_back(std::make_unique<Client>("127.0.1.1", agent.Port()));
      hanging.back()->Send(Client::Request(kNodes));
    }
    for (const char* address : {"127.0.1.1", "127.0.1.2"}) {
      EXPECT_EQ(agent.Remote(address)->PortNames().status, RM_STATUS_OK);
    }
  }
}

// Too many connections: come back later.
TEST(Server, ConnectionsAreBounded) {
  agent::ServerOptions options;
  options.mostConnectionsOfPeer = 2;
  options.mostConnections = 3;
  const Agent agent(Hosts{RemoteHost("127.0.1.1"), RemoteHost("127.0.1.2")}, options);
  auto first = std::make_unique<Client>("127.0.1.1", agent.Port());
  Client second("127.0.1.1", agent.Port());
  EXPECT_THAT(first->Get("/"), HasSubstr(" 200 "));
  EXPECT_THAT(second.Get("/"), HasSubstr(" 200 "));
  EXPECT_EQ(agent.Remote("127.0.1.1")->PortNames().status, RM_STATUS_BUSY);
  Client elsewhere("127.0.1.2", agent.Port());
  EXPECT_THAT(elsewhere.Get("/"), HasSubstr(" 200 "));
  EXPECT_THAT(Client("127.0.1.2", agent.Port()).Get("/"), StartsWith("HTTP/1.1 503 "));  // of all, too many
  first.reset();
  EXPECT_TRUE(Eventually([&] { return agent.Remote("127.0.1.1")->PortNames().status == RM_STATUS_OK; }));
}

// Whoever has an IPv6 address has a whole network of them.
TEST(Server, PeersAreCountedByNetwork) {
  agent::ConnectionTable table(99, 2);
  auto add = [&table, socket = 0](const char* peer, const char* local) mutable {
    return table.Add(++socket, At(peer), At(local), agent::ConnectionTable::kNoDeadline);
  };
  EXPECT_TRUE(add("2001:db8::1", "::1") && add("2001:db8::ffff:0:0:2", "::1"));
  EXPECT_FALSE(add("2001:db8::3", "::1"));
  EXPECT_TRUE(add("2001:db8:0:1::1", "::1") && add("2001:db8::1", "::2"));
  EXPECT_TRUE(add("10.0.0.1", "10.0.0.9") && add("10.0.0.1", "10.0.0.9") && add("10.0.0.2", "10.0.0.9"));
  EXPECT_FALSE(add("10.0.0.1", "10.0.0.9"));
}

// A connection lasts neither with half a request, whether silent or a byte at a time, nor between two.
TEST(Server, ARequestHasToComeInTime) {
  agent::ServerOptions options;
  options.requestLimit = std::chrono::seconds(1);
  const Agent agent(Hosts{RemoteHost("127.0.1.1", {{"delay_ms", 2500}})}, options);
  const Client half("127.0.1.1", agent.Port());
  half.Send("GET / HT");
  Client dribbling("127.0.1.1", agent.Port());
  dribbling.Send("GET /");
  EXPECT_TRUE(dribbling.IsCutOffDribbling());
  EXPECT_EQ(half.ReadToEnd(), "");
  Client second("127.0.1.1", agent.Port());
  EXPECT_THAT(second.Get("/"), HasSubstr(" 200 "));
  second.Send("GET / HTTP/1.1\r\nX: ");
  EXPECT_TRUE(second.IsCutOffDribbling());
  // The host itself may take longer.
  Client waiting("127.0.1.1", agent.Port());
  EXPECT_THAT(waiting.Get("/v1/ports"), HasSubstr(kPort));
  EXPECT_EQ(waiting.ReadToEnd(), "");
}

TEST(Server, AnAnswerHasToBeTakenInTime) {
  agent::ServerOptions options;
  options.answerLimit = std::chrono::seconds(1);
  options.mostConnections = 1;
  json board = FcBoard();
  board["targets"] = {{{"wwpn", "2000000000000001"}, {"count", 30'000}}};
  const Agent agent(Hosts{RemoteHost("127.0.1.1", {{"boards", {board}}})}, options);
  const Client lazy("127.0.1.1", agent.Port());
  lazy.Send(Client::Request(kNodes));
  EXPECT_TRUE(Eventually(
      [&] { return Client("127.0.1.1", agent.Port()).Get("/").find(" 200 ") != std::string::npos; }));
}

TEST(Server, SaysThatOthersCanConnect) {
  AgentProcess open("0.0.0.0");
  EXPECT_THAT(open.NextLine(), HasSubstr("warning: "));
  AgentProcess closed(Hosts{RemoteHost("127.0.1.1")});
  closed.End(SIGTERM);
  EXPECT_EQ(closed.NextLine(), "");
}

TEST(Options, CommandLines) {
  const auto parse = [](std::vector<const char*> words) {
    words.insert(words.begin(), "hbadisc-agent");
    return agent::ParseOptions(static_cast<int>(words.size()), words.data());
  };
  const auto plain = std::get<agent::Options>(parse({}));
  EXPECT_TRUE(plain.server.listen.empty() && plain.fabricFile.empty());
  EXPECT_EQ(plain.sysfsRoot, "/sys");
  EXPECT_EQ(plain.server.port, 23333);
  const auto full = std::get<agent::Options>(
      parse({"--fabric", "f", "--listen", "10.0.0.1", "--listen", "::", "--port", "0", "--user", "u"}));
  EXPECT_EQ(full.server.listen, (std::vector{At("10.0.0.1"), At("::")}));
  EXPECT_EQ(std::get<agent::Saying>(parse({"--version"})).text,
            "hbadisc-agent (Draxonite Discovery) 14.0.326.24\n");
  for (const auto& words : std::vector<std::vector<const char*>>{{"--listen", "server7"},
                                                                 {"--port", "65536"},
                                                                 {"--max-connections", "0"},
                                                                 {"--fabric", "f", "--sysfsroot", "/sys"},
                                                                 {"more"}}) {
    EXPECT_EQ(std::get<agent::Saying>(parse(words)).exitCode, 2) << words[0];
  }
}

}  // namespace
}  // namespace agenttest

// The agent as a server: what it refuses, how many it lets in, and which host answers where.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/Options.h"
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

TEST(Server, RefusesWhatIsNoQuestion) {
  const Agent agent(Hosts{RemoteHost("127.0.1.1")});
  const std::pair<std::string, std::string> rows[] = {
      {"POST /v1/ports HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\n\r\nx", "HTTP/1.1 405 "},
      {"DELETE /v1/ports HTTP/1.1\r\nHost: h\r\n\r\n", "HTTP/1.1 405 "},
      {"GET /v1/ports HTTP/1.1\r\nHost: h\r\nContent-Length: 99999999\r\n\r\n", "HTTP/1.1 413 "},
      {"GET /v1/ports HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "HTTP/1.1 413 "},
      {"GET /" + std::string(300, 'x') + " HTTP/1.1\r\nHost: h\r\n\r\n", "HTTP/1.1 414 "},
      {"GET / HTTP/1.1\r\nHost: h\r\nX: " + std::string(20'000, 'x') + "\r\n\r\n", "HTTP/1.1 431 "},
  };
  for (const auto& [request, answer] : rows) {
    Client client("127.0.1.1", agent.Port());
    EXPECT_THAT(client.Ask(request), StartsWith(answer)) << request.substr(0, 80);
  }
  Client noHttp("127.0.1.1", agent.Port());
  EXPECT_THAT(noHttp.Ask("\x16\x03\x01\r\n\r\n"), testing::Not(HasSubstr(" 200 ")));
  EXPECT_EQ(agent.Remote("127.0.1.1")->PortNames().status, RM_STATUS_OK);
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
      hanging.back()->Send("GET " + kNodes + " HTTP/1.1\r\nHost: h\r\n\r\n");
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

TEST(Server, SilentConnectionsAreClosed) {
  agent::ServerOptions options;
  options.idleSeconds = 1;
  const Agent agent(Hosts{RemoteHost("127.0.1.1")}, options);
  Client half("127.0.1.1", agent.Port());
  half.Send("GET / HT");
  EXPECT_TRUE(half.IsClosed());
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

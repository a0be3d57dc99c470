// What answers at a host's address may be anything. It costs at most the limit of a call, and some megabytes.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <ctime>
#include <random>

#include "provider/remote/RemoteHost.h"
#include "provider/remote/WireCodec.h"
#include "tests/agent/Agents.h"
#include "tests/support/Testing.h"

namespace agenttest {
namespace {

using provider::DecodeAnswer;
using provider::ListAnswer;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// For the answers that are to be cut short by it; no other is, however slow the machine.
constexpr milliseconds kLimit{300};
constexpr milliseconds kAmple{60'000};

std::string Http(const std::string& body, const std::string& status = "200 OK", const std::string& more = "") {
  return "HTTP/1.1 " + status + "\r\n" + more + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

// A document about a port's name.
std::string Names(const std::string& records, const std::string& more = R"("status": 0)") {
  return R"({"format_version": 1, )" + more + R"(, "records": [)" + records + "]}";
}

class BadAnswers : public testing::Test {
 protected:
  BadAnswers() { provider::SetRemoteCallLimit(kAmple); }
  ~BadAnswers() override { provider::SetRemoteCallLimit(milliseconds(0)); }

  static int Ask(std::uint16_t port) {
    return provider::MakeRemoteHost(At("127.0.0.1"), port)->PortNames().status;
  }
  // The status for a server that answers so.
  static int StatusOf(const RawServer::Serve& serve) {
    const RawServer server(serve);
    return Ask(server.Port());
  }
  static int StatusOf(const std::string& bytes) {
    return StatusOf([&bytes](int socket, int stop) {
      ReadRequest(socket, stop);
      SendAll(socket, bytes, stop);
      shutdown(socket, SHUT_WR);
    });
  }
};

TEST_F(BadAnswers, GoodOnesAreTaken) {
  EXPECT_EQ(StatusOf(Http(Names(R"("0x1000000000000001")"))), RM_STATUS_OK);
  EXPECT_EQ(StatusOf(Http(R"({"format_version": 1, "status": 253, "a": [{}], "b": null})")),
            RM_STATUS_TRY_AGAIN);
  EXPECT_EQ(StatusOf(Http(R"({"records": ["0x1000000000000001"], "status": 0, "format_version": 1})")),
            RM_STATUS_OK);
  EXPECT_EQ(StatusOf(Http("", "503 Service Unavailable")), RM_STATUS_BUSY);
}

TEST_F(BadAnswers, GarbageMakesAHostUnusable) {
  std::string binary;
  for (int i = 0; i < 4096; ++i) binary += static_cast<char>(i * 7);
  std::string keys = R"({"": 0)";  // would take minutes to tell apart
  for (int i = 0; i < 500'000; ++i) keys += ",\"" + std::to_string(i) + "\":0";
  keys += '}';
  const std::string rows[] = {
      "",
      binary,
      Names(""),
      "HTTP/1.1 200 OK\r\n",
      "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFFF\r\n",
      "HTTP/1.1 200 OK\r\nX: " + std::string(10'000'000, 'x') + "\r\n\r\n",
      Http(Names(""), "404 Not Found"),
      Http(Names(""), "500 Internal Server Error"),
      Http(Names(""), "301 Moved", "Location: http://127.0.0.1:1/\r\n"),
      Http(""),
      Http(binary),
      Http("[]"),
      Http("{}"),
      Http(keys),
      Http(std::string(10'000'000, '1')),
      Http(std::string(1'000'000, '[')),
      Http(Names(R"("0x1000000000000001", "0x1000000000000001")")),
  };
  for (const std::string& bytes : rows) {
    EXPECT_EQ(StatusOf(bytes), RM_STATUS_HOST_UNUSABLE) << bytes.substr(0, 60);
  }
}

TEST_F(BadAnswers, AnEndlessAnswerIsCutOff) {
  EXPECT_EQ(StatusOf([](int socket, int stop) {
              ReadRequest(socket, stop);
              bool goesOn = SendAll(socket, "HTTP/1.1 200 OK\r\n\r\n", stop);
              while (goesOn) goesOn = SendAll(socket, std::string(65'536, ' '), stop);
            }),
            RM_STATUS_HOST_UNUSABLE);
}

// Nobody answers, or ever so slowly: busy when the limit is over.
TEST_F(BadAnswers, TheLimitHolds) {
  const RawServer::Serve silent = [](int socket, int stop) {
    ReadRequest(socket, stop);
    ReadRequest(socket, stop);  // returns when the client has gone
  };
  const RawServer::Serve dripping = [](int socket, int stop) {
    ReadRequest(socket, stop);
    bool goesOn = SendAll(socket, "HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", stop);
    // One byte, then nothing for a while, unless the client goes.
    for (pollfd client{socket, POLLIN, 0}; goesOn && poll(&client, 1, 5) == 0;)
      goesOn = SendAll(socket, " ", stop);
  };
  provider::SetRemoteCallLimit(kLimit);
  for (const auto& serve : {silent, dripping}) {
    const auto start = steady_clock::now();
    EXPECT_EQ(StatusOf(serve), RM_STATUS_BUSY);
    EXPECT_GE(steady_clock::now() - start, kLimit - kLimit / 10);
    EXPECT_LT(steady_clock::now() - start, kLimit * 30);
  }
}

TEST_F(BadAnswers, NobodyThere) {
  std::uint16_t port = 0;
  {
    const RawServer server([](int, int) {});
    port = server.Port();
    EXPECT_EQ(Ask(port), RM_STATUS_HOST_UNUSABLE);  // accepted and closed
  }
  EXPECT_EQ(Ask(port), RM_STATUS_HOST_UNUSABLE);
}

template <class Result>
bool IsRefused(const std::string& text) {
  try {
    DecodeAnswer<Result>(text);
    return false;
  } catch (const provider::WireError&) {
    return true;
  }
}

// Cut off or garbled anywhere, a document is refused or read, and nothing else happens.
TEST(WireCodec, GarbledAnyhow) {
  ListAnswer<RM_NodeInfoEntry> answer;
  answer.records.resize(2);
  answer.records[0].fcpLun = 1;
  const std::string whole = EncodeAnswer("/", answer);
  EXPECT_FALSE(IsRefused<ListAnswer<RM_NodeInfoEntry>>(whole));
  for (std::size_t size = 0; size + 2 < whole.size(); ++size) {
    EXPECT_TRUE(IsRefused<ListAnswer<RM_NodeInfoEntry>>(whole.substr(0, size)));
  }
  std::mt19937 random(1);
  int refused = 0;
  for (int i = 0; i < 2000; ++i) {
    std::string text = whole;
    for (int changes = 0; changes < 3; ++changes) {
      text[random() % text.size()] = "0\"{}[],:-\\\xFF"[random() % 11];
    }
    refused += IsRefused<ListAnswer<RM_NodeInfoEntry>>(text) ? 1 : 0;
  }
  EXPECT_GT(refused, 1000);
}

// Time follows the length of an answer, whatever it holds; a wrong one takes no longer to be refused.
TEST(WireCodec, NoAnswerTakesLong) {
  const auto filled = [](const std::string& before, std::string unit, const std::string& after) {
    while (unit.size() < 1024) unit += unit;
    std::string text = R"({"format_version":1,"status":0,)" + before;
    while (text.size() + unit.size() + after.size() < provider::kMostWireBytes / 8) text += unit;
    return text + after;
  };
  using NameList = ListAnswer<HBA_NAME>;
  const std::clock_t begin = std::clock();
  for (const char* unit : {"{},", "[],", "0,", "\"\",", "[[],[]],", R"({"a":0,"b":1},)"}) {
    EXPECT_TRUE(IsRefused<NameList>(filled(R"("records":[)", unit, "0]}"))) << unit;
    EXPECT_FALSE(IsRefused<NameList>(filled(R"("more":[)", unit, R"(0],"records":[]})"))) << unit;
  }
  EXPECT_TRUE(IsRefused<NameList>(filled(R"("records":[)", "1", "e-8000000]}")));
  EXPECT_TRUE(IsRefused<NameList>(filled(R"("records":)", "[", "")));
  EXPECT_LT(std::clock() - begin, 20 * CLOCKS_PER_SEC);
}

}  // namespace
}  // namespace agenttest

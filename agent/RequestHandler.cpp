#include "agent/RequestHandler.h"

#include <sys/socket.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "agent/QueryAnswer.h"
#include "agent/RequestHeaders.h"

namespace agent {

using provider::NetAddress;

namespace {

constexpr std::size_t kLongestUrl = 256;

struct Reply {
  unsigned int httpCode;
  std::string body;
};

ConnectionTable::Clock::time_point After(std::chrono::seconds limit) {
  return ConnectionTable::Clock::now() + limit;
}

int SocketOf(MHD_Connection* connection) {
  const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  return info == nullptr ? -1 : info->connect_fd;
}

// The address that the client has connected to.
std::optional<NetAddress> LocalAddress(int connected) {
  sockaddr_storage storage{};
  socklen_t length = sizeof(storage);
  if (getsockname(connected, reinterpret_cast<sockaddr*>(&storage), &length) != 0) return std::nullopt;
  return NetAddress::Of(storage);
}

// Why the request is none that can be answered.
std::optional<Reply> Refusal(MHD_Connection* connection, std::string_view url, std::string_view method) {
  const RequestHeaders headers = ReadHeaders(connection);
  if (!headers.areSound) return Reply{MHD_HTTP_BAD_REQUEST, ErrorDocument("a header is wrong, or there twice")};
  if (!headers.areByAddress) {
    return Reply{MHD_HTTP_MISDIRECTED_REQUEST,
                 ErrorDocument("only a numeric address or localhost is answered for, no other name")};
  }
  if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
    return Reply{MHD_HTTP_METHOD_NOT_ALLOWED, ErrorDocument("only GET and HEAD are answered")};
  }
  if (headers.haveBody) return Reply{MHD_HTTP_CONTENT_TOO_LARGE, ErrorDocument("a request has no body")};
  if (url.size() > kLongestUrl) return Reply{MHD_HTTP_URI_TOO_LONG, ErrorDocument("the path is too long")};
  return std::nullopt;
}

Reply AnswerPath(provider::Host& host, std::string_view url) {
  if (url == "/") return {MHD_HTTP_OK, IndexDocument()};
  const std::optional<provider::WireQuery> query = provider::ParsePath(url);
  if (!query.has_value()) return {MHD_HTTP_NOT_FOUND, ErrorDocument("no such path, / lists those there are")};
  return {MHD_HTTP_OK, AnswerQuery(host, *query)};
}

MHD_Result Send(MHD_Connection* connection, Reply& reply, bool isLast) {
  const std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)> response(
      MHD_create_response_from_buffer(reply.body.size(), reply.body.data(), MHD_RESPMEM_MUST_COPY),
      &MHD_destroy_response);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE, "application/json");
  MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  if (reply.httpCode == MHD_HTTP_METHOD_NOT_ALLOWED) {
    MHD_add_response_header(response.get(), MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  }
  if (isLast) MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONNECTION, "close");
  return MHD_queue_response(connection, reply.httpCode, response.get());
}

}  // namespace

MHD_Result HandleRequest(void* context, MHD_Connection* connection, const char* url, const char* method,
                         const char* /*version*/, const char* /*upload*/, std::size_t* /*uploadSize*/,
                         void** ofRequest) {
  static constexpr char kSeen = 0;
  try {
    // Called first with the headers, when an answer would also close the connection, and then with the whole
    // request.
    const bool isFirst = *ofRequest == nullptr;
    *ofRequest = const_cast<char*>(&kSeen);

    const auto& common = *static_cast<const RequestContext*>(context);
    const int connected = SocketOf(connection);
    const std::optional<NetAddress> address = LocalAddress(connected);
    const std::shared_ptr<provider::Host> host = address.has_value() ? common.hosts.At(*address) : nullptr;
    if (host == nullptr) return MHD_NO;  // closes the connection
    std::optional<Reply> reply = Refusal(connection, url, method);
    if (!reply.has_value() && isFirst) return MHD_YES;
    const bool isRefused = reply.has_value();
    if (!isRefused) {
      common.connections.SetDeadline(connected, ConnectionTable::kNoDeadline);
      reply = AnswerPath(*host, url);
    }
    common.connections.SetDeadline(connected, After(common.answerLimit));
    return Send(connection, *reply, isRefused);
  } catch (...) {
    return MHD_NO;
  }
}

void EndRequest(void* context, MHD_Connection* connection, void** /*ofRequest*/,
                MHD_RequestTerminationCode /*code*/) {
  const auto& common = *static_cast<const RequestContext*>(context);
  common.connections.SetDeadline(SocketOf(connection), After(common.requestLimit));
}

}  // namespace agent

#include "agent/RequestHandler.h"

#include <sys/socket.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "agent/QueryAnswer.h"
#include "agent/ServedHosts.h"

namespace agent {

using provider::NetAddress;

namespace {

constexpr std::size_t kLongestUrl = 256;

struct Reply {
  unsigned int httpCode;
  std::string body;
};

// The address that the client has connected to.
std::optional<NetAddress> LocalAddress(MHD_Connection* connection) {
  const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  if (info == nullptr) return std::nullopt;
  sockaddr_storage storage{};
  socklen_t length = sizeof(storage);
  if (getsockname(info->connect_fd, reinterpret_cast<sockaddr*>(&storage), &length) != 0) return std::nullopt;
  return NetAddress::Of(storage);
}

bool HasBody(MHD_Connection* connection) {
  const char* length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
  if (length != nullptr && std::string_view(length) != "0") return true;
  return MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_TRANSFER_ENCODING) != nullptr;
}

// Why the request is none that can be answered.
std::optional<Reply> Refusal(MHD_Connection* connection, std::string_view url, std::string_view method) {
  if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
    return Reply{MHD_HTTP_METHOD_NOT_ALLOWED, ErrorDocument("only GET and HEAD are answered")};
  }
  if (HasBody(connection)) {
    return Reply{MHD_HTTP_CONTENT_TOO_LARGE, ErrorDocument("a request has no body")};
  }
  if (url.size() > kLongestUrl) return Reply{MHD_HTTP_URI_TOO_LONG, ErrorDocument("the path is too long")};
  return std::nullopt;
}

Reply AnswerPath(provider::Host& host, std::string_view url) {
  if (url == "/") return {MHD_HTTP_OK, IndexDocument()};
  const std::optional<provider::WireQuery> query = provider::ParsePath(url);
  if (!query.has_value()) return {MHD_HTTP_NOT_FOUND, ErrorDocument("no such path, / lists those there are")};
  return {MHD_HTTP_OK, AnswerQuery(host, *query)};
}

MHD_Result Send(MHD_Connection* connection, Reply& reply) {
  const std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)> response(
      MHD_create_response_from_buffer(reply.body.size(), reply.body.data(), MHD_RESPMEM_MUST_COPY),
      &MHD_destroy_response);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE, "application/json");
  MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  if (reply.httpCode == MHD_HTTP_METHOD_NOT_ALLOWED) {
    MHD_add_response_header(response.get(), MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  }
  return MHD_queue_response(connection, reply.httpCode, response.get());
}

}  // namespace

MHD_Result HandleRequest(void* hosts, MHD_Connection* connection, const char* url, const char* method,
                         const char* /*version*/, const char* /*upload*/, std::size_t* /*uploadSize*/,
                         void** ofRequest) {
  static constexpr char kSeen = 0;
  try {
    // Called first with the headers, when an answer would also close the connection, and then with the whole
    // request.
    const bool isFirst = *ofRequest == nullptr;
    *ofRequest = const_cast<char*>(&kSeen);

    const std::optional<NetAddress> address = LocalAddress(connection);
    const auto* served = static_cast<const ServedHosts*>(hosts);
    const std::shared_ptr<provider::Host> host = address.has_value() ? served->At(*address) : nullptr;
    if (host == nullptr) return MHD_NO;  // closes the connection
    std::optional<Reply> reply = Refusal(connection, url, method);
    if (!reply.has_value() && isFirst) return MHD_YES;
    if (!reply.has_value()) reply = AnswerPath(*host, url);
    return Send(connection, *reply);
  } catch (...) {
    return MHD_NO;
  }
}

}  // namespace agent

#include "provider/remote/HttpClient.h"

#include <curl/curl.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <string_view>

#include "rmapi/rmapi.h"

namespace provider {

namespace {

constexpr std::size_t kMostIdle = 32;
constexpr std::size_t kMostHeaderBytes = 16'384;
constexpr std::size_t kRefused = 0;
constexpr long kHttpOk = 200;
constexpr long kHttpUnavailable = 503;

// What a request receives.
struct Sink {
  std::string body;
  std::size_t mostBytes = 0;
  std::size_t headerBytes = 0;
};

// curl's callbacks: another number than that of the bytes given ends the request.
std::size_t TakeBody(const char* bytes, std::size_t /*one*/, std::size_t count, void* sink) noexcept {
  try {
    auto& into = *static_cast<Sink*>(sink);
    if (count > into.mostBytes - into.body.size()) return kRefused;
    into.body.append(bytes, count);
    return count;
  } catch (...) {
    return kRefused;
  }
}

// curl unpacks what comes packed on the way, asked for or not and packed up to five times over: a few bytes
// would be gigabytes to look through, without a look at the clock. Agents send bytes as they are, at most in
// chunks.
bool IsPacked(std::string_view header) {
  constexpr std::string_view kName = "transfer-encoding:";
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto equals = [](std::string_view text, std::string_view other) {
    return text.size() == other.size() && strncasecmp(text.data(), other.data(), text.size()) == 0;
  };
  if (!equals(header.substr(0, kName.size()), kName)) return false;
  header.remove_prefix(std::min(header.find_first_not_of(kBlanks, kName.size()), header.size()));
  return !equals(header.substr(0, header.find_last_not_of(kBlanks) + 1), "chunked");
}

std::size_t TakeHeader(const char* bytes, std::size_t /*one*/, std::size_t count, void* sink) noexcept {
  auto& into = *static_cast<Sink*>(sink);
  into.headerBytes += count;
  return into.headerBytes > kMostHeaderBytes || IsPacked({bytes, count}) ? kRefused : count;
}

// The programs that the application starts have no use for our connections.
curl_socket_t OpenSocket(void* /*unused*/, curlsocktype /*purpose*/, curl_sockaddr* address) noexcept {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

long Milliseconds(std::chrono::milliseconds limit) {
  return std::clamp<long>(limit.count(), 1, INT_MAX);
}

int StatusOf(CURLcode result, bool wasConnected, long httpCode) {
  if (result == CURLE_OPERATION_TIMEDOUT && wasConnected) return RM_STATUS_BUSY;
  if (result != CURLE_OK) return RM_STATUS_HOST_UNUSABLE;
  if (httpCode == kHttpUnavailable) return RM_STATUS_BUSY;
  return httpCode == kHttpOk ? RM_STATUS_OK : RM_STATUS_HOST_UNUSABLE;
}

}  // namespace

// One connection, or none yet.
class HttpClient::Handle {
 public:
  Handle() : m_Curl(curl_easy_init()) {
    if (m_Curl != nullptr && !Configure()) {
      curl_easy_cleanup(m_Curl);
      m_Curl = nullptr;
    }
  }
  ~Handle() { curl_easy_cleanup(m_Curl); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  HttpReply Ask(const std::string& url, const HttpLimits& limits) {
    Sink sink;
    sink.mostBytes = limits.bytes;
    const bool isReady = m_Curl != nullptr && Set(CURLOPT_URL, url.c_str()) && Set(CURLOPT_WRITEDATA, &sink) &&
                         Set(CURLOPT_HEADERDATA, &sink) &&
                         Set(CURLOPT_TIMEOUT_MS, Milliseconds(limits.inAll)) &&
                         Set(CURLOPT_CONNECTTIMEOUT_MS, Milliseconds(limits.connecting)) &&
                         Set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limits.bytes));
    if (!isReady) return {RM_STATUS_FAILED, {}};
    const CURLcode result = curl_easy_perform(m_Curl);
    long httpCode = 0;
    curl_easy_getinfo(m_Curl, CURLINFO_RESPONSE_CODE, &httpCode);
    // Zero until there is a connection, new or kept, on which to ask.
    curl_off_t connectedAfter = 0;
    curl_easy_getinfo(m_Curl, CURLINFO_PRETRANSFER_TIME_T, &connectedAfter);
    return {StatusOf(result, connectedAfter > 0, httpCode), std::move(sink.body)};
  }

 private:
  template <class Value>
  bool Set(CURLoption option, Value value) {
    return curl_easy_setopt(m_Curl, option, value) == CURLE_OK;
  }

  // Plain HTTP to the address that was registered and to no other: no proxy of the environment, no redirect.
  // And no signals, which belong to the application.
  bool Configure() {
    constexpr long kOne = 1;
    return Set(CURLOPT_NOSIGNAL, kOne) && Set(CURLOPT_PROXY, "") && Set(CURLOPT_NOPROXY, "*") &&
           Set(CURLOPT_FOLLOWLOCATION, long{0}) && Set(CURLOPT_PROTOCOLS_STR, "http") &&
           Set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1}) && Set(CURLOPT_MAXCONNECTS, kOne) &&
           Set(CURLOPT_USERAGENT, "hbadiscovery") && Set(CURLOPT_WRITEFUNCTION, &TakeBody) &&
           Set(CURLOPT_HEADERFUNCTION, &TakeHeader) && Set(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket);
  }

  CURL* m_Curl;
};

// What the first caller in a process asks for holds for all, the application's own requests included.
HttpClient::HttpClient() : m_Usable(curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK) {}

HttpClient::~HttpClient() = default;

HttpClient& HttpClient::Get() {
  static HttpClient& client = *new HttpClient;
  return client;
}

HttpReply HttpClient::Ask(const std::string& authority, const std::string& path, const HttpLimits& limits) {
  if (!m_Usable) return {RM_STATUS_FAILED, {}};
  std::unique_ptr<Handle> handle = Take(authority);
  HttpReply reply = handle->Ask("http://" + authority + path, limits);
  Return(authority, std::move(handle));
  return reply;
}

// The one whose connection leads there already; else a new one while few are open, else the one unused for
// longest, which then changes its connection.
std::unique_ptr<HttpClient::Handle> HttpClient::Take(const std::string& authority) {
  {
    const MutexLock held(m_Mutex);
    auto found = std::find_if(m_Idle.rbegin(), m_Idle.rend(),
                              [&authority](const Idle& idle) { return idle.authority == authority; });
    auto at = found == m_Idle.rend() ? m_Idle.begin() : std::prev(found.base());
    if (found != m_Idle.rend() || m_Idle.size() >= kMostIdle) {
      std::unique_ptr<Handle> handle = std::move(at->handle);
      m_Idle.erase(at);
      return handle;
    }
  }
  return std::make_unique<Handle>();
}

void HttpClient::Return(const std::string& authority, std::unique_ptr<Handle> handle) {
  std::list<Idle> tooMany;  // closed outside the lock
  const MutexLock held(m_Mutex);
  m_Idle.push_back({authority, std::move(handle)});
  if (m_Idle.size() > kMostIdle) tooMany.splice(tooMany.begin(), m_Idle, m_Idle.begin());
}

}  // namespace provider

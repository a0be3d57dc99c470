// HTTP requests to agents.
//
// A few connections are kept open after use, for the process as a whole, so that the calls about one host share
// one connection, while a thousand hosts never cost an application a thousand descriptors.
//
// Thread safety: locked inside; no lock is held while a request runs. Never destroyed, so that a request may
// outlast main.
#ifndef PROVIDER_REMOTE_HTTPCLIENT_H_
#define PROVIDER_REMOTE_HTTPCLIENT_H_

#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "provider/base/Mutex.h"

namespace provider {

// How far a request may go. Connecting takes milliseconds where somebody is, an answer as long as a host needs.
struct HttpLimits {
  std::chrono::milliseconds connecting;
  std::chrono::milliseconds
      inAll;          // from the first packet to the last byte, so connecting has no longer either
  std::size_t bytes;  // of a body; more are not read to their end
};

struct HttpReply {
  // RM_STATUS_OK with a body. RM_STATUS_BUSY: connected, and no answer in time, or the agent has too much to
  // do. RM_STATUS_HOST_UNUSABLE: nobody who takes a connection in time, or somebody who is no agent.
  int status;
  std::string body;
};

class HttpClient {
 public:
  static HttpClient& Get();

  // Asks "address:port" for `path`.
  HttpReply Ask(const std::string& authority, const std::string& path, const HttpLimits& limits);

 private:
  class Handle;
  struct Idle {
    std::string authority;
    std::unique_ptr<Handle> handle;
  };

  HttpClient();
  ~HttpClient();

  std::unique_ptr<Handle> Take(const std::string& authority) EXCLUDES(m_Mutex);
  void Return(const std::string& authority, std::unique_ptr<Handle> handle) EXCLUDES(m_Mutex);

  const bool m_Usable;
  Mutex m_Mutex;
  std::list<Idle> m_Idle GUARDED_BY(m_Mutex);  // used last at the end
};

}  // namespace provider

#endif  // PROVIDER_REMOTE_HTTPCLIENT_H_

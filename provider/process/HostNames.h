// From the text that a person writes for a remote host to its address.
#ifndef PROVIDER_PROCESS_HOSTNAMES_H_
#define PROVIDER_PROCESS_HOSTNAMES_H_

#include <optional>
#include <string>

#include "provider/host/NetAddress.h"

namespace provider {

// Numeric IPv4 or IPv6 text, or a name that the machine's resolver knows; of a name's addresses the first of
// IPv4 is taken when there is one. Nothing when the text is neither, which is said at once for what can be no
// name
// ("10.0.0.256", "fe80::1%lo"), or when the resolver has not answered within five seconds, or the limit of a
// remote call where that is shorter. A resolver that does not answer keeps no more than four threads, for as
// long as it takes; while it has them, every other name waits its own limit and is as good as unknown.
//
// Thread safety: any thread, also after exit has begun.
std::optional<NetAddress> ResolveHost(const std::string& host);

}  // namespace provider

#endif  // PROVIDER_PROCESS_HOSTNAMES_H_

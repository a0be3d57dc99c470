// From a proxy address to the host that is meant.
#ifndef PROVIDER_BOUNDARY_HOSTLOOKUP_H_
#define PROVIDER_BOUNDARY_HOSTLOOKUP_H_

#include <memory>

#include "provider/host/Host.h"

namespace provider {

struct FoundHost {
  int status = RM_STATUS_OK;
  std::shared_ptr<Host> host;  // null exactly when the status is not RM_STATUS_OK
};

// Null or eight zero bytes: this host, which fails before RM_InitLib and after RM_ExitLib. Any other address is
// that of a remote host: RM_STATUS_HOST_UNUSABLE while it is not registered, and for a CIM host.
FoundHost FindHost(const unsigned char* proxy);

}  // namespace provider

#endif  // PROVIDER_BOUNDARY_HOSTLOOKUP_H_

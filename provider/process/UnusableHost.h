// The host that stands for a source that cannot be used.
//
// Thread safety: has no state.
#ifndef PROVIDER_PROCESS_UNUSABLEHOST_H_
#define PROVIDER_PROCESS_UNUSABLEHOST_H_

#include <memory>

#include "provider/host/Host.h"

namespace provider {

// Answers every question with RM_STATUS_FAILED.
std::unique_ptr<Host> MakeUnusableHost();

}  // namespace provider

#endif  // PROVIDER_PROCESS_UNUSABLEHOST_H_

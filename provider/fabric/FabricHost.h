// The host that a fabric file describes.
//
// Thread safety: any call from any thread. No lock is held while a call sleeps, so that slow calls run in
// parallel.
#ifndef PROVIDER_FABRIC_FABRICHOST_H_
#define PROVIDER_FABRIC_FABRICHOST_H_

#include <memory>
#include <string>

#include "provider/Host.h"

namespace provider {

// Throws std::runtime_error: "file:line: key: what was expected", or the file and why it cannot be read.
std::unique_ptr<Host> MakeFabricHost(const std::string& path);

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICHOST_H_

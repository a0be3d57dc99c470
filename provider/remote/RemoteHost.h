// The host at a network address, asked through the agent that runs there.
//
// Every question is one HTTP request. What the agent answers, scripted statuses included, is what the caller
// gets. Beyond that: RM_STATUS_BUSY (ask again) when a connection was made and no answer came in time, or the
// agent has too much to do; RM_STATUS_HOST_UNUSABLE when no connection could be made, whether it was refused or
// nothing came back, or what came is no answer of an agent: a host that sends garbage is given up as quickly as
// one that is switched off.
//
// Thread safety: any call from any thread. Nothing is remembered from one call to the next but the connection.
#ifndef PROVIDER_REMOTE_REMOTEHOST_H_
#define PROVIDER_REMOTE_REMOTEHOST_H_

#include <chrono>
#include <cstdint>
#include <memory>

#include "provider/host/Host.h"
#include "provider/host/NetAddress.h"

namespace provider {

std::unique_ptr<Host> MakeRemoteHost(const NetAddress& address, std::uint16_t port);

// No call of a remote host takes longer, from connecting to the last byte. For all of them, from the next call
// on; zero stands for the default.
inline constexpr std::chrono::milliseconds kDefaultRemoteCallLimit{10'000};
void SetRemoteCallLimit(std::chrono::milliseconds limit);
std::chrono::milliseconds RemoteCallLimit();

// Of that time a connection may take so much, when the call has that long. Enough for a first packet that is
// lost and sent again after a second.
inline constexpr std::chrono::milliseconds kDefaultRemoteConnectLimit{2'000};
void SetRemoteConnectLimit(std::chrono::milliseconds limit);

}  // namespace provider

#endif  // PROVIDER_REMOTE_REMOTEHOST_H_

#include "agent/ConnectionTable.h"

#include <gtest/gtest.h>

#include "tests/agent/Agents.h"

namespace agenttest {
namespace {

// Whoever has an IPv6 address has a whole network of them.
TEST(ConnectionTable, PeersAreCountedByNetwork) {
  agent::ConnectionTable table(99, 2);
  auto connect = [&table, socket = 0](const char* peer, const char* local) mutable {
    return table.Add(++socket, At(peer), At(local), agent::ConnectionTable::kNoDeadline);
  };
  EXPECT_TRUE(connect("2001:db8::1", "::1") && connect("2001:db8::ffff:0:0:2", "::1"));
  EXPECT_FALSE(connect("2001:db8::3", "::1"));
  EXPECT_TRUE(connect("2001:db8:0:1::1", "::1") && connect("2001:db8::1", "::2"));
  EXPECT_TRUE(connect("10.0.0.1", "10.0.0.9") && connect("10.0.0.1", "10.0.0.9") &&
              connect("10.0.0.2", "10.0.0.9"));
  EXPECT_FALSE(connect("10.0.0.1", "10.0.0.9"));
}

}  // namespace
}  // namespace agenttest

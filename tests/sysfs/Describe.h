// What a host answers, as text to compare.
#ifndef TESTS_SYSFS_DESCRIBE_H_
#define TESTS_SYSFS_DESCRIBE_H_

#include "provider/host/Host.h"
#include "tests/support/Testing.h"

namespace sysfs_test {

provider::Wwn Name(std::uint64_t number);

// "boards <status>", then a line a board and, indented below it, one a target, virtual port and its targets.
std::string Describe(provider::Host& host);
std::string DescribeBoard(provider::Host& host, unsigned int instance);
std::string DescribeNodes(const provider::ListAnswer<RM_NodeInfoEntry>& answer);

// Of everything that can be asked about the port.
std::set<int> StatusesOf(provider::Host& host, const provider::Wwn& wwn);

}  // namespace sysfs_test

#endif  // TESTS_SYSFS_DESCRIBE_H_

// A fabric file as it is written: its text, and the tree of its values with the line of each.
#ifndef PROVIDER_FABRIC_FABRICFILE_H_
#define PROVIDER_FABRIC_FABRICFILE_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace provider {

struct FabricNode {
  struct Member;
  using Array = std::vector<FabricNode>;
  using Object = std::vector<Member>;  // in the file's order, no key twice

  unsigned line = 0;
  std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, Array, Object> value;
};

struct FabricNode::Member {
  std::string key;
  unsigned line = 0;
  FabricNode node;
};

// The whole file. Throws std::runtime_error with a reason when it cannot be read, is no ordinary file or has
// more than 64 MiB.
std::string ReadFabricText(const std::string& path);

// Throws FabricError for what is no JSON, names a key of an object twice, nests deeper than 32 levels or has
// more than two million values.
FabricNode ParseFabricText(std::string_view text);

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICFILE_H_

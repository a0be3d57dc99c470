// A fabric file of a test's own and the provider started on it.
#ifndef TESTS_PROVIDER_BOUNDARY_H_
#define TESTS_PROVIDER_BOUNDARY_H_

#include <nlohmann/json.hpp>

#include "rmapi/rmapi.h"
#include "tests/support/Boards.h"
#include "tests/support/Files.h"
#include "tests/support/Names.h"
#include "tests/support/Testing.h"
#include "tests/support/Waiting.h"

namespace providertest {

inline constexpr char kPort[] = "1000000000000001";
inline constexpr char kOtherPort[] = "1000000000000002";

// 0, or 1 with the reason.
int SetSource(const std::string& kind, const std::string& path, std::string* reason = nullptr);

using Boards = std::vector<json>;

// A file with these boards, and the provider started on it.
class Fabric {
 public:
  explicit Fabric(const Boards& boards, const json& more = json::object());
  ~Fabric();
  Fabric(const Fabric&) = delete;
  Fabric& operator=(const Fabric&) = delete;

  json& Local() { return m_File["local"]; }
  void Rewrite() { m_Scratch.Write("fabric.json", m_File.dump(2)); }
  void RewriteInPlace();
  const Scratch& Folder() const { return m_Scratch; }
  std::string Path() const { return m_Scratch.Path("fabric.json"); }

 private:
  Scratch m_Scratch;
  json m_File;
};

// A list call's answer; the records as they were copied.
template <class Record>
struct Listed {
  int status = 0;
  std::uint32_t count = 0;
  std::vector<Record> records;  // min(count, room)
};

// Calls with room for so many records. Memory behind them is watched by the sanitizer.
Listed<RM_NodeInfoEntry> Nodes(const std::string& port, std::uint32_t room = 64);
Listed<RM_VPortEntry> VirtualPorts(const std::string& port, std::uint32_t room = 64);
Listed<RM_VPortTargetEntry> VirtualPortTargets(const std::string& port, const std::string& vport,
                                               std::uint32_t room = 64);
Listed<_RM_ISCSI_TARGET> IscsiTargets(const std::string& port, std::uint32_t room = 64);
Listed<HBA_NAME> Functions(const std::string& port, std::uint32_t room = 64);
Listed<unsigned int> Instances(std::uint32_t room = 64);

struct BoardRead {
  int status = 0;
  local_hba_info board{};
  HBA_info_v4 info{};
};
BoardRead ReadBoard(unsigned int instance);

// An attribute buffer's answer.
using AttributeCall = int (*)(const unsigned char*, const unsigned char*, void*, unsigned int*);
struct AttributesRead {
  AttributesRead(AttributeCall call, const std::string& port, unsigned int room = RM_ATTRIBUTE_ROOM,
                 const unsigned char* proxy = nullptr);

  // Empty when missing or of another type.
  std::string Text(unsigned int id) const;
  std::string NameOf(unsigned int id) const;  // digits
  // -1 when missing or of another type.
  long Number(unsigned int id) const;
  int StatusOf(unsigned int id) const;

  std::vector<unsigned char> buffer;
  unsigned int size;
  int status;

 private:
  const void* Value(unsigned int id, unsigned int ofType) const;
};

}  // namespace providertest

#endif  // TESTS_PROVIDER_BOUNDARY_H_

// The tool's JSON: documents of one object with a format version, names as "0x..." texts, unknown values null.
//
// Thread safety: functions without shared state.
#ifndef TOOLS_HBADISC_JSONWRITER_H_
#define TOOLS_HBADISC_JSONWRITER_H_

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "tools/hbadisc/Port.h"
#include "tools/hbadisc/Unanswered.h"

namespace hbadisc {

// Keeps the keys in the order in which they are written, which is the order of "hbadisc show" too.
using Json = nlohmann::ordered_json;

inline constexpr int kFormatVersion = 1;

enum class Layout { Indented, OneLine };

// The value and a line end; always valid JSON and UTF-8: broken sequences become replacement characters.
std::string Dump(const Json& value, Layout layout);

// An object with the format version first and then the members of `body`.
Json Document(const Json& body);

// A port, with the keys of its details when it has them.
Json ToJson(const Port& port);
Json ToJson(const std::vector<Port>& ports);
Json ToJson(const FcTarget& target);
Json ToJson(const IscsiTarget& target);
Json ToJson(const VirtualPort& vport);
Json ToJson(const IscsiNames& names);

// What could not be asked, and what remote hosts answered; moments are UTC.
Json ToJson(const Unanswered& unanswered);
Json ToJson(const RemoteHost& host);
template <class Item>
Json ToJsonList(const std::vector<Item>& items) {
  Json list = Json::array();
  for (const Item& item : items) list.push_back(ToJson(item));
  return list;
}

// A port's targets and those of its virtual ports, for a document.
Json TargetsJson(const Port& port);

// The same, one object a target, with the name of its port and of its virtual port or null.
std::vector<Json> TargetLines(const Port& port);

// "FC", "FCoE", "iSCSI", "NIC" or "NIC+RoCE".
std::string_view KindText(PortKind kind);

// "up", "down", "overheated"; empty when unknown.
std::string_view LinkText(Link link);

// "0x" and `digits` digits.
std::string HexText(std::uint64_t value, int digits);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_JSONWRITER_H_

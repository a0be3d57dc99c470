#include "tools/hbadisc/Changes.h"

#include <map>
#include <utility>

namespace hbadisc {

namespace {

using Path = std::vector<std::string>;
using Items = std::map<std::string, const Json*>;

// Items of lists are known by their names, not by their places: "wwpn" or "name", or the item itself.
std::string NameOf(const Json& item) {
  for (const char* key : {"wwpn", "name"}) {
    if (item.is_object() && item.contains(key) && item[key].is_string()) return item[key].get<std::string>();
  }
  return item.is_string() ? item.get<std::string>() : std::string();
}

Items ByName(const Json& list) {
  Items items;
  for (const Json& item : list) items.emplace(NameOf(item), &item);
  return items;
}

class Comparer {
 public:
  std::vector<Change> Ports(const Json& before, const Json& after) {
    CompareLists(before, after);
    return std::move(m_Changes);
  }

 private:
  void CompareValues(const Json& before, const Json& after) {
    if (before.is_object() && after.is_object()) {
      CompareObjects(before, after);
    } else if (before.is_array() && after.is_array()) {
      CompareLists(before, after);
    } else if (before != after) {
      Note(ChangeKind::Changed, before, after);
    }
  }

  // Both have the same keys, being written by the same code.
  void CompareObjects(const Json& before, const Json& after) {
    for (const auto& [key, value] : before.items()) {
      if (!after.contains(key)) continue;
      m_Path.push_back(key);
      CompareValues(value, after[key]);
      m_Path.pop_back();
    }
  }

  void CompareLists(const Json& before, const Json& after) {
    const Items old = ByName(before);
    const Items now = ByName(after);
    Items all = old;
    all.insert(now.begin(), now.end());
    for (const auto& [name, item] : all) {
      m_Path.push_back(name);
      if (!now.contains(name)) {
        Note(ChangeKind::Removed, *item, Json());
      } else if (!old.contains(name)) {
        Note(ChangeKind::Added, Json(), *item);
      } else {
        CompareValues(*item, *now.at(name));
      }
      m_Path.pop_back();
    }
  }

  // The first name on the path is the port's.
  void Note(ChangeKind kind, const Json& before, const Json& after) {
    m_Changes.push_back({kind, m_Path.front(), Path(m_Path.begin() + 1, m_Path.end()), before, after});
  }

  Path m_Path;
  std::vector<Change> m_Changes;
};

}  // namespace

std::vector<Change> Compare(const Json& before, const Json& after) {
  return Comparer().Ports(before, after);
}

std::string_view KindText(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::Added:
      return "added";
    case ChangeKind::Removed:
      return "removed";
    case ChangeKind::Changed:
      break;
  }
  return "changed";
}

}  // namespace hbadisc

// Boards for a fabric file, of which a test changes what it is about.
#ifndef TESTS_SUPPORT_BOARDS_H_
#define TESTS_SUPPORT_BOARDS_H_

#include <nlohmann/json.hpp>

#include "tests/support/Testing.h"

using nlohmann::json;

inline json FcBoard(const std::string& wwpn = "1000000000000001") {
  return {{"kind", "fc"}, {"wwpn", wwpn}};
}

inline json NicBoard(const std::string& wwpn) {
  return {{"kind", "nic"}, {"wwpn", wwpn}};
}

inline json IscsiBoard(const std::string& wwpn) {
  return {{"kind", "iscsi"},
          {"wwpn", wwpn},
          {"iscsi",
           {{"initiator_name", "iqn.2020-01.example:" + wwpn},
            {"default_name", "iqn.2020-01.example:default"},
            {"alias", "port " + wwpn}}}};
}

#endif  // TESTS_SUPPORT_BOARDS_H_

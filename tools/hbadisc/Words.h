// What the keys and values of the tool's JSON are called in tables and lines.
//
// Thread safety: functions without shared state.
#ifndef TOOLS_HBADISC_WORDS_H_
#define TOOLS_HBADISC_WORDS_H_

#include <string>
#include <string_view>

#include "tools/hbadisc/JsonWriter.h"

namespace hbadisc {

// "serial number" for "serial_number", "WWNN" for "wwnn".
std::string KeyWords(std::string_view key);

// KeyWords with a capital first letter.
std::string Label(std::string_view key);

// What one item of the list under that key is: "target" for "targets"; empty when no list of named items is
// there.
std::string_view ItemWords(std::string_view key);

// A value in one line: "yes" for true, names with colons, the members of objects and lists one after another;
// "-" when unknown. Texts are as they are, fit for no terminal yet.
std::string ValueText(const Json& value);

// A name written as "0x..." with colons; any other text as it is.
std::string NameText(const std::string& text);

// "1 port", "2 ports".
std::string Counted(std::size_t count, std::string_view singular);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_WORDS_H_

// What the library exports, against its headers.

#include "tests/provider/Boundary.h"
#include "tests/support/Testing.h"

namespace providertest {
namespace {

// A declaration begins its line with a type in small letters.
std::set<std::string> Declared(const std::string& header) {
  std::istringstream lines(ReadFile(PROVIDER_SOURCE_DIR "/" + header));
  std::set<std::string> names;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] < 'a' || line[0] > 'z' || line.starts_with("typedef")) continue;
    const std::size_t end = line.find_first_of("([");
    if (end == std::string::npos) continue;
    const std::size_t begin = line.find_last_of(" *", end) + 1;
    names.insert(line.substr(begin, end - begin));
  }
  return names;
}

std::string OutputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(command.c_str(), "r"), pclose);
  std::string text;
  for (int c = fgetc(output.get()); c != EOF; c = fgetc(output.get())) text += static_cast<char>(c);
  return text;
}

TEST(Exports, ExactlyWhatTheHeadersDeclareUnderItsName) {
  std::set<std::string> declared = Declared("rmapi/rmapi.h");
  EXPECT_EQ(declared.size(), 44u + 26u);
  declared.merge(Declared("provider/OpenProvider.h"));
  std::set<std::string> exported;
  std::istringstream lines(OutputOf("nm -D --defined-only --format=posix '" PROVIDER_LIBRARY "'"));
  for (std::string name, rest; lines >> name && std::getline(lines, rest);) exported.insert(name);
  EXPECT_EQ(exported, declared);
  EXPECT_NE(OutputOf("LC_ALL=C readelf -d '" PROVIDER_LIBRARY "'").find("soname: [librmapi.so]"),
            std::string::npos);
}

}  // namespace
}  // namespace providertest

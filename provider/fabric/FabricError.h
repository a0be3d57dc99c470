// What is wrong with a fabric file, and where.
#ifndef PROVIDER_FABRIC_FABRICERROR_H_
#define PROVIDER_FABRIC_FABRICERROR_H_

#include <stdexcept>
#include <string>

namespace provider {

// The message is "line: key: what was expected"; who knows the file's name puts it before that. It is one line
// of printable characters whatever the file holds.
class FabricError : public std::runtime_error {
 public:
  FabricError(unsigned line, const std::string& key, const std::string& expected)
      : std::runtime_error(std::to_string(line) + ": " + Printable(key) + ": " + Printable(expected)) {}

 private:
  static std::string Printable(const std::string& text) {
    constexpr std::size_t kMost = 400;
    std::string printable = text.substr(0, kMost);
    for (char& c : printable) {
      if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) c = ' ';
    }
    return printable;
  }
};

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICERROR_H_

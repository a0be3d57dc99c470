// Takes the place of the discovery log and keeps its lines.
//
// Thread safety: any thread.
#ifndef TESTS_MODEL_RECORDEDLOG_H_
#define TESTS_MODEL_RECORDEDLOG_H_

#include <ostream>
#include <string>
#include <vector>

struct LogLine {
  unsigned int mask;
  unsigned int port;  // the last two bytes of the port's name
  std::string text;

  bool operator==(const LogLine&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.mask << ' ' << line.port << " \"" << line.text << '"';
  }
};

// The lines since the last call.
std::vector<LogLine> TakeLogLines();

#endif  // TESTS_MODEL_RECORDEDLOG_H_

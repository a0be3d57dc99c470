// Stands in for the discovery log and keeps its lines.
#ifndef TESTS_INBAND_RECORDED_LOG_H_
#define TESTS_INBAND_RECORDED_LOG_H_

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

class RecordedLog {
 public:
  struct Line {
    unsigned int mask;
    std::uint64_t wwn;  // 0 when the line has no prefix
    std::string text;
  };

  RecordedLog() { s_Current = this; }
  ~RecordedLog() { s_Current = nullptr; }
  RecordedLog(const RecordedLog&) = delete;
  RecordedLog& operator=(const RecordedLog&) = delete;

  void Add(Line line);
  std::vector<Line> Lines() const;

  // Lines of exactly this text.
  int Count(const std::string& text) const;
  // The first line that begins so; a line of mask 0 when there is none.
  Line Find(const std::string& beginning) const;

  static RecordedLog* s_Current;

 private:
  mutable std::mutex m_Lock;
  std::vector<Line> m_Lines;
};

#endif  // TESTS_INBAND_RECORDED_LOG_H_

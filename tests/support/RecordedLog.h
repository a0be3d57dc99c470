// Stands in for the discovery log and keeps its lines.
//
// Thread safety: any thread, while one exists.
#ifndef TESTS_SUPPORT_RECORDEDLOG_H_
#define TESTS_SUPPORT_RECORDEDLOG_H_

#include "tests/support/Testing.h"

class RecordedLog {
 public:
  struct Line {
    unsigned int mask;
    std::uint64_t wwn;  // 0 when the line has no prefix
    std::string text;

    bool operator==(const Line&) const = default;
  };

  RecordedLog() { s_Current = this; }
  ~RecordedLog() { s_Current = nullptr; }
  RecordedLog(const RecordedLog&) = delete;
  RecordedLog& operator=(const RecordedLog&) = delete;

  void Add(Line line) {
    const std::lock_guard guard(m_Lock);
    m_Lines.push_back(std::move(line));
  }
  std::vector<Line> Lines() const {
    const std::lock_guard guard(m_Lock);
    return m_Lines;
  }
  // The lines since the last call.
  std::vector<Line> Take() {
    const std::lock_guard guard(m_Lock);
    return std::exchange(m_Lines, {});
  }

  // Lines of exactly this text.
  int Count(const std::string& text) const {
    const std::vector<Line> lines = Lines();
    return static_cast<int>(
        std::count_if(lines.begin(), lines.end(), [&](const Line& line) { return line.text == text; }));
  }
  // The first line that begins so; a line of mask 0 when there is none.
  Line Find(const std::string& beginning) const {
    for (Line& line : Lines()) {
      if (line.text.starts_with(beginning)) return line;
    }
    return {0, 0, ""};
  }

  static inline std::atomic<RecordedLog*> s_Current{nullptr};

 private:
  mutable std::mutex m_Lock;
  std::vector<Line> m_Lines;
};

#endif  // TESTS_SUPPORT_RECORDEDLOG_H_

#include "provider/process/KeyValueFile.h"

#include <filesystem>
#include <fstream>

namespace provider {

namespace {

// Settings files are a few lines long; whatever stands here by mistake must not fill the memory.
constexpr std::size_t kMostLines = 10'000;
constexpr std::size_t kLongestLine = 4096;

bool NextLine(std::ifstream& file, std::string& line) {
  line.clear();
  for (int c = file.get(); c != std::ifstream::traits_type::eof() && c != '\n'; c = file.get()) {
    if (line.size() < kLongestLine) line += static_cast<char>(c);
  }
  return file.good() || !line.empty();
}

}  // namespace

std::optional<std::string> ReadKeyValue(const std::string& path, std::string_view key) {
  // Nobody is waited for who might come to the other end of a pipe.
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
  std::ifstream file(path);
  std::string line;
  for (std::size_t i = 0; i < kMostLines && NextLine(file, line); ++i) {
    const std::size_t colon = line.find(':');
    if (colon != std::string::npos && key.starts_with(std::string_view(line).substr(0, colon))) {
      return line.substr(colon + 1);
    }
  }
  return std::nullopt;
}

}  // namespace provider

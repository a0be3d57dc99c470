#include "provider/fabric/FabricFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <system_error>

#include "provider/base/FileDescriptor.h"
#include "provider/fabric/FabricError.h"

namespace provider {

namespace {

constexpr std::size_t kLargestFile = 64u << 20;
constexpr std::size_t kMostValues = 2'000'000;
constexpr std::size_t kDeepestNesting = 32;

[[noreturn]] void ThrowErrno(int error) {
  throw std::runtime_error(std::error_code(error, std::generic_category()).message());
}

// Where the parser reads. The line is that of the character read last, so that the one character which it looks
// ahead after a number does not count when that is the end of the line.
struct Position {
  unsigned line = 1;
  unsigned nextLine = 1;

  void Read(char c) {
    line = nextLine;
    if (c == '\n') ++nextLine;
  }
};

// Hands the text to the parser and keeps the position up to date. Copies share the position.
class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* at, Position* position) : m_At(at), m_Position(position) {}

  reference operator*() const { return *m_At; }
  CountingIterator& operator++() {
    m_Position->Read(*m_At++);
    return *this;
  }
  CountingIterator operator++(int) {
    CountingIterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(const CountingIterator& a, const CountingIterator& b) { return a.m_At == b.m_At; }

 private:
  const char* m_At;
  Position* m_Position;
};

// The reason without the library's own number and position, which count differently from ours.
std::string Reason(const std::string& what) {
  const std::size_t position = what.find("column ");
  const std::size_t colon = position == std::string::npos ? position : what.find(": ", position);
  return colon == std::string::npos ? what : what.substr(colon + 2);
}

// Receives the parser's events and builds the tree. The pointers to open containers stay good: a container
// grows only while it is the innermost one.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  TreeBuilder(const Position& position, FabricNode& root) : m_Position(position), m_Root(root) {}

  bool null() override { return Add(nullptr); }
  bool boolean(bool value) override { return Add(value); }
  bool number_integer(std::int64_t value) override { return Add(value); }
  bool number_unsigned(std::uint64_t value) override { return Add(value); }
  bool number_float(double value, const std::string& /*text*/) override { return Add(value); }
  bool string(std::string& value) override { return Add(std::move(value)); }
  bool binary(nlohmann::json::binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*size*/) override { return Open(FabricNode::Object()); }
  bool start_array(std::size_t /*size*/) override { return Open(FabricNode::Array()); }
  bool end_object() override { return Close(); }
  bool end_array() override { return Close(); }

  bool key(std::string& key) override {
    FabricNode::Object& object = std::get<FabricNode::Object>(m_Open.back()->value);
    const bool twice = !m_Keys.back().insert(key).second;
    object.push_back({std::move(key), m_Position.line, {}});
    if (twice) Refuse("expected each key once");
    return true;
  }

  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::json::exception& error) override {
    Refuse("expected JSON: " + Reason(error.what()));
  }

 private:
  [[noreturn]] void Refuse(const std::string& expected) const {
    throw FabricError(m_Position.line, Path(), expected);
  }

  std::string Path() const {
    std::string path;
    for (const FabricNode* open : m_Open) {
      if (const auto* array = std::get_if<FabricNode::Array>(&open->value)) {
        path += '[' + std::to_string(array->empty() ? 0 : array->size() - 1) + ']';
      } else if (const auto& object = std::get<FabricNode::Object>(open->value); !object.empty()) {
        if (!path.empty()) path += '.';
        path += object.back().key;
      }
    }
    return path.empty() ? "(file)" : path;
  }

  FabricNode& Place() {
    if (m_Open.empty()) return m_Root;
    if (auto* array = std::get_if<FabricNode::Array>(&m_Open.back()->value)) return array->emplace_back();
    return std::get<FabricNode::Object>(m_Open.back()->value).back().node;
  }

  template <class Value>
  bool Add(Value&& value) {
    FabricNode& node = Place();
    if (++m_Values > kMostValues) Refuse("expected at most 2000000 values in a file");
    node.line = m_Position.line;
    node.value = std::forward<Value>(value);
    return true;
  }

  template <class Container>
  bool Open(Container&& container) {
    if (m_Open.size() >= kDeepestNesting) Refuse("expected at most 32 levels of nesting");
    FabricNode& node = Place();
    if (++m_Values > kMostValues) Refuse("expected at most 2000000 values in a file");
    node.line = m_Position.line;
    node.value = std::forward<Container>(container);
    m_Open.push_back(&node);
    m_Keys.emplace_back();
    return true;
  }

  bool Close() {
    m_Open.pop_back();
    m_Keys.pop_back();
    return true;
  }

  const Position& m_Position;
  FabricNode& m_Root;
  std::vector<FabricNode*> m_Open;            // innermost last
  std::vector<std::set<std::string>> m_Keys;  // of the open objects
  std::size_t m_Values = 0;
};

}  // namespace

std::string ReadFabricText(const std::string& path) {
  // Not blocking: the name may be that of a pipe, which is refused.
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0) ThrowErrno(errno);
  if (!S_ISREG(status.st_mode)) throw std::runtime_error("expected an ordinary file");
  std::string text;
  while (text.size() <= kLargestFile) {
    constexpr std::size_t kPiece = 65'536;
    const std::size_t before = text.size();
    text.resize(before + kPiece);
    const ssize_t got = read(file.Get(), text.data() + before, kPiece);
    if (got < 0 && errno != EINTR) ThrowErrno(errno);
    text.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got == 0) return text;
  }
  throw std::runtime_error("expected a file of at most 64 MiB");
}

FabricNode ParseFabricText(std::string_view text) {
  FabricNode root;
  Position position;
  TreeBuilder builder(position, root);
  const char* const begin = text.data();
  nlohmann::json::sax_parse(CountingIterator(begin, &position),
                            CountingIterator(begin + text.size(), &position), &builder);
  return root;
}

}  // namespace provider

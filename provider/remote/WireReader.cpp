#include "provider/remote/WireReader.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace provider {

namespace {

constexpr std::size_t kDeepestNesting = 8;
constexpr std::size_t kMostValues = 4096;  // in a record or a member; a port's attributes are a few hundred
constexpr std::size_t kMostKeys = 64;      // of one object; the largest has half as many

constexpr std::size_t kInDocument = 1;  // so many arrays and objects are open around a member's value
constexpr std::size_t kInRecords = 2;   // and around a record

constexpr std::string_view kRecords = "records";
constexpr std::array<std::string_view, 5> kReadMembers = {"format_version", "status", "value", "needed",
                                                          kRecords};

// Puts one value together, event by event.
class ValueBuilder {
 public:
  bool IsIdle() const { return m_Open.empty(); }

  void Key(std::string& key) {
    if (m_Open.back()->size() >= kMostKeys) throw WireError("too many keys");
    m_Key = std::move(key);
  }
  void Add(WireJson value) { Place(std::move(value)); }
  void Open(WireJson container) { m_Open.push_back(&Place(std::move(container))); }
  void Close() { m_Open.pop_back(); }

  WireJson Take() {
    m_Count = 0;
    return *std::exchange(m_Value, std::nullopt);
  }

 private:
  WireJson& Place(WireJson value) {
    if (++m_Count > kMostValues) throw WireError("too many values");
    if (m_Open.empty()) return m_Value.emplace(std::move(value));
    WireJson& container = *m_Open.back();
    // A key is looked for among those before it, one by one: that is why they are few.
    return container.is_object() ? container[m_Key] = std::move(value)
                                 : container.emplace_back(std::move(value));
  }

  std::optional<WireJson> m_Value;
  // None of them moves: a container gets no other element while one of its elements is open.
  std::vector<WireJson*> m_Open;
  std::string m_Key;
  std::size_t m_Count = 0;
};

// The parser's events. Each of the two passes over a document is one of these.
class Reader final : public nlohmann::json_sax<WireJson> {
 public:
  // Without `takeRecord` members are kept and records counted.
  explicit Reader(std::function<void(const WireJson&)> takeRecord = nullptr)
      : m_TakeRecord(std::move(takeRecord)) {}

  WireDocument Take() { return std::move(m_Document); }

  bool null() override { return Scalar(nullptr); }
  bool boolean(bool flag) override { return Scalar(flag); }
  bool number_integer(number_integer_t number) override { return Scalar(number); }
  bool number_unsigned(number_unsigned_t number) override { return Scalar(number); }
  bool number_float(number_float_t number, const string_t& /*text*/) override { return Scalar(number); }
  bool string(string_t& text) override { return Scalar(std::move(text)); }
  bool binary(binary_t& /*bytes*/) override { return false; }  // not in JSON

  bool start_object(std::size_t /*size*/) override { return Open(WireJson::object()); }
  bool end_object() override { return Close(); }
  bool start_array(std::size_t /*size*/) override {
    if (m_Depth == kInDocument && m_Member == kRecords) {
      m_IsInRecords = true;
      m_Document.recordCount = 0;
    }
    return Open(WireJson::array());
  }
  bool end_array() override { return Close(); }

  bool key(string_t& key) override {
    if (m_Depth == kInDocument) BeginMember(key);
    if (!m_Builder.IsIdle()) m_Builder.Key(key);
    return true;
  }

  // The parser's own words repeat what it could not read, which may be megabytes.
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const WireJson::exception& /*error*/) override {
    throw WireError("no JSON");
  }

 private:
  void BeginMember(const std::string& key) {
    m_IsInRecords = false;
    const auto* const known = std::find(kReadMembers.begin(), kReadMembers.end(), key);
    m_Member = known == kReadMembers.end() ? std::string_view() : *known;
    if (m_Member.empty()) return;
    bool& wasSeen = m_Seen.at(static_cast<std::size_t>(known - kReadMembers.begin()));
    if (std::exchange(wasSeen, true)) throw WireError("a member appears twice");
  }

  // Whether the value that begins is built, or passed over.
  bool IsBuilt() {
    if (!m_Builder.IsIdle()) return true;
    if (m_Depth == kInRecords && m_IsInRecords) {
      ++*m_Document.recordCount;
      return m_TakeRecord != nullptr;
    }
    return m_Depth == kInDocument && !m_Member.empty() && m_Member != kRecords && m_TakeRecord == nullptr;
  }

  template <class Value>
  bool Scalar(Value&& value) {
    if (m_Depth < kInDocument) throw WireError("expected an object");
    if (!IsBuilt()) return true;
    m_Builder.Add(std::forward<Value>(value));
    TakeWhole();
    return true;
  }

  bool Open(WireJson container) {
    if (m_Depth == 0 && !container.is_object()) throw WireError("expected an object");
    if (m_Depth >= kDeepestNesting) throw WireError("nested too deeply");
    if (IsBuilt()) m_Builder.Open(std::move(container));
    ++m_Depth;
    return true;
  }

  bool Close() {
    --m_Depth;
    if (m_Builder.IsIdle()) return true;
    m_Builder.Close();
    TakeWhole();
    return true;
  }

  void TakeWhole() {
    if (!m_Builder.IsIdle()) return;
    WireJson value = m_Builder.Take();
    if (m_Depth == kInDocument) {
      m_Document.members[std::string(m_Member)] = std::move(value);
    } else {
      m_TakeRecord(value);
    }
  }

  const std::function<void(const WireJson&)> m_TakeRecord;
  WireDocument m_Document;
  ValueBuilder m_Builder;
  std::size_t m_Depth = 0;    // open arrays and objects
  std::string_view m_Member;  // of the document; empty: one that is not read
  std::array<bool, kReadMembers.size()> m_Seen{};
  bool m_IsInRecords = false;
};

}  // namespace

WireDocument ReadDocument(const std::string& text) {
  Reader reader;
  WireJson::sax_parse(text, &reader);
  return reader.Take();
}

void ReadRecords(const std::string& text, const std::function<void(const WireJson&)>& take) {
  Reader reader(take);
  WireJson::sax_parse(text, &reader);
}

}  // namespace provider

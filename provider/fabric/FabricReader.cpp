#include "provider/fabric/FabricReader.h"

#include <algorithm>
#include <charconv>

#include "provider/fabric/FabricError.h"
#include "provider/host/WorldWideName.h"

namespace provider {

namespace {

std::optional<std::uint64_t> ParseHexadecimal(std::string_view text) {
  if (!text.starts_with("0x") || text.size() < 3) return std::nullopt;
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + 2, end, number, 16);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

bool IsControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

std::string Listed(std::span<const std::string_view> words) {
  std::string text;
  for (const std::string_view word : words) {
    if (!text.empty()) text += ", ";
    text.append(word);
  }
  return text;
}

const FabricNode::Object& MembersOf(const FabricValue& value, const FabricNode& node) {
  const auto* members = std::get_if<FabricNode::Object>(&node.value);
  if (members == nullptr) value.Refuse("an object");
  return *members;
}

}  // namespace

void FabricValue::Refuse(const std::string& expected) const {
  throw FabricError(m_Node.line, Path(), "expected " + expected);
}

std::string FabricValue::Path() const {
  if (m_Parent == nullptr) return "(file)";
  const std::string before = m_Parent->m_Parent == nullptr ? std::string() : m_Parent->Path();
  if (m_Key.empty()) return before + '[' + std::to_string(m_Index) + ']';
  return before.empty() ? std::string(m_Key) : before + '.' + std::string(m_Key);
}

bool FabricValue::Flag() const {
  const bool* flag = std::get_if<bool>(&m_Node.value);
  if (flag == nullptr) Refuse("true or false");
  return *flag;
}

std::string FabricValue::Text(std::size_t most) const {
  const std::string* text = std::get_if<std::string>(&m_Node.value);
  if (text == nullptr || text->size() > most || std::any_of(text->begin(), text->end(), IsControl)) {
    Refuse("a text of at most " + std::to_string(most) + " bytes without control characters");
  }
  return *text;
}

std::uint64_t FabricValue::Number(std::uint64_t least, std::uint64_t most) const {
  std::optional<std::uint64_t> number;
  if (const auto* plain = std::get_if<std::uint64_t>(&m_Node.value)) number = *plain;
  if (const auto* text = std::get_if<std::string>(&m_Node.value)) number = ParseHexadecimal(*text);
  if (!number.has_value() || *number < least || *number > most) {
    Refuse("a whole number from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return *number;
}

double FabricValue::Fraction(double least, double most) const {
  double number = least - 1;
  if (const auto* whole = std::get_if<std::uint64_t>(&m_Node.value)) number = static_cast<double>(*whole);
  if (const auto* fraction = std::get_if<double>(&m_Node.value)) number = *fraction;
  if (!(number >= least && number <= most)) {
    Refuse("a number from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return number;
}

Wwn FabricValue::Name() const {
  const std::string* text = std::get_if<std::string>(&m_Node.value);
  const std::optional<Wwn> name = text == nullptr ? std::nullopt : ParseWwn(*text);
  if (!name.has_value() || *name == Wwn{}) Refuse("a name of 8 bytes such as \"10:00:00:12:34:56:78:9a\"");
  return *name;
}

std::size_t FabricValue::Word(std::span<const std::string_view> words) const {
  const std::string* text = std::get_if<std::string>(&m_Node.value);
  const auto found = text == nullptr ? words.end() : std::find(words.begin(), words.end(), *text);
  if (found == words.end()) Refuse("one of " + Listed(words));
  return static_cast<std::size_t>(std::distance(words.begin(), found));
}

std::vector<FabricValue> FabricValue::Elements(std::size_t most) const& {
  const auto* array = std::get_if<FabricNode::Array>(&m_Node.value);
  if (array == nullptr || array->size() > most)
    Refuse("an array of at most " + std::to_string(most) + " elements");
  std::vector<FabricValue> elements;
  elements.reserve(array->size());
  for (const FabricNode& node : *array) elements.push_back(FabricValue(node, this, {}, elements.size()));
  return elements;
}

FabricObject::FabricObject(const FabricValue& value)
    : m_Value(value), m_Members(MembersOf(value, value.m_Node)) {}

std::optional<FabricValue> FabricObject::Find(std::string_view key) {
  m_Known.push_back(key);
  for (const FabricNode::Member& member : m_Members) {
    if (member.key == key) return FabricValue(member.node, &m_Value, member.key, 0);
  }
  return std::nullopt;
}

FabricValue FabricObject::Require(std::string_view key, const std::string& expected) {
  const std::optional<FabricValue> value = Find(key);
  if (!value.has_value()) {
    throw FabricError(m_Value.Line(), FabricValue(m_Value.m_Node, &m_Value, key, 0).Path(),
                      "expected " + expected + ", but the key is missing");
  }
  return *value;
}

void FabricObject::Finish() const {
  for (const FabricNode::Member& member : m_Members) {
    if (std::find(m_Known.begin(), m_Known.end(), member.key) != m_Known.end()) continue;
    throw FabricError(member.line, FabricValue(member.node, &m_Value, member.key, 0).Path(),
                      "unknown key, expected one of " + Listed(m_Known));
  }
}

}  // namespace provider

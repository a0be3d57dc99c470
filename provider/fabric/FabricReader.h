// Reads values out of a fabric file's tree and refuses, with line and key, what is not as expected.
//
// A FabricValue refers to the value it was found in, for its path; it lives no longer than that one.
#ifndef PROVIDER_FABRIC_FABRICREADER_H_
#define PROVIDER_FABRIC_FABRICREADER_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "provider/fabric/FabricFile.h"
#include "provider/host/Host.h"

namespace provider {

class FabricValue {
 public:
  explicit FabricValue(const FabricNode& root) : FabricValue(root, nullptr, {}, 0) {}

  bool IsFlag() const { return std::holds_alternative<bool>(m_Node.value); }
  bool IsNull() const { return std::holds_alternative<std::nullptr_t>(m_Node.value); }
  bool IsText() const { return std::holds_alternative<std::string>(m_Node.value); }
  bool IsObject() const { return std::holds_alternative<FabricNode::Object>(m_Node.value); }

  // "expected " and the text, at this value.
  [[noreturn]] void Refuse(const std::string& expected) const;

  bool Flag() const;
  // At most `most` bytes, no control characters.
  std::string Text(std::size_t most) const;
  // A whole number, or one written as text in hexadecimal ("0x1f").
  std::uint64_t Number(std::uint64_t least, std::uint64_t most) const;
  std::uint32_t Number32(std::uint32_t most) const { return static_cast<std::uint32_t>(Number(0, most)); }
  // With or without a fraction.
  double Fraction(double least, double most) const;
  // A world-wide name other than zero.
  Wwn Name() const;
  // The index of one of `words`.
  std::size_t Word(std::span<const std::string_view> words) const;
  // At most `most` elements.
  std::vector<FabricValue> Elements(std::size_t most) const&;
  std::vector<FabricValue> Elements(std::size_t most) const&& = delete;

  unsigned Line() const { return m_Node.line; }
  std::string Path() const;

 private:
  friend class FabricObject;
  FabricValue(const FabricNode& node, const FabricValue* parent, std::string_view key, std::size_t index)
      : m_Node(node), m_Parent(parent), m_Key(key), m_Index(index) {}

  const FabricNode& m_Node;
  const FabricValue* m_Parent;
  std::string_view m_Key;  // empty for an array's element
  std::size_t m_Index;
};

// An object whose keys are asked for one by one; in the end a key that nobody has asked for is refused.
class FabricObject {
 public:
  explicit FabricObject(const FabricValue& value);
  explicit FabricObject(const FabricValue&& value) = delete;

  std::optional<FabricValue> Find(std::string_view key);
  FabricValue Require(std::string_view key, const std::string& expected);
  void Finish() const;

 private:
  const FabricValue& m_Value;
  const FabricNode::Object& m_Members;
  std::vector<std::string_view> m_Known;
};

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICREADER_H_

// The three names of an iSCSI port.
//
// Thread safety: one thread at a time per object, the caller locks. Copies are independent.
//
// Ownership: the texts are immutable and shared between copies. A getter's text lives until the next SetNames
// or assignment on the same object.
#ifndef MODEL_ISCSINAMES_H_
#define MODEL_ISCSINAMES_H_

#include <memory>
#include <optional>
#include <string>

class CDiscISCSINames {
 public:
  CDiscISCSINames() = default;
  CDiscISCSINames(const CDiscISCSINames& other) = default;
  CDiscISCSINames& operator=(const CDiscISCSINames& other) = default;
  virtual ~CDiscISCSINames() = default;

  // Null when not set.
  const char* GetInitiatorName() const { return m_Names ? Text(m_Names->initiator) : nullptr; }
  const char* GetDefaultName() const { return m_Names ? Text(m_Names->fallback) : nullptr; }
  const char* GetAlias() const { return m_Names ? Text(m_Names->alias) : nullptr; }

  // Keeps at most 256 bytes of each; null erases that name. The arguments may be this object's own texts.
  void SetNames(const char* initiatorName, const char* defaultName, const char* alias);

 private:
  using Name = std::optional<std::string>;
  struct Names {
    Name initiator;
    Name fallback;
    Name alias;
  };

  static const char* Text(const Name& name) { return name ? name->c_str() : nullptr; }

  std::shared_ptr<const Names> m_Names;  // null: all three are unset
};

#endif  // MODEL_ISCSINAMES_H_

#include "provider/sysfs/SysfsNames.h"

#include <algorithm>
#include <charconv>

#include "provider/host/WorldWideName.h"

namespace provider {

namespace {

// Takes a text apart from its front. Whatever does not fit makes the whole not fit.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : m_Rest(text) {}

  Scanner& Literal(std::string_view text) {
    m_Fits = m_Fits && m_Rest.starts_with(text);
    if (m_Fits) m_Rest.remove_prefix(text.size());
    return *this;
  }

  // As the kernel prints it, so that no two texts are one number.
  template <class Number>
  Scanner& Decimal(Number& number) {
    const bool leadingZero = m_Rest.size() > 1 && m_Rest[0] == '0' && m_Rest[1] >= '0' && m_Rest[1] <= '9';
    m_Fits = m_Fits && !leadingZero;
    return Digits(number, 10);
  }

  template <class Number>
  Scanner& Hex(Number& number) {
    return Digits(number, 16);
  }

  bool Done() const { return m_Fits && m_Rest.empty(); }

 private:
  template <class Number>
  Scanner& Digits(Number& number, int base) {
    const char* const begin = m_Rest.data();
    const auto [stop, error] = std::from_chars(begin, begin + m_Rest.size(), number, base);
    m_Fits = m_Fits && error == std::errc();
    if (m_Fits) m_Rest.remove_prefix(static_cast<std::size_t>(stop - begin));
    return *this;
  }

  std::string_view m_Rest;
  bool m_Fits = true;
};

constexpr std::string_view kHost = "host";
constexpr std::string_view kVirtualPort = "vport";

bool ScanFcChild(std::string_view name, std::string_view kind, unsigned int& host, FcChild& child) {
  Scanner scanner(name);
  scanner.Literal(kind).Literal("-").Decimal(host).Literal(":").Decimal(child.channel);
  return scanner.Literal("-").Decimal(child.number).Done();
}

}  // namespace

std::string ScsiHostName(unsigned int number) {
  return std::string(kHost) + std::to_string(number);
}

std::optional<unsigned int> ParseScsiHostName(std::string_view name) {
  unsigned int number = 0;
  if (!Scanner(name).Literal(kHost).Decimal(number).Done()) return std::nullopt;
  return number;
}

std::string FcChildName(std::string_view kind, unsigned int host, const FcChild& child) {
  return std::string(kind) + '-' + std::to_string(host) + ':' + std::to_string(child.channel) + '-' +
         std::to_string(child.number);
}

std::optional<FcChild> ParseFcChildName(std::string_view name, std::string_view kind, unsigned int host) {
  unsigned int parent = 0;
  FcChild child;
  if (!ScanFcChild(name, kind, parent, child) || parent != host) return std::nullopt;
  return child;
}

bool IsVirtualPortName(std::string_view name) {
  unsigned int parent = 0;
  FcChild child;
  return ScanFcChild(name, kVirtualPort, parent, child);
}

std::optional<std::uint64_t> ParseScsiDeviceName(std::string_view name, std::string_view target) {
  std::uint64_t lun = 0;
  if (!Scanner(name).Literal(target).Literal(":").Decimal(lun).Done()) return std::nullopt;
  return lun;
}

std::optional<PciAddress> ParsePciAddress(std::string_view name) {
  constexpr unsigned int kMostBuses = 0x100;
  constexpr unsigned int kMostFunctions = 8;
  std::uint32_t domain = 0;
  unsigned int bus = 0;
  unsigned int device = 0;
  unsigned int function = 0;
  Scanner scanner(name);
  scanner.Hex(domain).Literal(":").Hex(bus).Literal(":").Hex(device).Literal(".").Hex(function);
  if (!scanner.Done() || bus >= kMostBuses || function >= kMostFunctions) return std::nullopt;
  return PciAddress{static_cast<std::uint16_t>(bus), static_cast<std::uint16_t>(function)};
}

std::optional<Wwn> ParseFcName(std::string_view text) {
  // Not ParseWwn: the kernel leaves leading zeros out.
  std::uint64_t number = 0;
  if (!Scanner(text).Literal("0x").Hex(number).Done()) return std::nullopt;
  if (number == 0 || number == UINT64_MAX) return std::nullopt;
  return WwnFromNumber(number);
}

std::optional<std::uint32_t> ParseHex(std::string_view text) {
  std::uint32_t number = 0;
  if (!Scanner(text).Literal("0x").Hex(number).Done()) return std::nullopt;
  return number;
}

std::optional<std::uint32_t> ParseDecimal(std::string_view text) {
  std::uint32_t number = 0;
  if (!Scanner(text).Decimal(number).Done()) return std::nullopt;
  return number;
}

DevicePath::DevicePath(const std::string& linkText) {
  std::string_view rest = linkText;
  while (!rest.empty()) {
    const std::string_view name = rest.substr(0, rest.find('/'));
    rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    const bool up = name == "..";
    if (up && !m_Names.empty()) {
      m_Names.clear();
      return;
    }
    if (!up && !name.empty() && name != ".") m_Names.emplace_back(name);
  }
}

std::string DevicePath::WayTo(std::size_t index) const {
  std::string way = ".";
  for (std::size_t i = index + 1; i < m_Names.size(); ++i) way += "/..";
  return way;
}

}  // namespace provider

#include "provider/remote/WireQuery.h"

#include <array>
#include <charconv>

#include "provider/host/WorldWideName.h"

namespace provider {

namespace {

constexpr std::string_view kInstance = "{instance}";
constexpr std::string_view kPort = "{wwn}";
constexpr std::string_view kVirtualPort = "{vport}";

// In the order of WireQuestion.
constexpr std::array<std::string_view, 19> kPatterns = {
    "/v1/boards",
    "/v1/boards/{instance}",
    "/v1/ports",
    "/v1/secure_management",
    "/v1/ports/{wwn}/is_present",
    "/v1/ports/{wwn}/is_makers",
    "/v1/ports/{wwn}/discovery_attributes",
    "/v1/ports/{wwn}/hba_attributes",
    "/v1/ports/{wwn}/port_attributes",
    "/v1/ports/{wwn}/server_attributes",
    "/v1/ports/{wwn}/driver_type",
    "/v1/ports/{wwn}/bind_type",
    "/v1/ports/{wwn}/initiator",
    "/v1/ports/{wwn}/nodes",
    "/v1/ports/{wwn}/virtual_ports",
    "/v1/ports/{wwn}/virtual_ports/{vport}/targets",
    "/v1/ports/{wwn}/iscsi_targets",
    "/v1/ports/{wwn}/iscsi_targets/refreshed",
    "/v1/ports/{wwn}/virtual_functions",
};

// The piece up to the next slash, taken off the front of `path`.
std::string_view TakePiece(std::string_view& path) {
  const std::size_t slash = path.find('/');
  const std::string_view piece = path.substr(0, slash);
  path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
  return piece;
}

bool TakeName(std::string_view piece, Wwn& name) {
  constexpr std::size_t kLength = 18;
  const std::optional<Wwn> parsed =
      piece.size() == kLength && piece.starts_with("0x") ? ParseWwn(piece) : std::nullopt;
  if (parsed.has_value()) name = *parsed;
  return parsed.has_value();
}

bool TakeNumber(std::string_view piece, unsigned int& number) {
  const char* const end = piece.data() + piece.size();
  const auto [stop, error] = std::from_chars(piece.data(), end, number);
  const bool isPlain = !piece.empty() && (piece.size() == 1 || piece.front() != '0');
  return isPlain && error == std::errc() && stop == end;
}

bool TakeVariable(std::string_view variable, std::string_view piece, WireQuery& query) {
  if (variable == kInstance) return TakeNumber(piece, query.instance);
  if (variable == kPort) return TakeName(piece, query.port);
  if (variable == kVirtualPort) return TakeName(piece, query.virtualPort);
  return variable == piece;
}

bool Matches(std::string_view pattern, std::string_view path, WireQuery& query) {
  if (path.ends_with('/')) return false;
  while (!pattern.empty() && !path.empty()) {
    const std::string_view variable = TakePiece(pattern);
    if (!TakeVariable(variable, TakePiece(path), query)) return false;
  }
  return pattern.empty() && path.empty();
}

}  // namespace

std::string WireName(const Wwn& name) {
  constexpr std::string_view kHex = "0123456789abcdef";
  std::string text = "0x";
  for (const std::uint8_t byte : name) {
    text += kHex[byte >> 4];
    text += kHex[byte & 0xF];
  }
  return text;
}

std::string PathOf(const WireQuery& query) {
  std::string path(kPatterns.at(static_cast<std::size_t>(query.question)));
  const auto fill = [&path](std::string_view variable, const std::string& text) {
    const std::size_t at = path.find(variable);
    if (at != std::string::npos) path.replace(at, variable.size(), text);
  };
  fill(kInstance, std::to_string(query.instance));
  fill(kPort, WireName(query.port));
  fill(kVirtualPort, WireName(query.virtualPort));
  return path;
}

std::optional<WireQuery> ParsePath(std::string_view path) {
  for (std::size_t i = 0; i < kPatterns.size(); ++i) {
    WireQuery query;
    query.question = static_cast<WireQuestion>(i);
    if (Matches(kPatterns[i], path, query)) return query;
  }
  return std::nullopt;
}

std::string PathPatterns() {
  std::string text;
  for (const std::string_view pattern : kPatterns) text.append(pattern) += '\n';
  return text;
}

}  // namespace provider

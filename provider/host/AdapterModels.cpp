#include "provider/host/AdapterModels.h"

#include <array>
#include <cstdio>

namespace provider {

namespace {

struct Model {
  std::uint32_t id;
  const char* text;
};

constexpr Model kModels[] = {
    {0x6A01, "Varnix VX3200 32Gb FC Adapter"},     {0x6A02, "Varnix VC2500 25Gb FCoE Function"},
    {0x6A03, "Varnix VC2501 25Gb iSCSI Function"}, {0x6A04, "Varnix VN2500 25Gb Ethernet Function"},
    {0x6A05, "Varnix VN2500R 25Gb RoCE Function"}, {0xFE05, "Varnix Mardel FC Adapter"},
    {0xFED5, "Varnix Mardel Dual FC Adapter"},
};

}  // namespace

std::string AdapterModelText(std::uint32_t modelId) {
  if (modelId == 0) return {};
  for (const Model& model : kModels) {
    if (model.id == modelId) return model.text;
  }
  std::array<char, 40> text;
  std::snprintf(text.data(), text.size(), "Varnix adapter 0x%04X", modelId);
  return text.data();
}

}  // namespace provider

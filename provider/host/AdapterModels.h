// Model numbers and their texts.
#ifndef PROVIDER_HOST_ADAPTERMODELS_H_
#define PROVIDER_HOST_ADAPTERMODELS_H_

#include <cstdint>
#include <string>

namespace provider {

// At most 79 characters; a model number that is not listed is spelled out. Empty for model number 0.
std::string AdapterModelText(std::uint32_t modelId);

}  // namespace provider

#endif  // PROVIDER_HOST_ADAPTERMODELS_H_

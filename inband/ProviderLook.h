// Tells the provider that a cycle goes on, if it wants to know: it may then answer from what it has read.
//
// Thread safety: one at a time.
#ifndef INBAND_PROVIDERLOOK_H_
#define INBAND_PROVIDERLOOK_H_

class ProviderLook {
 public:
  ProviderLook();
  ~ProviderLook();
  ProviderLook(const ProviderLook&) = delete;
  ProviderLook& operator=(const ProviderLook&) = delete;
};

#endif  // INBAND_PROVIDERLOOK_H_

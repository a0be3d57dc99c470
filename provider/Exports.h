// Everything that leaves librmapi.so. The library is built with hidden symbols; what is declared here is not.
//
// To be included first by each file that defines an exported name: the first declaration decides.
#ifndef PROVIDER_EXPORTS_H_
#define PROVIDER_EXPORTS_H_

#pragma GCC visibility push(default)
#include "provider/OpenProvider.h"
#include "rmapi/rmapi.h"
#pragma GCC visibility pop

#endif  // PROVIDER_EXPORTS_H_

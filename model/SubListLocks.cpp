#include "model/SubListLocks.h"

constinit CZylThreadLock g_VPTargetLock;
constinit CZylThreadLock g_TargetLock;
constinit CZylThreadLock g_VPortLock;
constinit CZylThreadLock g_VFListLock;

#include "krenvState.h"

RWMutexLock gIniFileMutex;

#include "krenvState.h"

VolatileEnvEntry g_volatileEnvTable[kVolatileEnvCapacity];
std::uint32_t g_uTableSize = 0;
int IniTable = 0;

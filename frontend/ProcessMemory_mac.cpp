#include "frontend/ProcessMemory.h"

void prepareProcessMemory() { }

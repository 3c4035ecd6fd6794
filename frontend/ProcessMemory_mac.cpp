#include "frontend/ProcessMemory.h"

void prepareProcessMemory(qint64) { }

#include "apiclient/ProcessorPin.h"

#include <cstring>
#include <sched.h>

ProcessorPin::ProcessorPin()
{
    cpu_set_t all;
    const int current = sched_getcpu();
    if (current < 0 || current >= CPU_SETSIZE || sched_getaffinity(0, sizeof all, &all) != 0) {
        return;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(size_t(current), &one);
    if (sched_setaffinity(0, sizeof one, &one) == 0) {
        former = QByteArray(reinterpret_cast<const char*>(&all), sizeof all);
    }
}

ProcessorPin::~ProcessorPin()
{
    if (!former.isEmpty()) {
        cpu_set_t all;
        std::memcpy(&all, former.constData(), sizeof all);
        sched_setaffinity(0, sizeof all, &all);
    }
}

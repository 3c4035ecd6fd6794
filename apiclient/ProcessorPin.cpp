#include "apiclient/ProcessorPin.h"

#ifdef Q_OS_LINUX

ProcessorPin::ProcessorPin()
{
    const int current = sched_getcpu();
    if (current < 0 || current >= CPU_SETSIZE
        || sched_getaffinity(0, sizeof before, &before) != 0) {
        return;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(size_t(current), &one);
    pinned = sched_setaffinity(0, sizeof one, &one) == 0;
}

ProcessorPin::~ProcessorPin()
{
    if (pinned) {
        sched_setaffinity(0, sizeof before, &before);
    }
}

#else

ProcessorPin::ProcessorPin() = default;
ProcessorPin::~ProcessorPin() = default;

#endif

#include "frontend/ProcessMemory.h"

#include <cstdlib>
#include <limits>
#include <malloc.h>
#include <memory>
#include <sys/mman.h>

void prepareProcessMemory(qint64 argsFileSize)
{
    constexpr qint64 largeArgsFile = qint64(1024) * 1024;
    if (argsFileSize < largeArgsFile) {
        return; // Preparing would take longer than it saves.
    }
    // One heap for both threads that keeps what is freed: a long document passes through it
    // several times over, and each page that the system takes back has to be faulted in again.
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    // Without the lists of small freed pieces that are only joined when a large one is asked for:
    // variants are freed while field codes are made, so every citation would walk them.
    mallopt(M_MXFAST, 0);

    // In small pages, faults are a quarter of the time that a long document takes. A run needs
    // four times its argument file; room that is not touched is address space and no memory.
    constexpr size_t hugePageSize = size_t(2) * 1024 * 1024;
    const size_t roomSize = 6 * size_t(argsFileSize);
    void* const room = std::malloc(roomSize);
    if (room != nullptr) {
        void* start = room;
        size_t space = roomSize;
        if (std::align(hugePageSize, hugePageSize, start, space) != nullptr) {
            madvise(start, space, MADV_HUGEPAGE);
        }
        std::free(room);
    }
}

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

/// Preloaded into a program, this fails its call of pthread_create() number FAIL_THREAD_START,
/// counted from 1, as if the system allowed no further thread. It then creates the file
/// FAILED_THREAD_START_REPORT. All other calls go to the C library.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
    void* (*start)(void*), void* argument) noexcept
{
    static std::atomic<int> callCount{0};
    const char* const failingCall = std::getenv("FAIL_THREAD_START");
    const char* const report = std::getenv("FAILED_THREAD_START_REPORT");
    if (failingCall != nullptr && report != nullptr && ++callCount == std::atoi(failingCall)) {
        close(open(report, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        return EAGAIN;
    }
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return create(thread, attributes, start, argument);
}

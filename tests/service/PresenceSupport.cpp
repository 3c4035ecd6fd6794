#include "tests/service/PresenceSupport.h"

#include "apiclient/QtNetworkClient.h"
#include "service/DesktopApplication.h"

#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <pthread.h>

FakeSystem fakeSystem;

int openDesktopApplication()
{
    ++fakeSystem.startCount;
    return fakeSystem.startStatus;
}

extern "C" int usleep(useconds_t microseconds)
{
    fakeSystem.pauses.append(microseconds);
    if (fakeSystem.pausesAreReal) {
        const timespec time{0, long(microseconds) * 1000};
        nanosleep(&time, nullptr);
    }
    return 0;
}

extern "C" int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument)
{
    if (fakeSystem.threadStartsToFail > 0) {
        --fakeSystem.threadStartsToFail;
        return EAGAIN;
    }
    using Function = decltype(&pthread_create);
    static const auto original = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_create"));
    return original(thread, attributes, run, argument);
}

ThreadMessageFilter::ThreadMessageFilter()
    : replaced(
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
            if (message.startsWith(QLatin1String("QThread::start: "))) {
                QtNetworkClient::countFailedThreadStart();
            }
        }))
{
}

ThreadMessageFilter::~ThreadMessageFilter()
{
    qInstallMessageHandler(replaced);
}

void PresenceTest::init()
{
    server.reset();
    fakeSystem = FakeSystem();
}

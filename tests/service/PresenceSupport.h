#pragma once

#include "tests/service/ServiceTest.h"

#include <QVector>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

/// What openDesktopApplication(), usleep() and pthread_create() return in these tests, and how they
/// were called. PresenceSupport.cpp replaces the three functions in the test's program.
struct FakeSystem {
    int startStatus = 0;
    int startCount = 0;
    bool pausesAreReal = false;
    QVector<useconds_t> pauses;
    int threadStartsToFail = 0;
};

extern FakeSystem fakeSystem;

/// A process that runs until the destructor or end().
class RunningProcess {
public:
    RunningProcess()
        : processId(fork())
    {
        if (processId == 0) {
            // The process must not outlive a test that is aborted.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;) {
                pause();
            }
        }
    }
    ~RunningProcess() { end(); }
    Q_DISABLE_COPY(RunningProcess)

    void end()
    {
        if (!hasEnded) {
            ::kill(processId, SIGKILL);
            waitpid(processId, nullptr, 0);
            hasEnded = true;
        }
    }
    pid_t id() const { return processId; }

private:
    const pid_t processId;
    bool hasEnded = false;
};

/// While it exists, reports failed thread starts to the transport, as the program's message filter
/// does.
class ThreadMessageFilter {
public:
    ThreadMessageFilter();
    ~ThreadMessageFilter();
    Q_DISABLE_COPY(ThreadMessageFilter)

private:
    const QtMessageHandler replaced;
};

/// Base of the tests. The path and the replies are those of the request for the process id.
class PresenceTest : public ServiceTest {
    Q_OBJECT

protected:
    static ScriptedReply processIdReply(const QByteArray& processId)
    {
        return ScriptedReply::json("{\"processId\":" + processId + '}');
    }
    static ScriptedReply processIdReply(qint64 processId)
    {
        return processIdReply(QByteArray::number(processId));
    }

    const QByteArray path = "/tessaronDesktopInfo";

private Q_SLOTS:
    void init();
};

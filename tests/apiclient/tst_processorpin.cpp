#include "apiclient/ProcessorPin.h"
#include "tests/apiclient/NetworkFixture.h"
#include "tests/support/Texts.h"

#include <QDir>
#include <QMap>
#include <QTimer>
#include <QtTest>

#include <cerrno>
#include <dlfcn.h>
#include <sched.h>
#include <unistd.h>

namespace {

bool& mayNotPin()
{
    static bool forbidden = false;
    return forbidden;
}

/// The processors on which a thread may run, 0 for the calling one.
QList<int> processors(pid_t thread = 0)
{
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(thread, sizeof allowed, &allowed);
    QList<int> numbers;
    for (int number = 0; number < CPU_SETSIZE; ++number) {
        if (CPU_ISSET(size_t(number), &allowed)) {
            numbers << number;
        }
    }
    return numbers;
}

/// The processors of each of this process's threads.
QMap<pid_t, QList<int>> processorsByThread()
{
    QMap<pid_t, QList<int>> byThread;
    const QStringList threads =
        QDir(text("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& thread : threads) {
        byThread[thread.toInt()] = processors(thread.toInt());
    }
    return byThread;
}

} // namespace

/// Replaces the C library's function in this program.
extern "C" int sched_setaffinity(pid_t thread, size_t size, const cpu_set_t* allowed) noexcept
{
    static const auto original =
        reinterpret_cast<decltype(&sched_setaffinity)>(dlsym(RTLD_NEXT, "sched_setaffinity"));
    if (mayNotPin()) {
        errno = EPERM;
        return -1;
    }
    return original(thread, size, allowed);
}

// ProcessorPin, and its use by requests.
class tst_ProcessorPin : public QObject, private NetworkFixture {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { setUp(); }
    void cleanup() { QCOMPARE(tearDown(), QString()); }

    void pinsUntilDestroyed();
    void pinsInsidePin();
    void keepsRequestOnOneProcessor();
    void sendsRequestIfPinningFails();

private:
    QMap<pid_t, QList<int>> processorsDuringRequest();

    QList<int> all;
};

void tst_ProcessorPin::initTestCase()
{
    all = processors();
    if (all.size() < 2) {
        QSKIP("Needs two processors.");
    }
}

void tst_ProcessorPin::pinsUntilDestroyed()
{
    {
        const ProcessorPin pin;
        const QList<int> pinned = processors();
        QCOMPARE(pinned.size(), 1);
        QVERIFY(all.contains(pinned.first()));
    }
    QCOMPARE(processors(), all);
}

void tst_ProcessorPin::pinsInsidePin()
{
    {
        const ProcessorPin outer;
        const QList<int> pinned = processors();
        {
            const ProcessorPin inner;
            QCOMPARE(processors(), pinned);
        }
        QCOMPARE(processors(), pinned);
    }
    QCOMPARE(processors(), all);
}

/// Sends a request. Returns the processors of the threads while it waits for its reply.
QMap<pid_t, QList<int>> tst_ProcessorPin::processorsDuringRequest()
{
    QMap<pid_t, QList<int>> during;
    QTimer::singleShot(0, this, [&during] { during = processorsByThread(); });
    server->expect("GET", "/a", ScriptedReply::json("{}"));
    return client->get(text("/a")).status == 200 ? during : QMap<pid_t, QList<int>>();
}

void tst_ProcessorPin::keepsRequestOnOneProcessor()
{
    const QMap<pid_t, QList<int>> before = processorsByThread();
    const QMap<pid_t, QList<int>> during = processorsDuringRequest();
    const QList<int> own = during.value(getpid());
    QCOMPARE(own.size(), 1);
    QVERIFY(during.size() > before.size());
    for (auto thread = during.cbegin(); thread != during.cend(); ++thread) {
        if (!before.contains(thread.key())) {
            QCOMPARE(thread.value(), own);
        }
    }
    QCOMPARE(processors(), all);
}

void tst_ProcessorPin::sendsRequestIfPinningFails()
{
    mayNotPin() = true;
    const QMap<pid_t, QList<int>> during = processorsDuringRequest();
    mayNotPin() = false;
    QCOMPARE(during.value(getpid()), all);
    QCOMPARE(processors(), all);
}

QTEST_GUILESS_MAIN(tst_ProcessorPin)
#include "tst_processorpin.moc"

#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/KilledRun.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"
#include "tests/support/UuidServer.h"

#include <QtTest>

#include <csignal>
#include <sys/ptrace.h>
#include <sys/wait.h>

namespace {

constexpr char command[] = "getUserUuid";
constexpr int idLength = 300 * 1024; // more than one write

/// Lets the traced process run to the start or end of its next system call. Returns false if the
/// process ended.
bool continueToSystemCall(pid_t process)
{
    constexpr int systemCall = SIGTRAP | 0x80;
    int status = 0;
    long signal = 0;
    do {
        if (ptrace(PTRACE_SYSCALL, process, nullptr, signal) != 0
            || waitpid(process, &status, 0) != process || !WIFSTOPPED(status)) {
            return false;
        }
        // SIGTRAP reports the exec to the tracer. All other signals are passed on.
        signal = WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status);
    } while (WSTOPSIG(status) != systemCall);
    return true;
}

} // namespace

/// The program is killed before and after every system call of its main thread, from the creation
/// of the results' side file to the end of the run. Random kills rarely hit these moments.
class tst_KillPoints : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void leavesCompleteFilesAtEverySystemCall_data();
    void leavesCompleteFilesAtEverySystemCall();

private:
    /// Kills a run at stop number `point`. The stops are the start and the end of each system call,
    /// counted from when the side file exists. Returns false if the run ended first.
    bool runTo(int point);

    TemporaryHome home;
    UuidServer server{idLength};
    ExchangeFolder folder;
};

bool tst_KillPoints::runTo(int point)
{
    const pid_t process = startBridge(command, folder, true);
    int status = 0;
    waitpid(process, &status, 0);
    ptrace(
        PTRACE_SETOPTIONS, process, nullptr, long(PTRACE_O_TRACESYSGOOD) | long(PTRACE_O_EXITKILL));
    const QString sideFile = folder.resultsPath() + text(".temp");
    bool writes = false;
    for (int passed = 0; passed <= point;) {
        if (!continueToSystemCall(process)) {
            return false;
        }
        writes = writes || QFile::exists(sideFile);
        passed += int(writes);
    }
    kill(process, SIGKILL);
    waitpid(process, &status, 0);
    return true;
}

void tst_KillPoints::leavesCompleteFilesAtEverySystemCall_data()
{
    QTest::addColumn<QByteArray>("oldResults");
    QTest::addColumn<QByteArray>("oldReady");
    QTest::newRow("first command in a folder") << QByteArray() << QByteArray();
    QTest::newRow("files of an earlier command") << QByteArray("old results") << QByteArray("old");
    QTest::newRow("results of an earlier command") << QByteArray("old results") << QByteArray();
}

void tst_KillPoints::leavesCompleteFilesAtEverySystemCall()
{
    QFETCH(QByteArray, oldResults);
    QFETCH(QByteArray, oldReady);
    server.setLength(idLength);
    folder.putArguments({});
    const ExchangeState state{
        oldResults, oldReady, server.results(idLength), utf16le(QString::number(2 * idLength))};
    int point = 0;
    bool killed = true;
    for (; killed; ++point) {
        QFile::remove(folder.resultsPath() + text(".temp"));
        QFile::remove(folder.readyPath() + text(".temp"));
        prepareFolder(folder, state);
        killed = runTo(point);
        QCOMPARE(problemAfterKill(folder, state), QByteArray());
    }
    // The last run was not killed.
    QVERIFY(folder.results() == state.newResults);
    QCOMPARE(folder.ready(), state.newReady);
    QCOMPARE(folder.names().size(), 3);
    qInfo("killed at %d points", point - 1);
    QVERIFY(point > 20);
}

QTEST_GUILESS_MAIN(tst_KillPoints)
#include "tst_killpoints.moc"

#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/FolderWatch.h"
#include "tests/support/KilledRun.h"
#include "tests/support/Scale.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"
#include "tests/support/UuidServer.h"

#include <QElapsedTimer>
#include <QtTest>

#include <cmath>
#include <csignal>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int longestId = 25 * 1024 * 1024; // 50 MB of results
constexpr char command[] = "getUserUuid";

/// Counts of kills during and after a run, and of the files they left behind.
struct Counts {
    int killed = 0;
    int endedBefore = 0;
    int sideFile = 0;
    int noResults = 0;
    int newResults = 0;
    int newReady = 0;
};

} // namespace

/// The program is killed at a random moment: the files it leaves are complete, and the next run
/// works.
class tst_Kills : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void leavesCompleteFiles_data();
    void leavesCompleteFiles();
    void cleanupTestCase();

private:
    QByteArray wholeRun(int length);
    QByteArray killedRun(const ExchangeState& state);
    void waitForRandomMoment(pid_t child, int length);
    qint64 random(qint64 largest) { return qint64(generator() % quint64(largest + 1)); }
    int randomLength();
    void count(const ExchangeState& state, int waitStatus);

    TemporaryHome home;
    UuidServer server{longestId};
    ExchangeFolder folder;
    std::mt19937_64 generator = seededGenerator();
    Counts counts;
    double lastRunUs = 0;
    double shortRunUs = 0;
    double longRunUs = 0;
    // The longest delay in relation to the run. Adapted so that most runs are killed before their
    // end.
    double pace = 1;
};

void tst_Kills::initTestCase()
{
    home.writePort(server.port());
    folder.putArguments({});
    QCOMPARE(wholeRun(0), QByteArray());
    shortRunUs = lastRunUs;
    QCOMPARE(wholeRun(longestId), QByteArray());
    longRunUs = lastRunUs;
}

/// Runs the program to its end. Returns what is wrong with its files.
QByteArray tst_Kills::wholeRun(int length)
{
    server.setLength(length);
    QElapsedTimer timer;
    timer.start();
    int status = -1;
    waitpid(startBridge(command, folder), &status, 0);
    lastRunUs = double(timer.nsecsElapsed()) / 1000;
    if (status != 0) {
        return "a run ended with " + QByteArray::number(status);
    }
    if (folder.results() != server.results(length)
        || folder.ready() != utf16le(QString::number(2 * length))) {
        return "a run after a kill did not write its files";
    }
    return folder.names().size() == 3 ? "" : "a run after a kill left other files";
}

int tst_Kills::randomLength()
{
    switch (random(9)) {
    case 0:
        return 0;
    case 1:
        return longestId;
    default: // evenly distributed over the orders of magnitude
        return int(std::exp(double(random(1000)) / 1000 * std::log(double(longestId))));
    }
}

/// Waits until a random moment of the run of `child`. In half of the runs with large results, the
/// moment is one at which they are written. Returns early if `child` ends.
void tst_Kills::waitForRandomMoment(pid_t child, int length)
{
    const FolderWatch watch(folder.path());
    const double share = double(length) / longestId;
    double longest = pace * (shortRunUs + (longRunUs - shortRunUs) * share);
    if (length > longestId / 20 && random(1) == 0) {
        watch.waitFor(text("mac-word-plugin-results.txt.temp"));
        longest /= 8;
    }
    const qint64 waitUs = random(qint64(longest));
    const timespec wait{waitUs / 1000000, waitUs % 1000000 * 1000};
    pollfd end{int(syscall(SYS_pidfd_open, child, 0)), POLLIN, 0};
    ppoll(&end, 1, &wait, nullptr);
    close(end.fd);
}

void tst_Kills::count(const ExchangeState& state, int waitStatus)
{
    const bool wasKilled = WIFSIGNALED(waitStatus);
    ++(wasKilled ? counts.killed : counts.endedBefore);
    // The duration of a run changes with the machine's load.
    pace *= wasKilled ? 1.05 : 0.85;
    counts.sideFile += int(QFile::exists(folder.resultsPath() + text(".temp")));
    const QFileInfo results(folder.resultsPath());
    counts.noResults += int(!results.exists());
    counts.newResults += int(results.exists() && results.size() == state.newResults.size());
    counts.newReady += int(folder.ready() == state.newReady);
}

/// Kills a run. Returns what is wrong with its files.
QByteArray tst_Kills::killedRun(const ExchangeState& state)
{
    const int length = state.newResults.size() / 2;
    server.setLength(length);
    prepareFolder(folder, state);
    const pid_t child = startBridge(command, folder);
    waitForRandomMoment(child, length);
    kill(child, SIGKILL);
    int status = -1;
    waitpid(child, &status, 0);
    count(state, status);
    return problemAfterKill(folder, state);
}

void tst_Kills::leavesCompleteFiles_data()
{
    // Several rows, because Qt Test limits the duration of each to five minutes.
    QTest::addColumn<int>("kills");
    const int rows = rounds(3, 50);
    for (int row = 1; row <= rows; ++row) {
        QTest::addRow("%d kills", 20 * row) << 20 * row;
    }
}

void tst_Kills::leavesCompleteFiles()
{
    QFETCH(int, kills);
    while (counts.killed < kills) {
        // Some kills come after the end of the run. If most do, the moments are chosen badly.
        QVERIFY(counts.endedBefore < 20 + 2 * kills);
        ExchangeState state;
        if (random(1) == 0) {
            state.oldResults = "old results, of an odd length";
            state.oldReady = "old";
        }
        const int length = randomLength();
        state.newResults = server.results(length);
        state.newReady = utf16le(QString::number(2 * length));
        QCOMPARE(killedRun(state), QByteArray());
        QCOMPARE(wholeRun(int(random(1000))), QByteArray());
    }
}

void tst_Kills::cleanupTestCase()
{
    qInfo(
        "%d kills came during the run, %d too late. They left a side file of the results %d times, "
        "no results %d times, the new results %d times, the new ready file %d times.",
        counts.killed, counts.endedBefore, counts.sideFile, counts.noResults, counts.newResults,
        counts.newReady);
    if (counts.killed > 0) {
        // Only a kill in the middle of a run leaves these.
        QVERIFY(counts.sideFile > 0);
        QVERIFY(counts.noResults > 0);
    }
}

QTEST_GUILESS_MAIN(tst_Kills)
#include "tst_kills.moc"

#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
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
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int longestId = 25 * 1024 * 1024; // 50 MB of results
constexpr char command[] = "getUserUuid";

/// Tells when a name appears in a folder.
class Watch {
public:
    explicit Watch(const QString& folder)
    {
        inotify_add_watch(
            queue, QFile::encodeName(folder).constData(), IN_CREATE | IN_MODIFY | IN_MOVED_TO);
    }
    ~Watch() { close(queue); }
    Q_DISABLE_COPY(Watch)

    /// Returns false when `name` did not appear within a minute.
    bool waitFor(const QByteArray& name) const
    {
        pollfd ready{queue, POLLIN, 0};
        while (poll(&ready, 1, 60000) == 1) {
            alignas(inotify_event) char bytes[8192];
            const ssize_t size = read(queue, bytes, sizeof bytes);
            for (ssize_t at = 0; at < size;) {
                const auto* const event = reinterpret_cast<const inotify_event*>(bytes + at);
                if (name == event->name) {
                    return true;
                }
                at += ssize_t(sizeof *event + event->len);
            }
        }
        return false;
    }

private:
    const int queue = inotify_init1(IN_CLOEXEC);
};

/// How often the kills met which moment.
struct Tally {
    int killed = 0;
    int ended = 0;
    int sideFile = 0;
    int noResults = 0;
    int newResults = 0;
    int readyToo = 0;
};

} // namespace

/// The program is killed at any moment: what it leaves is whole, and the next run works.
class tst_Kills : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void killedAnywhere_data();
    void killedAnywhere();
    void cleanupTestCase();

private:
    QByteArray wholeRun(int length);
    QByteArray killedRun(const ExchangeState& state);
    void waitForAMoment(pid_t child, int length);
    qint64 random(qint64 largest) { return qint64(generator() % quint64(largest + 1)); }
    int randomLength();
    void count(const ExchangeState& state, int waitStatus);

    TemporaryHome home;
    UuidServer server{longestId};
    ExchangeFolder folder;
    std::mt19937_64 generator = seededGenerator();
    Tally tally;
    double lastRunUs = 0;
    double shortRunUs = 0;
    double longRunUs = 0;
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

/// A run that is left alone; returns what is wrong with what it wrote.
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
    default: // as many small ones as large ones
        return int(std::exp(double(random(1000)) / 1000 * std::log(double(longestId))));
    }
}

/// Waits for a random moment of the run of `child` or, for results that take a while to write, of
/// that while; not longer than it runs.
void tst_Kills::waitForAMoment(pid_t child, int length)
{
    const Watch watch(folder.path());
    const double share = double(length) / longestId;
    double longest = pace * (shortRunUs + (longRunUs - shortRunUs) * share);
    if (length > longestId / 20 && random(1) == 0) {
        watch.waitFor("mac-word-plugin-results.txt.temp");
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
    ++(wasKilled ? tally.killed : tally.ended);
    // The machine's load changes, and with it how long a run takes.
    pace *= wasKilled ? 1.05 : 0.85;
    tally.sideFile += int(QFile::exists(folder.resultsPath() + text(".temp")));
    const QFileInfo results(folder.resultsPath());
    tally.noResults += int(!results.exists());
    tally.newResults += int(results.exists() && results.size() == state.newResults.size());
    tally.readyToo += int(folder.ready() == state.newReady);
}

/// Returns what is wrong with what a killed run left.
QByteArray tst_Kills::killedRun(const ExchangeState& state)
{
    const int length = state.newResults.size() / 2;
    server.setLength(length);
    prepareFolder(folder, state);
    const pid_t child = startBridge(command, folder);
    waitForAMoment(child, length);
    kill(child, SIGKILL);
    int status = -1;
    waitpid(child, &status, 0);
    count(state, status);
    return wrongness(folder, state);
}

void tst_Kills::killedAnywhere_data()
{
    // In rows, because Qt Test ends a function after five minutes.
    QTest::addColumn<int>("kills");
    const int rows = rounds(3, 50);
    for (int row = 1; row <= rows; ++row) {
        QTest::newRow(QByteArray::number(row).constData()) << 20 * row;
    }
}

void tst_Kills::killedAnywhere()
{
    QFETCH(int, kills);
    while (tally.killed < kills) {
        // Some come too late; if most did, the moments would not be what this test says.
        QVERIFY(tally.ended < 20 + 2 * kills);
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
    qInfo("%d kills met a running program, %d came too late. They left a side file of the results "
          "%d times, no results %d, the new results %d, the new ready file too %d.",
        tally.killed, tally.ended, tally.sideFile, tally.noResults, tally.newResults,
        tally.readyToo);
    if (tally.killed > 0) {
        // Only kills in the middle leave these; others would show nothing.
        QVERIFY(tally.sideFile > 0);
        QVERIFY(tally.noResults > 0);
    }
}

QTEST_GUILESS_MAIN(tst_Kills)
#include "tst_kills.moc"

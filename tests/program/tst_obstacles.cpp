#include "tests/support/BridgeRun.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int noDisk = 77;

/// What stands in the way of a file.
enum Obstacle {
    OldFile,
    FolderAtSidePath,
    ReadOnlySideFile,
    ReadOnlyTarget,
    EmptyFolderAtTarget,
    FullFolderAtTarget,
    LinkToNowhereAtSidePath,
    TargetOfAnotherUser, ///< in a folder where everybody may only delete what is their own
};

/// What becomes of the file.
enum Fate {
    Written,
    NotMade, ///< -1 with a warning, the old file untouched
    NotReplaced, ///< success although the old file stays and the new one is beside it
};

void putObstacle(Obstacle obstacle, const QString& path)
{
    const QString sidePath = path + text(".temp");
    putFile(path, "old");
    switch (obstacle) {
    case OldFile:
        break;
    case FolderAtSidePath:
        QDir().mkpath(sidePath);
        break;
    case ReadOnlySideFile:
        putFile(sidePath, "left over");
        chmod(QFile::encodeName(sidePath).constData(), 0444);
        break;
    case ReadOnlyTarget:
        chmod(QFile::encodeName(path).constData(), 0444);
        break;
    case EmptyFolderAtTarget:
    case FullFolderAtTarget:
        QFile::remove(path);
        QDir().mkpath(obstacle == EmptyFolderAtTarget ? path : path + text("/kept"));
        break;
    case LinkToNowhereAtSidePath:
        QFile::link(text("/nonexistent/folder/file"), sidePath);
        break;
    case TargetOfAnotherUser:
        chmod(QFile::encodeName(QFileInfo(path).path()).constData(), 01777);
        break;
    }
}

void chownToRoot(const QString& path)
{
    if (chown(QFile::encodeName(path).constData(), 0, gid_t(-1)) != 0) {
        qFatal("Cannot take %s back", qPrintable(path));
    }
}

QByteArray cannotWrite(const QString& path)
{
    return "Unable to write args file \"" + path.toUtf8() + "\"\n";
}

/// Whether the file at `path` met `fate`: `bytes` is what was to be written, `wasFolder` whether
/// a folder stood there.
bool met(Fate fate, const QString& path, const QByteArray& bytes, bool wasFolder)
{
    const QString sidePath = path + text(".temp");
    switch (fate) {
    case Written:
        return bytesOf(path) == bytes && !QFileInfo(sidePath).isFile();
    case NotMade:
        return wasFolder ? QFileInfo(path).isDir() : bytesOf(path) == "old";
    case NotReplaced:
        return (wasFolder ? QFileInfo(path).isDir() : bytesOf(path) == "old")
            && bytesOf(sidePath) == bytes;
    }
    return false;
}

} // namespace

/// Something stands in the way of a file, or there is no room for it: the macro gets the answer
/// that belongs to it, and what was there stays whole.
class tst_Obstacles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void obstacles_data();
    void obstacles();
    void fileSizeLimits_data();
    void fileSizeLimits();
    void fullDisks_data();
    void fullDisks();

private:
    QByteArray wrongAnswer(Obstacle obstacle, Fate fate, bool atReady, bool ordinaryUser) const;

    TemporaryHome home;
    ExchangeFolder programs;
};

void tst_Obstacles::obstacles_data()
{
    QTest::addColumn<int>("obstacle");
    QTest::addColumn<int>("fate"); // for both users, or for root
    QTest::addColumn<int>("fateOfOrdinaryUser");
    const auto row = [](const char* name, Obstacle obstacle, Fate fate, Fate fateOfOrdinaryUser) {
        QTest::newRow(name) << int(obstacle) << int(fate) << int(fateOfOrdinaryUser);
    };
    row("an old file", OldFile, Written, Written);
    row("a folder at the side path", FolderAtSidePath, NotMade, NotMade);
    row("a side file that is only read", ReadOnlySideFile, Written, NotMade);
    row("an old file that is only read", ReadOnlyTarget, Written, Written);
    row("an empty folder", EmptyFolderAtTarget, NotReplaced, NotReplaced);
    row("a folder that holds something", FullFolderAtTarget, NotReplaced, NotReplaced);
    row("a link to nowhere at the side path", LinkToNowhereAtSidePath, NotMade, NotMade);
    row("an old file of another user", TargetOfAnotherUser, Written, NotReplaced);
}

void tst_Obstacles::obstacles()
{
    QFETCH(int, obstacle);
    QFETCH(int, fate);
    QFETCH(int, fateOfOrdinaryUser);
    const bool isRoot = geteuid() == 0;
    if (!isRoot && obstacle == TargetOfAnotherUser) {
        QSKIP("Only root can leave a file of another user.");
    }
    for (const bool atReady : {false, true}) {
        if (isRoot) {
            QCOMPARE(wrongAnswer(Obstacle(obstacle), Fate(fate), atReady, false), QByteArray());
        }
        QCOMPARE(
            wrongAnswer(Obstacle(obstacle), Fate(fateOfOrdinaryUser), atReady, true), QByteArray());
    }
}

/// Runs the program with `obstacle` in the way of the ready file or of the results, and returns
/// what it did otherwise than `fate` says.
QByteArray tst_Obstacles::wrongAnswer(
    Obstacle obstacle, Fate fate, bool atReady, bool ordinaryUser) const
{
    const ExchangeFolder folder;
    folder.putArguments({});
    const QString path = atReady ? folder.readyPath() : folder.resultsPath();
    putObstacle(obstacle, path);
    if (ordinaryUser) {
        giveToOrdinaryUser(folder.path());
        if (obstacle == TargetOfAnotherUser) {
            // Everybody may write here and delete what is their own.
            chownToRoot(folder.path());
        }
    }
    const bool wasFolder = obstacle == EmptyFolderAtTarget || obstacle == FullFolderAtTarget;
    const BridgeOutcome run = runBridge({text("hasManualEdit"), folder.path()},
        ordinaryUser ? BridgeStart::asOrdinaryUser(programs.path()) : BridgeStart());
    const QByteArray status = !atReady && fate == NotMade ? "-1" : "10";
    const QByteArray ready = utf16le(QString::fromLatin1(status));
    const QByteArray results = utf16le(text("false"));
    if (run.exitStatus != 0 || run.output != status + '\n'
        || run.errors != (fate == NotMade ? cannotWrite(path) : QByteArray())) {
        return "status " + QByteArray::number(run.exitStatus) + ": " + run.output + run.errors;
    }
    if (!met(fate, path, atReady ? ready : results, wasFolder)) {
        return "the file has another fate";
    }
    return (atReady ? folder.results() == results : folder.ready() == ready) ? "" : "other file";
}

void tst_Obstacles::fileSizeLimits_data()
{
    QTest::addColumn<QString>("command"); // "hasManualEdit" has 10 bytes of results, "none" 0
    QTest::addColumn<int>("limit");
    QTest::addColumn<QByteArray>("ready");
    QTest::addColumn<QStringList>("sideFiles");
    const QString results = text("mac-word-plugin-results.txt.temp");
    const QString ready = text("mac-word-plugin-result-ready.txt.temp");
    const auto row = [](const char* name, const char* command, int limit, const QByteArray& bytes,
                         const QStringList& sideFiles) {
        QTest::newRow(name) << text(command) << limit << bytes << sideFiles;
    };
    row("all fits", "hasManualEdit", 10, QByteArray("1\0000\0", 4), {});
    row("the results do not fit", "hasManualEdit", 9, QByteArray("-\0001\0", 4), {results});
    row("the failure's status just fits", "hasManualEdit", 4, QByteArray("-\0001\0", 4), {results});
    row("neither fits", "hasManualEdit", 3, "old", {ready, results});
    row("no byte may be written", "hasManualEdit", 0, "old", {ready, results});
    row("empty results fit", "none", 2, QByteArray("0\0", 2), {});
    row("the ready file does not fit", "none", 1, "old", {ready});
    row("no byte of the ready file fits", "none", 0, "old", {ready});
}

void tst_Obstacles::fileSizeLimits()
{
    QFETCH(QString, command);
    QFETCH(int, limit);
    QFETCH(QByteArray, ready);
    QFETCH(QStringList, sideFiles);
    const ExchangeFolder folder;
    folder.putArguments({});
    putFile(folder.resultsPath(), "old");
    putFile(folder.readyPath(), "old");
    // Output into a file is limited too; nobody is told, and nothing else changes.
    const QString output = home.path(text("output"));
    const BridgeOutcome run =
        runBridge({command, folder.path()}, BridgeStart::prepared([limit, &output] {
            (void)!freopen(QFile::encodeName(output).constData(), "w", stdout);
            limitFileSize(quint64(limit));
        }));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.ready(), ready);
    const QByteArray whole = command == text("none") ? QByteArray() : utf16le(text("false"));
    const bool written = sideFiles.filter(text("results")).isEmpty();
    QCOMPARE(folder.results(), written ? whole : QByteArray("old"));
    QStringList expected{text("mac-word-plugin-args.txt"), text("mac-word-plugin-result-ready.txt"),
        text("mac-word-plugin-results.txt")};
    expected << sideFiles;
    expected.sort();
    QCOMPARE(folder.names(), expected);
    const QByteArray status = written ? QByteArray::number(whole.size()) : QByteArray("-1");
    QCOMPARE(bytesOf(output), (status + '\n').left(limit));
}

void tst_Obstacles::fullDisks_data()
{
    QTest::addColumn<int>("pages");
    QTest::addColumn<QByteArray>("left");
    const QByteArray args = "mac-word-plugin-args.txt 0\n";
    const QByteArray ready = "mac-word-plugin-result-ready.txt";
    const QByteArray results = "mac-word-plugin-results.txt";
    QTest::newRow("no room for the output")
        << 2 << args + ready + " 4\n" + results + " 10\nout 0\n";
    QTest::newRow("no room for the ready file and the output")
        << 1 << args + ready + ".temp 0\n" + results + " 10\nout 0\n";
}

void tst_Obstacles::fullDisks()
{
    QFETCH(int, pages);
    QFETCH(QByteArray, left);
    const ExchangeFolder folder;
    const int size = pages * int(sysconf(_SC_PAGESIZE));
    BridgeStart onSmallDisk = BridgeStart::prepared([&folder, size] {
        if (!mountSmallDisk(QFile::encodeName(folder.path()), size)) {
            _exit(noDisk);
        }
        folder.putArguments({});
    });
    // The disk is gone with the last process that sees it, so that process has to look.
    onSmallDisk.shellCommand = text(R"sh(
        cd "$2"; "$0" "$@" > out; status=$?
        for name in *; do echo "$name $(stat -c %s "$name")"; done
        exit $status)sh");
    onSmallDisk.environment.insert(text("LC_ALL"), text("C"));
    const BridgeOutcome run = runBridge({text("hasManualEdit"), folder.path()}, onSmallDisk);
    if (run.exitStatus == noDisk) {
        QSKIP("This user may not mount a disk of its own.");
    }
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, left);
    QCOMPARE(run.exitStatus, 0);
}

QTEST_GUILESS_MAIN(tst_Obstacles)
#include "tst_obstacles.moc"

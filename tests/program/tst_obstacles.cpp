#include "tests/support/BridgeRun.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <unistd.h>

/// What the program prints and what the macro finds if the results file or the ready file cannot be
/// written or replaced. tst_argsfile_failures tests all the causes.
class tst_Obstacles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void reportsFileThatCannotBeWritten_data();
    void reportsFileThatCannotBeWritten();
    void keepsFolderInPlaceOfFile_data();
    void keepsFolderInPlaceOfFile();
    void keepsOldFilesAtFileSizeLimit_data();
    void keepsOldFilesAtFileSizeLimit();
    void survivesFullDisk_data();
    void survivesFullDisk();

private:
    TemporaryHome home;
};

void tst_Obstacles::reportsFileThatCannotBeWritten_data()
{
    QTest::addColumn<bool>("resultsBlocked");
    QTest::addColumn<bool>("readyBlocked");
    QTest::newRow("results file") << true << false;
    QTest::newRow("ready file") << false << true;
    QTest::newRow("both files") << true << true;
}

void tst_Obstacles::reportsFileThatCannotBeWritten()
{
    QFETCH(bool, resultsBlocked);
    QFETCH(bool, readyBlocked);
    const ExchangeFolder folder;
    folder.putArguments({});
    putFile(folder.resultsPath(), "old results");
    putFile(folder.readyPath(), "old status");
    QByteArray errors;
    const auto block = [&errors](const QString& path) {
        QDir().mkpath(path + text(".temp"));
        errors += "Unable to write args file \"" + path.toUtf8() + "\"\n";
    };
    if (resultsBlocked) {
        block(folder.resultsPath());
    }
    if (readyBlocked) {
        block(folder.readyPath());
    }
    const BridgeOutcome run = runCommand("hasManualEdit", folder);
    const QByteArray status = resultsBlocked ? "-1" : "10";
    QCOMPARE(run.errors, errors);
    QCOMPARE(run.output, status + '\n');
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), resultsBlocked ? QByteArray("old results") : utf16le(text("false")));
    QCOMPARE(folder.ready(),
        readyBlocked ? QByteArray("old status") : utf16le(QString::fromLatin1(status)));
}

void tst_Obstacles::keepsFolderInPlaceOfFile_data()
{
    QTest::addColumn<bool>("atReady");
    QTest::newRow("results file") << false;
    QTest::newRow("ready file") << true;
}

void tst_Obstacles::keepsFolderInPlaceOfFile()
{
    QFETCH(bool, atReady);
    const ExchangeFolder folder;
    folder.putArguments({});
    const QString path = atReady ? folder.readyPath() : folder.resultsPath();
    QVERIFY(QDir().mkpath(path + text("/kept")));
    const BridgeOutcome run = runCommand("hasManualEdit", folder);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("10\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(namesIn(path), QStringList{text("kept")});
    const QByteArray results = utf16le(text("false"));
    QCOMPARE(bytesOf(path + text(".temp")), atReady ? utf16le(text("10")) : results);
    QCOMPARE(atReady ? folder.results() : folder.ready(), atReady ? results : utf16le(text("10")));
}

void tst_Obstacles::keepsOldFilesAtFileSizeLimit_data()
{
    QTest::addColumn<QByteArray>("command"); // "unknown" has no results
    QTest::addColumn<int>("limit");
    QTest::addColumn<QByteArray>("results");
    QTest::addColumn<QByteArray>("ready");
    QTest::addColumn<QByteArray>("output");
    const QByteArray all = utf16le(text("false"));
    const auto row = [](const char* name, const char* command, int limit, const QByteArray& results,
                         const QByteArray& ready, const QByteArray& output) {
        QTest::newRow(name) << QByteArray(command) << limit << results << ready << output;
    };
    row("everything fits", "hasManualEdit", 10, all, utf16le(text("10")), "10\n");
    row("results do not fit", "hasManualEdit", 9, "old", utf16le(text("-1")), "-1\n");
    row("ready file does not fit", "unknown", 1, "", "old", "0");
    row("neither fits", "hasManualEdit", 3, "old", "old", "-1\n");
}

void tst_Obstacles::keepsOldFilesAtFileSizeLimit()
{
    QFETCH(QByteArray, command);
    QFETCH(int, limit);
    const ExchangeFolder folder;
    folder.putArguments({});
    putFile(folder.resultsPath(), "old");
    putFile(folder.readyPath(), "old");
    // The limit also applies to standard output if it is a file.
    const QString output = home.path(text("output"));
    const BridgeOutcome run =
        runCommand(command.constData(), folder, BridgeStart::prepared([limit, &output] {
            (void)!freopen(QFile::encodeName(output).constData(), "w", stdout);
            limitFileSize(quint64(limit));
        }));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QTEST(folder.results(), "results");
    QTEST(folder.ready(), "ready");
    QTEST(bytesOf(output), "output");
}

void tst_Obstacles::survivesFullDisk_data()
{
    QTest::addColumn<int>("pages"); // each file takes one
    QTest::addColumn<QByteArray>("left");
    const QByteArray ready = "mac-word-plugin-result-ready.txt";
    const QByteArray resultsAndOutput = "mac-word-plugin-results.txt 10\nout 0\n";
    QTest::newRow("no room for the output") << 2 << ready + " 4\n" + resultsAndOutput;
    QTest::newRow("no room for the ready file and the output")
        << 1 << ready + ".temp 0\n" + resultsAndOutput;
}

void tst_Obstacles::survivesFullDisk()
{
    QFETCH(int, pages);
    QFETCH(QByteArray, left);
    constexpr int noDisk = 77;
    const ExchangeFolder folder;
    const int size = pages * int(sysconf(_SC_PAGESIZE));
    BridgeStart onSmallDisk = BridgeStart::prepared([&folder, size] {
        if (!mountSmallDisk(QFile::encodeName(folder.path()), size)) {
            _exit(noDisk);
        }
        folder.putArguments({});
    });
    // The disk disappears with the last process that sees it, so that process lists the files.
    onSmallDisk.shellCommand = text(R"sh(
        cd "$2"; "$0" "$@" > out; status=$?
        for name in *; do echo "$name $(stat -c %s "$name")"; done
        exit $status)sh");
    onSmallDisk.environment.insert(text("LC_ALL"), text("C"));
    const BridgeOutcome run = runCommand("hasManualEdit", folder, onSmallDisk);
    if (run.exitStatus == noDisk) {
        QSKIP("This user may not mount a disk.");
    }
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, "mac-word-plugin-args.txt 0\n" + left);
    QCOMPARE(run.exitStatus, 0);
}

QTEST_GUILESS_MAIN(tst_Obstacles)
#include "tst_obstacles.moc"

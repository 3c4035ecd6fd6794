#include "tests/support/BadParents.h"
#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/RecordingApplication.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

/// The application that the program starts inherits nothing from the program or from its parent,
/// except the environment.
class tst_Inheritance : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { server.reset(); }
    void cleanup() { QCOMPARE(server.problem(), QString()); }

    void startsApplicationWithCleanState_data();
    void startsApplicationWithCleanState();
    void restoresLocaleForApplication_data();
    void restoresLocaleForApplication();
    void leavesApplicationRunning();
    void reportsFailedStart();

private:
    QByteArray launch(const BridgeStart& start);

    TemporaryHome home;
    ScriptedServer server;
};

void tst_Inheritance::initTestCase()
{
    if (RecordingApplication::isRealOneInstalled()) {
        QSKIP("The application is installed on this machine and would be started.");
    }
    home.writePort(server.port());
}

/// Runs a bridge that finds no application and starts it. Returns what differs from a success.
QByteArray tst_Inheritance::launch(const BridgeStart& start)
{
    const ExchangeFolder folder;
    folder.putArguments({});
    // The second reply is that of a running application. Its process is this test.
    server.expect("GET", "/tessaronDesktopInfo", ScriptedReply::json("{}", 404));
    server.expect("GET", "/tessaronDesktopInfo",
        ScriptedReply::json("{\"processId\":" + QByteArray::number(getpid()) + '}'));
    const BridgeOutcome run = runCommand("launchTessaron", folder, start);
    if (run.exitStatus != 0 || !run.errors.isEmpty()) {
        return "exit status " + QByteArray::number(run.exitStatus) + ": " + run.errors;
    }
    return folder.results() == utf16le(text("true")) ? "" : "results: " + folder.results();
}

/// The processors that this process may use, as the kernel lists them.
static QByteArray ownProcessors()
{
    const QByteArray key = "Cpus_allowed_list:";
    const QByteArray status = bytesOf(text("/proc/self/status"));
    const auto start = status.indexOf(key) + key.size();
    return status.mid(start, status.indexOf('\n', start) - start).trimmed();
}

void tst_Inheritance::startsApplicationWithCleanState_data()
{
    QTest::addColumn<Preparation>("prepare");
    const auto row = [](const char* name, Preparation prepare) { QTest::newRow(name) << prepare; };
    row("ordinary parent", [] {});
    row("parent that ignores all signals", ignoreAllSignals);
    row("parent that blocks all signals", blockAllSignals);
    row("parent that leaves files open", leaveFilesOpen);
    row("parent that closed its streams", [] {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
    });
    row("parent that does all of it", [] {
        ignoreAllSignals();
        blockAllSignals();
        leaveFilesOpen();
        breakOutput();
    });
}

void tst_Inheritance::startsApplicationWithCleanState()
{
    QFETCH(Preparation, prepare);
    const RecordingApplication application(home);
    QCOMPARE(launch(BridgeStart::prepared(prepare)), QByteArray());
    QTRY_VERIFY(application.hasRecord());
    QCOMPARE(application.recordedSignals("SigIgn:"), quint64(0));
    QCOMPARE(application.recordedSignals("SigBlk:"), quint64(0));
    QCOMPARE(application.recorded("Cpus_allowed_list:"), QByteArrayList{ownProcessors()});
    QByteArrayList files = application.recorded("fd ");
    std::sort(files.begin(), files.end());
    // The recorder would mark a stream that is not open for both reading and writing.
    QCOMPARE(files, (QByteArrayList{"0=/dev/null", "1=/dev/null", "2=/dev/null"}));
    QCOMPARE(application.recorded("session "), application.recorded("pid "));
}

void tst_Inheritance::restoresLocaleForApplication_data()
{
    QTest::addColumn<QString>("shellCommand");
    QTest::addColumn<QByteArrayList>("values");
    const auto row = [](const char* name, const char* shellCommand, const QByteArrayList& values) {
        QTest::newRow(name) << text(shellCommand) + text("; exec \"$0\" \"$@\"") << values;
    };
    row("unset", "unset LC_ALL", {});
    row("empty", "export LC_ALL=", {""});
    row("installed locale", "export LC_ALL=C.UTF-8", {"C.UTF-8"});
    row("locale that is not installed", "export LC_ALL=xx_XX.ISO-8859-1@none",
        {"xx_XX.ISO-8859-1@none"});
}

void tst_Inheritance::restoresLocaleForApplication()
{
    QFETCH(QString, shellCommand);
    const RecordingApplication application(home);
    QCOMPARE(launch(BridgeStart::inShell(shellCommand)), QByteArray());
    QTRY_VERIFY(application.hasRecord());
    QTEST(application.recorded("env LC_ALL="), "values");
}

void tst_Inheritance::leavesApplicationRunning()
{
    const RecordingApplication application(home, RecordingApplication::Stays);
    int ends[2];
    QCOMPARE(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    constexpr int furtherStream = 200;
    const QByteArray problem = launch(BridgeStart::prepared([&ends] {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        dup2(ends[1], furtherStream);
    }));
    close(ends[1]);
    QFile reader;
    QVERIFY(reader.open(ends[0], QIODevice::ReadOnly, QFileDevice::AutoCloseHandle));
    QCOMPARE(problem, QByteArray());
    QTRY_VERIFY(application.hasRecord());
    QCOMPARE(kill(application.processId(), 0), 0);
    // The application does not hold the bridge's output open: it can be read to its end.
    QCOMPARE(reader.readAll(), QByteArray("8\n"));
    char byte = 0;
    QCOMPARE(int(read(ends[0], &byte, 1)), 0);
}

void tst_Inheritance::reportsFailedStart()
{
    const QString entry =
        home.writeFile(text("xdg_data_home/applications/com.tessaron.desktop.desktop"),
            "[Desktop Entry]\nType=Application\nName=Test\nExec=/nonexistent/application\n");
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/tessaronDesktopInfo", ScriptedReply::json("{}", 404));
    const BridgeOutcome run = runCommand("launchTessaron", folder);
    QVERIFY(QFile::remove(entry));
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(text("false")));
}

QTEST_GUILESS_MAIN(tst_Inheritance)
#include "tst_inheritance.moc"

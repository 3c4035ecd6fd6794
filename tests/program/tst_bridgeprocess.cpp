#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QLocalServer>
#include <QtTest>

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// A pipe that no program started later inherits by accident.
class Pipe {
public:
    Pipe() { valid = pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0; }
    ~Pipe()
    {
        closeReader();
        closeWriter();
    }
    Q_DISABLE_COPY(Pipe)

    bool isValid() const { return valid; }
    int writer() const { return ends[1]; }
    void closeReader() { closeEnd(0); }
    void closeWriter() { closeEnd(1); }

    /// Appends what there is to read to `*bytes`; true at the end, when nobody can write any more.
    bool readToEnd(QByteArray* bytes)
    {
        char buffer[4096];
        ssize_t count = 0;
        while ((count = read(ends[0], buffer, sizeof buffer)) > 0) {
            bytes->append(buffer, int(count));
        }
        return count == 0;
    }

private:
    void closeEnd(int end)
    {
        if (ends[end] >= 0) {
            close(ends[end]);
            ends[end] = -1;
        }
    }

    int ends[2] = {-1, -1};
    bool valid = false;
};

/// The desktop application of these tests, while it lives: a script that a desktop entry starts.
/// It tells its process id and what it was given in a file, and then does nothing.
class TestApplication {
public:
    explicit TestApplication(const TemporaryHome& home)
        : tellTale(home.path(text("started")))
    {
        // What the bridge leaves behind becomes this process's child, so that it can be ended.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        const QString script = home.writeFile(text("application"),
            "#!/bin/sh\n"
            "streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2)\n"
            "printf '%s\\n' \"$streams\" $$ > \"$1.new\"\n"
            "mv \"$1.new\" \"$1\"\n"
            "exec sleep 1000\n");
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        home.writeFile(entryName(),
            "[Desktop Entry]\nType=Application\nName=Test\nExec=\"" + script.toUtf8() + "\" \""
                + tellTale.toUtf8() + "\"\n");
        entry = home.path(entryName());
    }
    ~TestApplication()
    {
        QFile::remove(entry);
        if (processId() > 0) {
            kill(processId(), SIGKILL);
            waitpid(processId(), nullptr, 0);
        }
        prctl(PR_SET_CHILD_SUBREAPER, 0);
    }
    Q_DISABLE_COPY(TestApplication)

    static QString entryName()
    {
        return text("xdg_data_home/applications/com.tessaron.desktop.desktop");
    }
    bool hasStarted() const { return QFile::exists(tellTale); }
    /// Where its three standard streams lead, and its process id.
    QList<QByteArray> told() const { return bytesOf(tellTale).trimmed().split('\n'); }
    pid_t processId() const { return hasStarted() ? told().last().toInt() : 0; }
    bool lives() const { return processId() > 0 && waitpid(processId(), nullptr, WNOHANG) == 0; }

private:
    QString tellTale;
    QString entry;
};

} // namespace

/// The program as a process: its streams, its environment and the application that it starts.
class tst_BridgeProcess : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }

    void closedStreams_data();
    void closedStreams();
    void outputThatCannotBeWritten_data();
    void outputThatCannotBeWritten();
    void outputWithoutAReader_data();
    void outputWithoutAReader();
    void warnsNowhereWithoutAnErrorStream();
    void neverAsksABus();
    void leavesItsInputAlone();
    void theApplicationOutlivesIt();
    void theApplicationCannotBeStarted();

private:
    TemporaryHome home;
    ScriptedServer server;
};

void tst_BridgeProcess::closedStreams_data()
{
    QTest::addColumn<QString>("redirection");
    QTest::addColumn<bool>("outputIsOpen");
    QTest::newRow("input") << text("<&-") << true;
    QTest::newRow("output") << text(">&-") << false;
    QTest::newRow("error") << text("2>&-") << true;
    QTest::newRow("input and output") << text("<&- >&-") << false;
    QTest::newRow("output and error") << text(">&- 2>&-") << false;
    QTest::newRow("input and error") << text("<&- 2>&-") << true;
    QTest::newRow("all") << text("<&- >&- 2>&-") << false;
}

void tst_BridgeProcess::closedStreams()
{
    QFETCH(QString, redirection);
    QFETCH(bool, outputIsOpen);
    const ExchangeFolder folder;
    folder.putArguments({text("f")});
    server.expect("POST", "/citation/undoManualFormat", ScriptedReply::json("{}", 500));
    const BridgeOutcome run = runBridge({text("undoManualFormat"), folder.path()},
        BridgeStart::inShell(text("exec \"$0\" \"$@\" ") + redirection));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, outputIsOpen ? QByteArray("2\n") : QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(bytesOf(folder.argumentsPath()), QByteArray("f\0", 2));
    QCOMPARE(folder.results(), QByteArray("f\0", 2));
    QCOMPARE(folder.ready(), QByteArray("2\0", 2));
    QCOMPARE(folder.names().size(), 3);
    QCOMPARE(server.problem(), QString());
    QCOMPARE(server.requests().constFirst().body, QByteArray(R"({"fieldCode":"f"})"));
    QTRY_COMPARE(server.openConnectionCount(), 0);
    QCOMPARE(server.strayBytes(), QByteArray());
}

void tst_BridgeProcess::outputThatCannotBeWritten_data()
{
    QTest::addColumn<QString>("redirection");
    QTest::newRow("a full device") << text("> /dev/full");
    QTest::newRow("a file that is only read") << text("1< /dev/null");
    QTest::newRow("the null device") << text("> /dev/null");
}

void tst_BridgeProcess::outputThatCannotBeWritten()
{
    QFETCH(QString, redirection);
    const ExchangeFolder folder;
    folder.putArguments({});
    const BridgeOutcome run = runBridge({text("hasManualEdit"), folder.path()},
        BridgeStart::inShell(text("exec \"$0\" \"$@\" ") + redirection));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), utf16le(text("false")));
    QCOMPARE(folder.ready(), utf16le(text("10")));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeProcess::outputWithoutAReader_data()
{
    QTest::addColumn<bool>("asksTheServer");
    QTest::newRow("a command with a request") << true;
    // Qt Network lets writes into a closed pipe fail as well; here it has not come to that.
    QTest::newRow("a command without one") << false;
}

void tst_BridgeProcess::outputWithoutAReader()
{
    QFETCH(bool, asksTheServer);
    Pipe output;
    QVERIFY(output.isValid());
    const ExchangeFolder folder;
    folder.putArguments({});
    if (asksTheServer) {
        server.expect("GET", "/tessaronDesktopInfo", ScriptedReply::json("{}"));
    }
    output.closeReader();
    const BridgeOutcome run = runBridge(
        {asksTheServer ? text("isTessaronRunning") : text("hasManualEdit"), folder.path()},
        BridgeStart::prepared([&output] { dup2(output.writer(), STDOUT_FILENO); }));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), utf16le(text("false")));
    QCOMPARE(folder.ready(), utf16le(text("10")));
    QCOMPARE(folder.names().size(), 3);
    QCOMPARE(server.problem(), QString());
    QTRY_COMPARE(server.openConnectionCount(), 0);
    QCOMPARE(server.strayBytes(), QByteArray());
}

void tst_BridgeProcess::warnsNowhereWithoutAnErrorStream()
{
    const ExchangeFolder folder;
    server.expect("POST", "/citations/merge", ScriptedReply::json("{}", 500));
    const BridgeOutcome run = runBridge(
        {text("mergeFields"), folder.path()}, BridgeStart::inShell(text(R"(exec "$0" "$@" 2>&-)")));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("0\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), QByteArray());
    QCOMPARE(folder.ready(), QByteArray("0\0", 2));
    QCOMPARE(folder.names().size(), 2);
    QCOMPARE(server.problem(), QString());
    QTRY_COMPARE(server.openConnectionCount(), 0);
    QCOMPARE(server.strayBytes(), QByteArray());
}

void tst_BridgeProcess::neverAsksABus()
{
    // A bus that accepts connections and never answers would hold the program for ever.
    QLocalServer bus;
    QVERIFY(bus.listen(home.path(text("bus"))));
    const QString address = text("unix:path=") + bus.fullServerName();
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    const BridgeOutcome run = runBridge({text("getUserUuid"), folder.path()},
        BridgeStart::withVariables({{text("DBUS_SYSTEM_BUS_ADDRESS"), address},
            {text("DBUS_SESSION_BUS_ADDRESS"), address}}));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("2\n"));
    QCOMPARE(run.exitStatus, 0);
    QVERIFY(!bus.waitForNewConnection(0));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeProcess::leavesItsInputAlone()
{
    const ExchangeFolder folder;
    folder.putArguments({});
    const BridgeOutcome run = runBridge({text("lastError"), folder.path()},
        BridgeStart::inShell(text(R"(printf 'a\nb\n' | { "$0" "$@"; cat; })")));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("0\na\nb\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeProcess::theApplicationOutlivesIt()
{
    if (QFile::exists(text("/opt/Tessaron Desktop/tessaron-desktop"))) {
        QSKIP("The application is installed on this machine and would be started.");
    }
    const TestApplication application(home);
    Pipe output;
    QVERIFY(output.isValid());
    const ExchangeFolder folder;
    folder.putArguments({});
    // The second answer is of a running application: this process stands for it.
    server.expect("GET", "/tessaronDesktopInfo", ScriptedReply::json("{}", 404));
    server.expect("GET", "/tessaronDesktopInfo",
        ScriptedReply::json("{\"processId\":" + QByteArray::number(getpid()) + '}'));
    constexpr int anotherStream = 200;
    const BridgeOutcome run =
        runBridge({text("launchTessaron"), folder.path()}, BridgeStart::prepared([&output] {
            dup2(output.writer(), STDOUT_FILENO);
            dup2(output.writer(), STDERR_FILENO);
            dup2(output.writer(), anotherStream);
        }));
    output.closeWriter();
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), utf16le(text("true")));
    QCOMPARE(server.problem(), QString());
    QTRY_VERIFY(application.hasStarted());
    QVERIFY(application.lives());

    QByteArray printed;
    QTRY_VERIFY(output.readToEnd(&printed));
    QCOMPARE(printed, QByteArray("8\n"));
    QVERIFY(application.lives());
    QCOMPARE(
        application.told().mid(0, 3), (QList<QByteArray>{"/dev/null", "/dev/null", "/dev/null"}));
    QCOMPARE(getsid(application.processId()), application.processId());
}

void tst_BridgeProcess::theApplicationCannotBeStarted()
{
    if (QFile::exists(text("/opt/Tessaron Desktop/tessaron-desktop"))) {
        QSKIP("The application is installed on this machine and would be started.");
    }
    home.writeFile(TestApplication::entryName(),
        "[Desktop Entry]\nType=Application\nName=Test\nExec=/nonexistent/application\n");
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/tessaronDesktopInfo", ScriptedReply::json("{}", 404));
    const BridgeOutcome run = runBridge({text("launchTessaron"), folder.path()});
    QVERIFY(QFile::remove(home.path(TestApplication::entryName())));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("10\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), utf16le(text("false")));
    QCOMPARE(server.problem(), QString());
}

QTEST_GUILESS_MAIN(tst_BridgeProcess)
#include "tst_bridgeprocess.moc"

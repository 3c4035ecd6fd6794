#include "tests/support/BadParents.h"
#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QLocalServer>
#include <QTimer>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

/// The program's standard streams and D-Bus.
class tst_BridgeProcess : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }
    void cleanup();

    void survivesClosedStreams_data();
    void survivesClosedStreams();
    void ignoresFailedOutput_data();
    void ignoresFailedOutput();
    void writesReadyFileBeforeStatusIsPrinted();
    void dropsWarningWithoutErrorStream();
    void neverContactsBus();
    void leavesInputUnread();

private:
    TemporaryHome home;
    ScriptedServer server;
};

void tst_BridgeProcess::cleanup()
{
    // Output that is written to a wrong descriptor could reach the server.
    QTRY_COMPARE(server.openConnectionCount(), 0);
    QCOMPARE(server.strayBytes(), QByteArray());
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeProcess::survivesClosedStreams_data()
{
    QTest::addColumn<QString>("redirection");
    QTest::addColumn<QByteArray>("output");
    QTest::newRow("input") << text("<&-") << QByteArray("2\n");
    QTest::newRow("output") << text(">&-") << QByteArray();
    QTest::newRow("all") << text("<&- >&- 2>&-") << QByteArray();
}

void tst_BridgeProcess::survivesClosedStreams()
{
    QFETCH(QString, redirection);
    const ExchangeFolder folder;
    folder.putArguments({text("f")});
    server.expect("POST", "/citation/undoManualFormat", ScriptedReply::json("{}", 500));
    const BridgeOutcome run = runCommand("undoManualFormat", folder,
        BridgeStart::inShell(text("exec \"$0\" \"$@\" ") + redirection));
    QCOMPARE(run.errors, QByteArray());
    QTEST(run.output, "output");
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(bytesOf(folder.argumentsPath()), QByteArray("f\0", 2));
    QCOMPARE(folder.results(), QByteArray("f\0", 2));
    QCOMPARE(folder.ready(), QByteArray("2\0", 2));
    QCOMPARE(folder.names().size(), 3);
    QCOMPARE(server.requests().constFirst().body, QByteArray(R"({"fieldCode":"f"})"));
}

void tst_BridgeProcess::ignoresFailedOutput_data()
{
    QTest::addColumn<QString>("redirection");
    QTest::addColumn<Preparation>("prepare");
    const Preparation noPreparation = [] {};
    QTest::newRow("full device") << text("> /dev/full") << noPreparation;
    QTest::newRow("file open only for reading") << text("1< /dev/null") << noPreparation;
    QTest::newRow("pipe without a reader") << QString() << Preparation(breakOutput);
}

void tst_BridgeProcess::ignoresFailedOutput()
{
    QFETCH(QString, redirection);
    QFETCH(Preparation, prepare);
    const ExchangeFolder folder;
    folder.putArguments({});
    BridgeStart start = BridgeStart::inShell(text("exec \"$0\" \"$@\" ") + redirection);
    start.prepare = prepare;
    // This command sends no request, because Qt Network would ignore SIGPIPE itself.
    const BridgeOutcome run = runCommand("hasManualEdit", folder, start);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), utf16le(text("false")));
    QCOMPARE(folder.ready(), utf16le(text("10")));
}

void tst_BridgeProcess::writesReadyFileBeforeStatusIsPrinted()
{
    // Printing blocks while the pipe is full. The test reads from it once the ready file exists.
    int ends[2] = {-1, -1};
    QCOMPARE(pipe2(ends, O_NONBLOCK), 0);
    const QByteArray page(4096, 'x');
    while (write(ends[1], page.constData(), size_t(page.size())) > 0) { }
    QCOMPARE(fcntl(ends[1], F_SETFL, 0), 0);
    const ExchangeFolder folder;
    folder.putArguments({});
    QTimer timer;
    connect(&timer, &QTimer::timeout, &timer, [&] {
        if (QFile::exists(folder.readyPath())) {
            QByteArray unread = page;
            while (read(ends[0], unread.data(), size_t(unread.size())) > 0) { }
        }
    });
    timer.start(5);
    BridgeStart start = BridgeStart::prepared([&ends] { dup2(ends[1], STDOUT_FILENO); });
    start.longestRunMs = 10000;
    const BridgeOutcome run = runCommand("hasManualEdit", folder, start);
    close(ends[0]);
    close(ends[1]);
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.ready(), utf16le(text("10")));
}

void tst_BridgeProcess::dropsWarningWithoutErrorStream()
{
    const ExchangeFolder folder;
    server.expect("POST", "/citations/merge", ScriptedReply::json("{}", 500));
    // Without an argument file there is a warning.
    const BridgeOutcome run =
        runCommand("mergeFields", folder, BridgeStart::inShell(text(R"(exec "$0" "$@" 2>&-)")));
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), QByteArray());
    QCOMPARE(folder.names().size(), 2);
}

void tst_BridgeProcess::neverContactsBus()
{
    // A bus that accepts connections and never replies would block the program forever.
    QLocalServer bus;
    QVERIFY(bus.listen(home.path(text("bus"))));
    const QString address = text("unix:path=") + bus.fullServerName();
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    const BridgeOutcome run = runCommand("getUserUuid", folder,
        BridgeStart::withVariables({{text("DBUS_SYSTEM_BUS_ADDRESS"), address},
            {text("DBUS_SESSION_BUS_ADDRESS"), address}}));
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(text("u")));
    QVERIFY(!bus.waitForNewConnection(0));
}

void tst_BridgeProcess::leavesInputUnread()
{
    const ExchangeFolder folder;
    folder.putArguments({});
    const BridgeOutcome run = runCommand("lastError", folder,
        BridgeStart::inShell(text(R"(printf 'a\nb\n' | { "$0" "$@"; cat; })")));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("0\na\nb\n"));
    QCOMPARE(run.exitStatus, 0);
}

QTEST_GUILESS_MAIN(tst_BridgeProcess)
#include "tst_bridgeprocess.moc"

#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/RecordingApplication.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <unistd.h>

namespace {

/// A command that sends one request.
struct Command {
    const char* name;
    const char* method;
    const char* path;
    const char* reply;
    QString success;
    QString failure; ///< the result if the request returned status 0
};

QList<Command> commands()
{
    return {{"getUserUuid", "GET", "/userUuid", R"({"uuid":"u"})", text("u"),
                text("Unable to retrieve uuid - error: 0. Server error 'Unable to start the "
                     "network thread'")},
        {"mergeFields", "POST", "/citations/merge", R"({"citationCluster":1})",
            text("ADDIN CSL_CITATION 1"), QString()}};
}

} // namespace

Q_DECLARE_METATYPE(Command)

/// Only the Nth thread start of a run fails, for every N up to the number of its thread starts.
class tst_ThreadStarts : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }
    void cleanup() { QCOMPARE(server.problem(), QString()); }

    void bridgeAnswersWithinFiveSeconds_data();
    void bridgeAnswersWithinFiveSeconds();
    void nextRequestWorks_data();
    void nextRequestWorks();
    void launchKeepsAsking();

private:
    BridgeStart failing(int threadStart);
    bool hasFailed() { return QFile::remove(reportPath()); }
    QString reportPath() const { return home.path(text("failed_thread_start")); }

    TemporaryHome home;
    ScriptedServer server;
};

/// Starts a bridge in which thread start number `threadStart` fails. It is killed after five
/// seconds.
BridgeStart tst_ThreadStarts::failing(int threadStart)
{
    BridgeStart start =
        BridgeStart::withVariables({{text("LD_PRELOAD"), text(FAILING_THREAD_START)},
            {text("FAIL_THREAD_START"), QString::number(threadStart)},
            {text("FAILED_THREAD_START_REPORT"), reportPath()},
            // The address sanitizer would refuse to start after another preloaded library. Qt leaks
            // the objects that wait for the thread.
            {text("ASAN_OPTIONS"), text("verify_asan_link_order=0:detect_leaks=0")}});
    start.longestRunMs = 5000;
    return start;
}

void tst_ThreadStarts::bridgeAnswersWithinFiveSeconds_data()
{
    QTest::addColumn<Command>("command");
    const QList<Command> all = commands();
    for (const Command& command : all) {
        QTest::newRow(command.name) << command;
    }
}

void tst_ThreadStarts::bridgeAnswersWithinFiveSeconds()
{
    QFETCH(Command, command);
    int threadStart = 0;
    int failedRequests = 0;
    for (bool failed = true; failed;) {
        server.reset();
        server.expect(command.method, command.path, ScriptedReply::json(command.reply));
        const ExchangeFolder folder;
        folder.putArguments({});
        const BridgeOutcome run = runCommand(command.name, folder, failing(++threadStart));
        QCOMPARE(problem(run, folder), QByteArray());
        failed = hasFailed();
        if (failed && folder.results() == utf16le(command.failure)) {
            ++failedRequests;
            QCOMPARE(server.connectionCount(), 0);
        } else {
            QCOMPARE(folder.results(), utf16le(command.success));
            QCOMPARE(server.problem(), QString());
        }
    }
    // A request works without some of Qt's threads, but not without all of them.
    QVERIFY(failedRequests > 0);
}

void tst_ThreadStarts::nextRequestWorks_data()
{
    bridgeAnswersWithinFiveSeconds_data();
}

void tst_ThreadStarts::nextRequestWorks()
{
    QFETCH(Command, command);
    const QByteArray success = command.success.toUtf8() + '\n';
    const QByteArray failure = command.failure.toUtf8() + '\n';
    int threadStart = 0;
    int failedRequests = 0;
    for (bool failed = true; failed;) {
        server.reset();
        for (int request = 0; request < 3; ++request) {
            server.expect(command.method, command.path, ScriptedReply::json(command.reply));
        }
        BridgeStart start = failing(++threadStart);
        start.program = text(RUN_COMMANDS);
        const QString name = text(command.name);
        const BridgeOutcome run = runBridge({name, name, name}, start);
        QCOMPARE(run.errors, QByteArray());
        QCOMPARE(run.exitStatus, 0);
        failed = hasFailed();
        if (run.output == success.repeated(3)) {
            QCOMPARE(server.requests().size(), 3);
            continue;
        }
        ++failedRequests;
        const QByteArrayList oneFailure{
            failure + success + success, success + failure + success, success + success + failure};
        QVERIFY2(failed && oneFailure.contains(run.output), run.output.constData());
        QCOMPARE(server.requests().size(), 2);
    }
    QVERIFY(failedRequests > 0);
}

void tst_ThreadStarts::launchKeepsAsking()
{
    if (RecordingApplication::isRealOneInstalled()) {
        QSKIP("The application is installed on this machine and would be started.");
    }
    // If the first request succeeds, the application is already running. Otherwise the program
    // starts the application, and its second request reaches the server.
    const RecordingApplication application(home);
    int threadStart = 0;
    for (bool failed = true; failed;) {
        server.reset();
        server.expect("GET", "/tessaronDesktopInfo",
            ScriptedReply::json("{\"processId\":" + QByteArray::number(getpid()) + '}'));
        BridgeStart start = failing(++threadStart);
        start.program = text(RUN_COMMANDS);
        const BridgeOutcome run = runBridge({text("launchTessaron")}, start);
        QCOMPARE(run.errors, QByteArray());
        QCOMPARE(run.output, QByteArray("true\n"));
        QCOMPARE(run.exitStatus, 0);
        QCOMPARE(server.problem(), QString());
        failed = hasFailed();
    }
    QVERIFY(threadStart > 1);
    QTRY_VERIFY(application.hasRecord());
}

QTEST_GUILESS_MAIN(tst_ThreadStarts)
#include "tst_threadstarts.moc"

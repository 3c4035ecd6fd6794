#include "tests/service/PresenceSupport.h"

#include <QScopeGuard>
#include <QtTest>

/// Whether the application is running, and its process id.
class tst_PluginComServer_Presence : public PresenceTest {
    Q_OBJECT

private Q_SLOTS:
    void readsProcessId_data();
    void readsProcessId();
    void isNotRunningOnFailure_data();
    void isNotRunningOnFailure();
    void asksOnlyOnceWhileProcessExists_data();
    void asksOnlyOnceWhileProcessExists();
    void asksAgainAfterProcessExited();
    void forgetsIdOfExitedProcess();
    void asksAgainForProcessOfAnotherUser();
    void asksAgainAfterFailedThreadStart();
};

void tst_PluginComServer_Presence::readsProcessId_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<int>("expected"); // 0 for "not running"
    QTest::addColumn<bool>("isRunning");

    const auto row = [](const char* name, const char* value, int expected) {
        QTest::newRow(name) << QByteArray(value) << expected << (expected != 0);
    };
    row("number", "4711", 4711);
    row("string of digits", R"("4711")", 4711);
    row("integral double", "4.711e3", 4711);
    row("true", "true", 1);
    row("largest int", "2147483647", 2147483647);
    row("negative", "-5", -5);
    // Only the low 32 bits are used, as a signed number.
    row("2^31", "2147483648", -2147483647 - 1);
    row("2^32 + 5", "4294967301", 5);
    QTest::newRow("2^32") << QByteArray("4294967296") << 0 << true;
    row("2^63 + 6", "9223372036854775814", 6);
    row("2^64 - 1", "18446744073709551615", -1);

    row("zero", "0", 0);
    row("double below one half", "0.25", 0);
    row("string with more than digits", R"("4711 x")", 0);
    row("negative string", R"("-5")", 0);
    row("string of more than 64 bits", R"("18446744073709551616")", 0);
    row("false", "false", 0);
    row("null", "null", 0);
    row("object", R"({"processId":4711})", 0);
    row("list", "[4711]", 0);
    row("0, and a key in other case", R"(0,"processID":4711)", 0);
}

void tst_PluginComServer_Presence::readsProcessId()
{
    QFETCH(QByteArray, value);
    QFETCH(int, expected);
    QFETCH(bool, isRunning);
    server.expect("GET", path, processIdReply(value));
    PluginComServer serviceForId;
    QCOMPARE(serviceForId.tessaronProcessId(), expected);
    server.expect("GET", path, processIdReply(value));
    PluginComServer serviceForPresence;
    QCOMPARE(serviceForPresence.isTessaronRunning(), isRunning);
    QCOMPARE(serviceForPresence.lastError(), QString());
}

void tst_PluginComServer_Presence::isNotRunningOnFailure_data()
{
    addFailedReplies(R"({"processId":4711})");
}

void tst_PluginComServer_Presence::isNotRunningOnFailure()
{
    QFETCH(FailedReply, failure);
    PluginComServer service;
    server.expect("GET", path, failure.reply);
    QVERIFY(!service.isTessaronRunning());
    QCOMPARE(service.lastError(), failure.error);
    server.expect("GET", path, failure.reply);
    QCOMPARE(service.tessaronProcessId(), 0);
}

void tst_PluginComServer_Presence::asksOnlyOnceWhileProcessExists_data()
{
    QTest::addColumn<qint64>("highBits");
    QTest::newRow("process id") << qint64(0);
    QTest::newRow("process id in the low 32 bits") << (qint64(1) << 32);
}

void tst_PluginComServer_Presence::asksOnlyOnceWhileProcessExists()
{
    QFETCH(qint64, highBits);
    const RunningProcess application;
    server.expect("GET", path, processIdReply(highBits + application.id()));
    PluginComServer service;
    QVERIFY(service.isTessaronRunning());
    QVERIFY(service.isTessaronRunning());
    QCOMPARE(service.tessaronProcessId(), int(application.id()));
}

void tst_PluginComServer_Presence::asksAgainAfterProcessExited()
{
    RunningProcess former;
    const RunningProcess current;
    server.expect("GET", path, processIdReply(former.id()));
    PluginComServer service;
    QCOMPARE(service.tessaronProcessId(), int(former.id()));
    former.end();
    server.expect("GET", path, processIdReply(current.id()));
    QCOMPARE(service.tessaronProcessId(), int(current.id()));
}

void tst_PluginComServer_Presence::forgetsIdOfExitedProcess()
{
    RunningProcess former;
    PluginComServer service;
    server.expect("GET", path, processIdReply(former.id()));
    QVERIFY(service.isTessaronRunning());
    former.end();
    server.expect("GET", path, ScriptedReply::json(R"({"error":"gone"})", 500));
    QCOMPARE(service.tessaronProcessId(), 0);
    QCOMPARE(service.lastError(), QStringLiteral("gone"));
    server.expect("GET", path, processIdReply(0));
    QVERIFY(!service.isTessaronRunning());
}

void tst_PluginComServer_Presence::asksAgainForProcessOfAnotherUser()
{
    // Process 1 belongs to root. As any other user, this process may not signal it.
    const bool isRoot = getuid() == 0;
    const auto becomeRoot = qScopeGuard([isRoot] {
        if (isRoot && setresuid(0, 0, 0) != 0) {
            qFatal("Cannot become root again");
        }
    });
    if (isRoot && setresuid(65534, 65534, 0) != 0) {
        QSKIP("root cannot become another user here");
    }
    if (::kill(1, 0) == 0) {
        QSKIP("this user may signal process 1");
    }
    PluginComServer service;
    server.expect("GET", path, processIdReply(1));
    QCOMPARE(service.tessaronProcessId(), 1);
    server.expect("GET", path, processIdReply(1));
    QVERIFY(service.isTessaronRunning());
}

void tst_PluginComServer_Presence::asksAgainAfterFailedThreadStart()
{
    const ThreadMessageFilter filter;
    const RunningProcess application;
    PluginComServer service;
    fakeSystem.threadStartsToFail = 1;
    QVERIFY(!service.isTessaronRunning());
    QCOMPARE(fakeSystem.threadStartsToFail, 0);
    QCOMPARE(service.lastError(), QStringLiteral("Unable to start the network thread"));
    QCOMPARE(server.connectionCount(), 0);

    server.expect("GET", path, processIdReply(application.id()));
    QVERIFY(service.launchTessaron());
    QCOMPARE(fakeSystem.startCount, 0);
}

QTEST_GUILESS_MAIN(tst_PluginComServer_Presence)
#include "tst_plugincomserver_presence.moc"

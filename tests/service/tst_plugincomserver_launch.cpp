#include "tests/service/PresenceSupport.h"

#include <QElapsedTimer>
#include <QtTest>

/// The launch of the application.
class tst_PluginComServer_Launch : public PresenceTest {
    Q_OBJECT

private Q_SLOTS:
    void doesNotStartRunningApplication();
    void keepsLastErrorIfApplicationIsRunning();
    void reportsFailedStart_data();
    void reportsFailedStart();
    void waitsForApi();
    void asksAgainAfterFailedThreadStart();
    void failsIfProcessExitsAtOnce();
    void startsAgainAfterFailedStart();
    void givesUpAfterTenSeconds();
};

void tst_PluginComServer_Launch::doesNotStartRunningApplication()
{
    const RunningProcess application;
    server.expect("GET", path, processIdReply(application.id()));
    fakeSystem.startStatus = -1;
    PluginComServer service;
    QVERIFY(service.launchTessaron());
    QVERIFY(service.launchTessaron());
    QCOMPARE(fakeSystem.startCount, 0);
    QCOMPARE(fakeSystem.pauses.size(), 0);
    QCOMPARE(service.lastError(), QString());
}

void tst_PluginComServer_Launch::keepsLastErrorIfApplicationIsRunning()
{
    const RunningProcess application;
    server.expect("GET", path, ScriptedReply::json(R"({"error":"starting"})", 503));
    server.expect("GET", path, processIdReply(application.id()));
    PluginComServer service;
    QVERIFY(!service.isTessaronRunning());
    QVERIFY(service.launchTessaron());
    QCOMPARE(fakeSystem.startCount, 0);
    QCOMPARE(service.lastError(), QStringLiteral("starting"));
}

void tst_PluginComServer_Launch::reportsFailedStart_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    QTest::newRow("not found") << -10814
                               << QStringLiteral("Unable to start Tessaron Desktop: -10814");
    QTest::newRow("errno") << 13 << QStringLiteral("Unable to start Tessaron Desktop: 13");
    QTest::newRow("number of seven digits")
        << -1234567 << QStringLiteral("Unable to start Tessaron Desktop: -1234567");
}

void tst_PluginComServer_Launch::reportsFailedStart()
{
    QFETCH(int, status);
    QFETCH(QString, message);
    fakeSystem.startStatus = status;
    server.expect("GET", path, ScriptedReply::json(R"({"error":"not yet"})", 503));
    PluginComServer service;
    QVERIFY(!service.launchTessaron());
    QCOMPARE(service.lastError(), message);
    QCOMPARE(fakeSystem.startCount, 1);
    QCOMPARE(fakeSystem.pauses.size(), 0);
}

void tst_PluginComServer_Launch::waitsForApi()
{
    const RunningProcess application;
    server.expect("GET", path, ScriptedReply::json("", 404));
    server.expect("GET", path, ScriptedReply::json(R"({"error":"starting"})", 503));
    server.expect("GET", path, processIdReply(0));
    server.expect("GET", path, processIdReply(application.id()));
    PluginComServer service;
    QVERIFY(service.launchTessaron());
    QCOMPARE(fakeSystem.startCount, 1);
    QCOMPARE(fakeSystem.pauses, (QVector<useconds_t>{100000, 100000}));
    QCOMPARE(service.tessaronProcessId(), int(application.id()));
    // A success leaves the text of the last failure.
    QCOMPARE(service.lastError(), QStringLiteral("starting"));
}

void tst_PluginComServer_Launch::asksAgainAfterFailedThreadStart()
{
    const ThreadMessageFilter filter;
    const RunningProcess application;
    PluginComServer service;
    fakeSystem.threadStartsToFail = 1;
    server.expect("GET", path, processIdReply(application.id()));
    QVERIFY(service.launchTessaron());
    QCOMPARE(fakeSystem.threadStartsToFail, 0);
    QCOMPARE(fakeSystem.pauses.size(), 0);
}

void tst_PluginComServer_Launch::failsIfProcessExitsAtOnce()
{
    RunningProcess application;
    application.end();
    server.expect("GET", path, ScriptedReply::json("", 404));
    server.expect("GET", path, processIdReply(application.id()));
    // The last check finds that the process has exited, and asks once more.
    server.expect("GET", path, ScriptedReply::json(R"({"error":"gone"})", 500));
    PluginComServer service;
    QVERIFY(!service.launchTessaron());
    QCOMPARE(fakeSystem.pauses.size(), 0);
    QCOMPARE(service.lastError(), QStringLiteral("gone"));
}

void tst_PluginComServer_Launch::startsAgainAfterFailedStart()
{
    const RunningProcess application;
    PluginComServer service;
    fakeSystem.startStatus = -10814;
    server.expect("GET", path, ScriptedReply::json("", 404));
    QVERIFY(!service.launchTessaron());
    fakeSystem.startStatus = 0;
    server.expect("GET", path, ScriptedReply::json("", 404));
    server.expect("GET", path, processIdReply(application.id()));
    QVERIFY(service.launchTessaron());
    QCOMPARE(fakeSystem.startCount, 2);
}

void tst_PluginComServer_Launch::givesUpAfterTenSeconds()
{
    const auto service = serviceWithoutApplication();
    fakeSystem.pausesAreReal = true;
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!service->launchTessaron());
    QVERIFY(timer.elapsed() >= 10000);
    QCOMPARE(fakeSystem.startCount, 1);
    // At most a hundred pauses of 100 ms fit into ten seconds.
    QVERIFY(!fakeSystem.pauses.isEmpty());
    QVERIFY(fakeSystem.pauses.size() <= 100);
    QCOMPARE(fakeSystem.pauses, QVector<useconds_t>(fakeSystem.pauses.size(), 100000));
    QCOMPARE(service->lastError(), QStringLiteral("Connection refused"));
}

QTEST_GUILESS_MAIN(tst_PluginComServer_Launch)
#include "tst_plugincomserver_launch.moc"

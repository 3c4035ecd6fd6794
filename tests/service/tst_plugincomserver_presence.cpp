#include "service/DesktopApplication.h"
#include "service/PluginComServer.h"

#include "tests/service/Outcomes.h"
#include "tests/service/ServiceFixture.h"

#include <QElapsedTimer>
#include <QScopeGuard>
#include <QtTest>

#include <csignal>
#include <ctime>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// What the service did to start the application, and what happens then.
struct Launch {
    int status = 0;
    int opened = 0;
    bool pausesAreReal = false;
    QVector<useconds_t> pauses;
};

Launch launch;

/// A process that lives until it is ended here.
class LivingProcess {
public:
    LivingProcess()
        : processId(fork())
    {
        if (processId == 0) {
            for (;;) {
                pause();
            }
        }
    }
    ~LivingProcess() { end(); }
    Q_DISABLE_COPY(LivingProcess)

    void end()
    {
        if (!ended) {
            ::kill(processId, SIGKILL);
            waitpid(processId, nullptr, 0);
            ended = true;
        }
    }
    pid_t id() const { return processId; }

private:
    const pid_t processId;
    bool ended = false;
};

ScriptedReply processIdReply(const QByteArray& processId)
{
    return ScriptedReply::json("{\"processId\":" + processId + '}');
}

ScriptedReply processIdReply(qint64 processId)
{
    return processIdReply(QByteArray::number(processId));
}

} // namespace

// These two stand in for the platform's way to start the application and for the system's pause.

int openDesktopApplication()
{
    ++launch.opened;
    return launch.status;
}

extern "C" int usleep(useconds_t microseconds)
{
    launch.pauses.append(microseconds);
    if (launch.pausesAreReal) {
        const timespec time{0, long(microseconds) * 1000};
        nanosleep(&time, nullptr);
    }
    return 0;
}

class PresenceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void processId_data();
    void processId();
    void notRunning_data();
    void notRunning();
    void failedRequest_data();
    void failedRequest();
    void noServer();
    void livingProcessIsNotAskedAgain();
    void lowBitsOfTheProcessId();
    void exitedProcessIsAskedAgain();
    void exitedProcessAndNoNewOne();
    void processOfSomebodyElse();

    void launchWhenRunning();
    void launchFails_data();
    void launchFails();
    void launchWaitsForTheApi();
    void launchedProcessEndsAtOnce();
    void launchIsTriedAgain();
    void apiDoesNotComeUp();

private:
    const QByteArray path = "/tessaronDesktopInfo";
    ServiceFixture fixture;
};

void PresenceTest::init()
{
    fixture.server.reset();
    launch = Launch();
}

void PresenceTest::cleanup()
{
    QCOMPARE(fixture.server.problem(), QString());
}

// Presence

void PresenceTest::processId_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<int>("expected");

    const auto row = [](const char* name, const char* value, int expected) {
        QTest::newRow(name) << QByteArray(value) << expected;
    };
    row("process id", "4711", 4711);
    row("text of digits", R"("4711")", 4711);
    row("integral double", "4711.0", 4711);
    row("exponent", "4.711e3", 4711);
    row("true", "true", 1);
    row("largest int", "2147483647", 2147483647);
    // The low 32 bits, as a signed number.
    row("2^31", "2147483648", -2147483647 - 1);
    row("2^32 + 5", "4294967301", 5);
    row("2^32", "4294967296", 0);
    row("2^63 - 1", "9223372036854775807", -1);
    row("2^63 + 6", "9223372036854775814", 6);
    row("2^64 - 1", "18446744073709551615", -1);
    row("negative", "-5", -5);
}

void PresenceTest::processId()
{
    QFETCH(QByteArray, value);
    QFETCH(int, expected);
    fixture.server.expect("GET", path, processIdReply(value));
    PluginComServer asksForTheId;
    QCOMPARE(asksForTheId.tessaronProcessId(), expected);
    fixture.server.expect("GET", path, processIdReply(value));
    PluginComServer asksWhetherRunning;
    QVERIFY(asksWhetherRunning.isTessaronRunning());
    QCOMPARE(fixture.server.requests().first().body, QByteArray());
}

void PresenceTest::notRunning_data()
{
    QTest::addColumn<QByteArray>("reply");
    const auto row = [](const char* name, const QByteArray& reply) {
        QTest::newRow(name) << reply;
    };
    row("zero", R"({"processId":0})");
    row("zero as a double", R"({"processId":0.0})");
    row("negative zero", R"({"processId":-0.0})");
    row("less than a half", R"({"processId":0.25})");
    row("text", R"({"processId":"abc"})");
    row("text behind digits", R"({"processId":"4711 x"})");
    row("empty text", R"({"processId":""})");
    row("negative text", R"({"processId":"-5"})");
    row("text beyond 64 bits", R"({"processId":"18446744073709551616"})");
    row("hexadecimal text", R"({"processId":"0x10"})");
    row("false", R"({"processId":false})");
    row("null", R"({"processId":null})");
    row("object", R"({"processId":{"id":4711}})");
    row("list", R"({"processId":[4711]})");
    row("missing", R"({"version":"1.0"})");
    row("key in another case", R"({"processID":4711})");
    row("one level deeper", R"({"info":{"processId":4711}})");
    row("empty object", "{}");
    row("empty body", "");
    row("not JSON", "processId=4711");
    row("cut off", R"({"processId":4711)");
    row("array", R"([{"processId":4711}])");
    row("scalar", "4711");
}

void PresenceTest::notRunning()
{
    QFETCH(QByteArray, reply);
    PluginComServer service;
    fixture.server.expect("GET", path, ScriptedReply::json(reply));
    QVERIFY(!service.isTessaronRunning());
    fixture.server.expect("GET", path, ScriptedReply::json(reply));
    QCOMPARE(service.tessaronProcessId(), 0);
    QCOMPARE(service.lastError(), QString());
}

void PresenceTest::failedRequest_data()
{
    QTest::addColumn<Outcome>("outcome");
    for (const Outcome& outcome : failures(R"({"processId":4711})")) {
        QTest::newRow(outcome.name) << outcome;
    }
}

void PresenceTest::failedRequest()
{
    QFETCH(Outcome, outcome);
    PluginComServer service;
    fixture.server.expect("GET", path, outcome.reply);
    QVERIFY(!service.isTessaronRunning());
    QVERIFY2(outcome.explains(service.lastError()), qPrintable(service.lastError()));
    fixture.server.expect("GET", path, outcome.reply);
    QCOMPARE(service.tessaronProcessId(), 0);
}

void PresenceTest::noServer()
{
    fixture.useNoServer();
    PluginComServer service;
    fixture.useScriptedServer();
    QVERIFY(!service.isTessaronRunning());
    QVERIFY(isRefusal(service.lastError()));
    QCOMPARE(service.tessaronProcessId(), 0);
}

void PresenceTest::livingProcessIsNotAskedAgain()
{
    const LivingProcess application;
    fixture.server.expect("GET", path, processIdReply(application.id()));
    PluginComServer service;
    QVERIFY(service.isTessaronRunning());
    QVERIFY(service.isTessaronRunning());
    QCOMPARE(service.tessaronProcessId(), int(application.id()));
    QCOMPARE(fixture.server.requests().size(), 1);
}

void PresenceTest::lowBitsOfTheProcessId()
{
    const LivingProcess application;
    fixture.server.expect("GET", path, processIdReply((qint64(1) << 32) + application.id()));
    PluginComServer service;
    QVERIFY(service.isTessaronRunning());
    QVERIFY(service.isTessaronRunning());
    QCOMPARE(service.tessaronProcessId(), int(application.id()));
}

void PresenceTest::exitedProcessIsAskedAgain()
{
    LivingProcess former;
    const LivingProcess now;
    fixture.server.expect("GET", path, processIdReply(former.id()));
    PluginComServer service;
    QCOMPARE(service.tessaronProcessId(), int(former.id()));
    former.end();
    fixture.server.expect("GET", path, processIdReply(now.id()));
    QVERIFY(service.isTessaronRunning());
    QCOMPARE(service.tessaronProcessId(), int(now.id()));
}

void PresenceTest::exitedProcessAndNoNewOne()
{
    LivingProcess former;
    PluginComServer service;
    fixture.server.expect("GET", path, processIdReply(former.id()));
    QVERIFY(service.isTessaronRunning());
    former.end();
    // The id is forgotten, also when the API fails or has none.
    fixture.server.expect("GET", path, ScriptedReply::json(R"({"error":"gone"})", 500));
    QCOMPARE(service.tessaronProcessId(), 0);
    QCOMPARE(service.lastError(), QStringLiteral("gone"));
    fixture.server.expect("GET", path, processIdReply(0));
    QVERIFY(!service.isTessaronRunning());
}

void PresenceTest::processOfSomebodyElse()
{
    // Process 1 belongs to root: who is somebody else may not signal it.
    const bool isRoot = getuid() == 0;
    const auto beRootAgain = qScopeGuard([isRoot] {
        if (isRoot && setresuid(0, 0, 0) != 0) {
            qFatal("Cannot be root again");
        }
    });
    if (isRoot && setresuid(65534, 65534, 0) != 0) {
        QSKIP("root cannot become another user here");
    }
    if (::kill(1, 0) == 0) {
        QSKIP("this user may signal process 1");
    }
    fixture.server.expect("GET", path, processIdReply(1));
    PluginComServer service;
    QCOMPARE(service.tessaronProcessId(), 1);
    fixture.server.expect("GET", path, processIdReply(1));
    QVERIFY(service.isTessaronRunning());
    QCOMPARE(fixture.server.requests().size(), 2);
}

// Launch

void PresenceTest::launchWhenRunning()
{
    const LivingProcess application;
    fixture.server.expect("GET", path, processIdReply(application.id()));
    launch.status = -1;
    PluginComServer service;
    QVERIFY(service.launchTessaron());
    QVERIFY(service.launchTessaron());
    QCOMPARE(launch.opened, 0);
    QCOMPARE(launch.pauses.size(), 0);
    QCOMPARE(service.lastError(), QString());
}

void PresenceTest::launchFails_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    const auto row = [](const char* name, int status, const char* message) {
        QTest::newRow(name) << status << QString::fromUtf8(message);
    };
    row("not found", -10814, "Unable to start Tessaron Desktop: -10814");
    row("ENOENT", 2, "Unable to start Tessaron Desktop: 2");
    row("EACCES", 13, "Unable to start Tessaron Desktop: 13");
    row("launch refused", -10810, "Unable to start Tessaron Desktop: -10810");
    row("no thousands separator", -1234567, "Unable to start Tessaron Desktop: -1234567");
}

void PresenceTest::launchFails()
{
    QFETCH(int, status);
    QFETCH(QString, message);
    launch.status = status;
    fixture.server.expect("GET", path, ScriptedReply::json(R"({"error":"not yet"})", 503));
    PluginComServer service;
    QVERIFY(!service.launchTessaron());
    QCOMPARE(service.lastError(), message);
    QCOMPARE(launch.opened, 1);
    QCOMPARE(launch.pauses.size(), 0);
    QCOMPARE(fixture.server.requests().size(), 1);
}

void PresenceTest::launchWaitsForTheApi()
{
    const LivingProcess application;
    fixture.server.expect("GET", path, ScriptedReply::json("", 404));
    fixture.server.expect("GET", path, ScriptedReply::json(R"({"error":"starting"})", 503));
    fixture.server.expect("GET", path, processIdReply(0));
    fixture.server.expect("GET", path, processIdReply(application.id()));
    PluginComServer service;
    QVERIFY(service.launchTessaron());
    QCOMPARE(launch.opened, 1);
    QCOMPARE(launch.pauses, (QVector<useconds_t>{100000, 100000}));
    QCOMPARE(service.tessaronProcessId(), int(application.id()));
    // A success leaves the last failure's text.
    QCOMPARE(service.lastError(), QStringLiteral("starting"));
}

void PresenceTest::launchedProcessEndsAtOnce()
{
    LivingProcess application;
    application.end();
    fixture.server.expect("GET", path, ScriptedReply::json("", 404));
    fixture.server.expect("GET", path, processIdReply(application.id()));
    // The last look finds the process gone and asks once more.
    fixture.server.expect("GET", path, ScriptedReply::json(R"({"error":"gone"})", 500));
    PluginComServer service;
    QVERIFY(!service.launchTessaron());
    QCOMPARE(launch.opened, 1);
    QCOMPARE(launch.pauses.size(), 0);
    QCOMPARE(service.lastError(), QStringLiteral("gone"));
}

void PresenceTest::launchIsTriedAgain()
{
    const LivingProcess application;
    launch.status = -10814;
    fixture.server.expect("GET", path, ScriptedReply::json("", 404));
    PluginComServer service;
    QVERIFY(!service.launchTessaron());
    launch.status = 0;
    fixture.server.expect("GET", path, ScriptedReply::json("", 404));
    fixture.server.expect("GET", path, processIdReply(application.id()));
    QVERIFY(service.launchTessaron());
    QCOMPARE(launch.opened, 2);
}

void PresenceTest::apiDoesNotComeUp()
{
    fixture.useNoServer();
    PluginComServer service;
    fixture.useScriptedServer();
    launch.pausesAreReal = true;
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!service.launchTessaron());
    QVERIFY(timer.elapsed() >= 10000);
    QCOMPARE(launch.opened, 1);
    // Ten seconds hold at most a hundred pauses of a tenth.
    QVERIFY(!launch.pauses.isEmpty());
    QVERIFY(launch.pauses.size() <= 100);
    QCOMPARE(launch.pauses, QVector<useconds_t>(launch.pauses.size(), 100000));
    QVERIFY2(isRefusal(service.lastError()), qPrintable(service.lastError()));
}

QTEST_GUILESS_MAIN(PresenceTest)
#include "tst_plugincomserver_presence.moc"

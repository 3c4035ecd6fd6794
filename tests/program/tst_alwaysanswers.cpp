#include "tests/support/BadParents.h"
#include "tests/support/BridgeRun.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <sys/resource.h>
#include <unistd.h>

namespace {

void lowerLimits()
{
    const rlimit files{16, 16};
    setrlimit(RLIMIT_NOFILE, &files);
}

} // namespace

/// Whatever surroundings a macro starts the program in, it writes its files and ends with
/// status 0.
class tst_AlwaysAnswers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void homes_data();
    void homes();
    void settings_data();
    void settings();
    void settingsOfAnotherUser();
    void ports_data();
    void ports();
    void portsOfWhichSixteenBitsCount_data();
    void portsOfWhichSixteenBitsCount();
    void parents_data();
    void parents();
    void parentsThatAllowNoThread_data();
    void parentsThatAllowNoThread();

private:
    QByteArray answerTo(const QString& command, const BridgeStart& start, QByteArray* results);

    TemporaryHome home;
    ScriptedServer server;
};

void tst_AlwaysAnswers::init()
{
    server.reset();
    QDir(home.path(text("xdg_config_home"))).removeRecursively();
    home.writePort(server.port());
}

/// Runs `command` and returns what is wrong with the answer; `*results` is what it holds.
QByteArray tst_AlwaysAnswers::answerTo(
    const QString& command, const BridgeStart& start, QByteArray* results)
{
    const ExchangeFolder folder;
    folder.putArguments({});
    const BridgeOutcome run = runBridge({command, folder.path()}, start);
    *results = folder.results();
    if (run.exitStatus != 0) {
        return "exit status " + QByteArray::number(run.exitStatus) + ' ' + run.errors;
    }
    if (folder.ready() != utf16le(QString::number(results->size()))) {
        return "ready file: " + folder.ready();
    }
    return run.errors;
}

void tst_AlwaysAnswers::homes_data()
{
    QTest::addColumn<QString>("surroundings");
    const char* const all[] = {"unset HOME", "unset HOME XDG_CONFIG_HOME XDG_CONFIG_DIRS",
        "HOME=", "HOME=/nonexistent/home XDG_CONFIG_HOME=", "HOME=/dev/null XDG_CONFIG_HOME=",
        "HOME=relative XDG_CONFIG_HOME=relative",
        "HOME=/proc/self XDG_CONFIG_HOME=", "XDG_CONFIG_HOME=/nonexistent",
        "XDG_CONFIG_HOME=/dev/null", "XDG_CONFIG_HOME=", "export LC_ALL=C; unset HOME LANG",
        "export LC_ALL=no_SUCH.locale", "export TMPDIR=/nonexistent",
        "export QT_PLUGIN_PATH=/nonexistent", "exec env -i \"$0\" \"$@\"", "cd /proc/self",
        "umask 077"};
    for (const char* const surroundings : all) {
        QTest::newRow(surroundings) << text(surroundings);
    }
}

void tst_AlwaysAnswers::homes()
{
    QFETCH(QString, surroundings);
    QByteArray results;
    QCOMPARE(answerTo(text("hasManualEdit"),
                 BridgeStart::inShell(surroundings + text("\nexec \"$0\" \"$@\"")), &results),
        QByteArray());
    QCOMPARE(results, utf16le(text("false")));
    if (surroundings.contains(text("XDG")) || surroundings.contains(text("env -i"))) {
        return; // the settings are elsewhere then
    }
    home.writePort(server.port());
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    QCOMPARE(answerTo(text("getUserUuid"),
                 BridgeStart::inShell(surroundings + text("\nexec \"$0\" \"$@\"")), &results),
        QByteArray());
    QCOMPARE(results, utf16le(text("u")));
    QCOMPARE(server.problem(), QString());
}

void tst_AlwaysAnswers::settings_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("garbage") << QByteArray("\x00\xff\xfe garbage [[[ = \n[", 19);
    QTest::newRow("10 MB of garbage") << QByteArray(10000000, '\xa7');
    QTest::newRow("10 MB of one group") << QByteArray(10000000, '[');
    QTest::newRow("a million keys") << QByteArray("k=v\n").repeated(1000000);
    QTest::newRow("a binary property list") << QByteArray("bplist00\xd1\x01\x02", 11);
    QTest::newRow("cut off") << QByteArray("[%General]\nhttpServerPort=\"500");
    QTest::newRow("a port that is text") << QByteArray("[%General]\nhttpServerPort=abc\n");
    QTest::newRow("a directory") << QByteArray();
}

void tst_AlwaysAnswers::settings()
{
    QFETCH(QByteArray, content);
    const QString path = text("xdg_config_home/tessaron.com/Tessaron Desktop.conf");
    home.writeSettings(content);
    if (content.isNull()) {
        QVERIFY(QFile::remove(home.path(path)));
        QVERIFY(QDir().mkpath(home.path(path)));
    }
    QByteArray results;
    QCOMPARE(answerTo(text("hasManualEdit"), {}, &results), QByteArray());
    QCOMPARE(results, utf16le(text("false")));
}

void tst_AlwaysAnswers::settingsOfAnotherUser()
{
    // This user's home may not even be entered by the one who runs the program.
    const ExchangeFolder folder;
    folder.putArguments({});
    giveToOrdinaryUser(folder.path());
    const ExchangeFolder programs;
    const BridgeStart start = BridgeStart::asOrdinaryUser(programs.path());
    const QString settings = home.path(text("xdg_config_home/tessaron.com"));
    QVERIFY(QFile::setPermissions(settings, QFile::Permissions()));
    const BridgeOutcome run = runBridge({text("hasManualEdit"), folder.path()}, start);
    QVERIFY(QFile::setPermissions(settings, QFile::Permissions(0x7700)));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.ready(), utf16le(text("10")));
}

void tst_AlwaysAnswers::ports_data()
{
    QTest::addColumn<QByteArray>("port");
    for (const char* const port : {"0", "65536", "-65536", "131072", "-1", "70000", "-2147483648",
             "99999999999999999999", "abc", "", "1e5", "%1"}) {
        QTest::newRow((QByteArray("<") + port + '>').constData()) << QByteArray(port);
    }
}

void tst_AlwaysAnswers::ports()
{
    QFETCH(QByteArray, port);
    home.writeSettings("[%General]\nhttpServerPort=" + port + "\n");
    QByteArray results;
    QCOMPARE(answerTo(text("getUserUuid"), {}, &results), QByteArray());
    const QByteArray message = utf16le(text("Unable to retrieve uuid - error: 0. Server error '"));
    QCOMPARE(results.left(message.size()), message);
    QVERIFY(results.size() > message.size() + utf16le(text("'")).size());
    QCOMPARE(server.connectionCount(), 0);
}

void tst_AlwaysAnswers::portsOfWhichSixteenBitsCount_data()
{
    QTest::addColumn<int>("added");
    QTest::newRow("65536") << 65536;
    QTest::newRow("-65536") << -65536;
    QTest::newRow("2^30") << (1 << 30);
}

void tst_AlwaysAnswers::portsOfWhichSixteenBitsCount()
{
    QFETCH(int, added);
    home.writePort(server.port() + added);
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    QByteArray results;
    QCOMPARE(answerTo(text("getUserUuid"), {}, &results), QByteArray());
    QCOMPARE(results, utf16le(text("u")));
    QCOMPARE(server.problem(), QString());
}

void tst_AlwaysAnswers::parents_data()
{
    QTest::addColumn<Preparation>("prepare");
    const auto row = [](const char* name, Preparation prepare) { QTest::newRow(name) << prepare; };
    row("ignores all signals", ignoreAllSignals);
    row("blocks all signals", blockAllSignals);
    row("does both", [] {
        ignoreAllSignals();
        blockAllSignals();
    });
    row("leaves files open", leaveFilesOpen);
    row("allows sixteen open files", lowerLimits);
    row("reads no output", breakOutput);
    row("reads no output, ignores and blocks", [] {
        breakOutput();
        ignoreAllSignals();
        blockAllSignals();
    });
    row("closes everything", [] {
        for (int file = 0; file < 1024; ++file) {
            close(file);
        }
    });
    row("is of no session", [] { setsid(); });
}

void tst_AlwaysAnswers::parents()
{
    QFETCH(Preparation, prepare);
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    server.expect("POST", "/citations/merge", ScriptedReply::json(R"({"citationCluster":1})"));
    QByteArray results;
    QCOMPARE(answerTo(text("getUserUuid"), BridgeStart::prepared(prepare), &results), QByteArray());
    QCOMPARE(results, utf16le(text("u")));
    QCOMPARE(answerTo(text("mergeFields"), BridgeStart::prepared(prepare), &results), QByteArray());
    QCOMPARE(results, utf16le(text("ADDIN CSL_CITATION 1")));
    QCOMPARE(server.problem(), QString());
}

void tst_AlwaysAnswers::parentsThatAllowNoThread_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("processes");
    QTest::addColumn<QString>("result");
    const QString failed = text(
        "Unable to retrieve uuid - error: 0. Server error 'Unable to start the network thread'");
    QTest::newRow("none for a query") << text("getUserUuid") << 1 << failed;
    QTest::newRow("one for a query") << text("getUserUuid") << 2 << failed;
    QTest::newRow("none for a change") << text("mergeFields") << 1 << QString();
    QTest::newRow("one for a change") << text("mergeFields") << 2 << QString();
}

void tst_AlwaysAnswers::parentsThatAllowNoThread()
{
    QFETCH(QString, command);
    QFETCH(int, processes);
    QFETCH(QString, result);
    const ExchangeFolder folder;
    folder.putArguments({});
    giveToOrdinaryUser(folder.path());
    const ExchangeFolder programs;
    // The limit does not hold for root.
    BridgeStart start = BridgeStart::asOrdinaryUser(programs.path(), [processes] {
        const rlimit limit{rlim_t(processes), rlim_t(processes)};
        setrlimit(RLIMIT_NPROC, &limit);
    });
    // The leak checker needs a process too, and Qt leaks what waits for its thread.
    start.environment.insert(text("ASAN_OPTIONS"), text("detect_leaks=0"));
    const BridgeOutcome run = runBridge({command, folder.path()}, start);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), utf16le(result));
    QCOMPARE(folder.ready(), utf16le(QString::number(2 * result.size())));
}

QTEST_GUILESS_MAIN(tst_AlwaysAnswers)
#include "tst_alwaysanswers.moc"

#include "tests/support/BadParents.h"
#include "tests/support/BridgeRun.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtNetwork/qtnetworkglobal.h>
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

/// Whatever environment and parent the program has, it writes its files and ends with status 0.
class tst_AlwaysAnswers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { QCOMPARE(server.problem(), QString()); }

    void answersInOddEnvironment_data();
    void answersInOddEnvironment();
    void readsPortFromOddSettings_data();
    void readsPortFromOddSettings();
    void answersWithSettingsOfAnotherUser();
    void reportsUnusablePort_data();
    void reportsUnusablePort();
    void usesLowSixteenBitsOfPort_data();
    void usesLowSixteenBitsOfPort();
    void answersUnderOddParent_data();
    void answersUnderOddParent();
    void answersWithoutThreads_data();
    void answersWithoutThreads();

private:
    QByteArray answerTo(const char* command, const BridgeStart& start, QByteArray* results);

    TemporaryHome home;
    ScriptedServer server;
};

void tst_AlwaysAnswers::init()
{
    server.reset();
    QDir(home.path(text("xdg_config_home"))).removeRecursively();
    home.writePort(server.port());
}

/// Runs `command` without arguments. Returns what differs from a run without warnings, and the
/// bytes of the results in `*results`.
QByteArray tst_AlwaysAnswers::answerTo(
    const char* command, const BridgeStart& start, QByteArray* results)
{
    const ExchangeFolder folder;
    folder.putArguments({});
    BridgeOutcome run = runCommand(command, folder, start);
    *results = folder.results();
    // Under some of these parents the standard output cannot be read.
    if (run.output.isEmpty()) {
        run.output = QByteArray::number(results->size()) + '\n';
    }
    return problem(run, folder);
}

void tst_AlwaysAnswers::answersInOddEnvironment_data()
{
    QTest::addColumn<QString>("shellCommand");
    const char* const all[] = {"unset HOME", "unset HOME XDG_CONFIG_HOME XDG_CONFIG_DIRS",
        "HOME=", "HOME=/nonexistent/home XDG_CONFIG_HOME=", "HOME=/dev/null XDG_CONFIG_HOME=",
        "HOME=relative XDG_CONFIG_HOME=relative",
        "HOME=/proc/self XDG_CONFIG_HOME=", "XDG_CONFIG_HOME=/nonexistent",
        "XDG_CONFIG_HOME=/dev/null", "XDG_CONFIG_HOME=", "export LC_ALL=C; unset HOME LANG",
        "export LC_ALL=no_SUCH.locale", "export TMPDIR=/nonexistent",
        "export QT_PLUGIN_PATH=/nonexistent", "exec env -i \"$0\" \"$@\"", "cd /proc/self",
        "umask 077"};
    for (const char* const shellCommand : all) {
        QTest::newRow(shellCommand) << text(shellCommand);
    }
}

void tst_AlwaysAnswers::answersInOddEnvironment()
{
    QFETCH(QString, shellCommand);
    const BridgeStart start = BridgeStart::inShell(shellCommand + text("\nexec \"$0\" \"$@\""));
    QByteArray results;
    QCOMPARE(answerTo("hasManualEdit", start, &results), QByteArray());
    QCOMPARE(results, utf16le(text("false")));
    if (shellCommand.contains(text("XDG")) || shellCommand.contains(text("env -i"))) {
        return; // The settings are elsewhere.
    }
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    QCOMPARE(answerTo("getUserUuid", start, &results), QByteArray());
    QCOMPARE(results, utf16le(text("u")));
}

void tst_AlwaysAnswers::readsPortFromOddSettings_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("holdsPort"); // otherwise the default port is used
    const QByteArray port = "\n[%General]\nhttpServerPort=PORT\n";
    QTest::newRow("empty file") << QByteArray("") << false;
    QTest::newRow("folder in place of the file") << QByteArray() << false;
    QTest::newRow("garbage") << QByteArray("\x00\xff\xfe garbage [[[ = \n[", 19) << false;
    QTest::newRow("10 MB of garbage") << QByteArray(10000000, '\xa7') << false;
    QTest::newRow("10 MB of one group") << QByteArray(10000000, '[') << false;
    QTest::newRow("binary property list") << QByteArray("bplist00\xd1\x01\x02", 11) << false;
    QTest::newRow("file cut off before the port") << port.left(20) << false;
    QTest::newRow("port after a million keys")
        << QByteArray("k=v\n").repeated(1000000) + port << true;
    QTest::newRow("port between other groups") << "[a]\nb=1\n" + port + "[c]\nd=2\n" << true;
}

void tst_AlwaysAnswers::readsPortFromOddSettings()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, holdsPort);
    ScriptedServer atDefaultPort;
    if (!atDefaultPort.listenOn(50002)) {
        QSKIP("Port 50002 is in use, so no server of this test can listen there.");
    }
    const QString path = text("xdg_config_home/tessaron.com/Tessaron Desktop.conf");
    if (content.isNull()) {
        QVERIFY(QFile::remove(home.path(path)));
        QVERIFY(QDir().mkpath(home.path(path)));
    } else {
        home.writeSettings(content.replace("PORT", QByteArray::number(server.port())));
    }
    ScriptedServer& expected = holdsPort ? server : atDefaultPort;
    expected.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    QByteArray results;
    QCOMPARE(answerTo("getUserUuid", {}, &results), QByteArray());
    QCOMPARE(results, utf16le(text("u")));
    QCOMPARE(atDefaultPort.problem(), QString());
}

void tst_AlwaysAnswers::answersWithSettingsOfAnotherUser()
{
    // The user who runs the program may not enter the folder of the settings.
    const ExchangeFolder folder;
    folder.putArguments({});
    giveToOrdinaryUser(folder.path());
    const ExchangeFolder programs;
    const BridgeStart start = BridgeStart::asOrdinaryUser(programs.path());
    const QString settings = home.path(text("xdg_config_home/tessaron.com"));
    QVERIFY(QFile::setPermissions(settings, QFile::Permissions()));
    const BridgeOutcome run = runCommand("hasManualEdit", folder, start);
    QVERIFY(QFile::setPermissions(settings, QFile::Permissions(0x7700)));
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(text("false")));
}

void tst_AlwaysAnswers::reportsUnusablePort_data()
{
    QTest::addColumn<QByteArray>("port");
    QTest::newRow("0") << QByteArray("0");
    QTest::newRow("zero in the low sixteen bits") << QByteArray("65536");
    QTest::newRow("not a number") << QByteArray("%1");
}

void tst_AlwaysAnswers::reportsUnusablePort()
{
    QFETCH(QByteArray, port);
    home.writeSettings("[%General]\nhttpServerPort=" + port + "\n");
    QByteArray results;
    QCOMPARE(answerTo("getUserUuid", {}, &results), QByteArray());
    const QByteArray message = utf16le(text("Unable to retrieve uuid - error: 0. Server error '"));
    QCOMPARE(results.left(message.size()), message);
    QVERIFY(results.size() > message.size() + utf16le(text("'")).size());
    QCOMPARE(server.connectionCount(), 0);
}

void tst_AlwaysAnswers::usesLowSixteenBitsOfPort_data()
{
    QTest::addColumn<int>("added");
    QTest::newRow("port plus 65536") << 65536;
    QTest::newRow("port minus 65536") << -65536;
    QTest::newRow("port plus 2^30") << (1 << 30);
}

void tst_AlwaysAnswers::usesLowSixteenBitsOfPort()
{
    QFETCH(int, added);
    home.writePort(server.port() + added);
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    QByteArray results;
    QCOMPARE(answerTo("getUserUuid", {}, &results), QByteArray());
    QCOMPARE(results, utf16le(text("u")));
}

void tst_AlwaysAnswers::answersUnderOddParent_data()
{
    QTest::addColumn<Preparation>("prepare");
    const auto row = [](const char* name, Preparation prepare) { QTest::newRow(name) << prepare; };
    row("ignores all signals", ignoreAllSignals);
    row("blocks all signals", blockAllSignals);
    row("leaves files open", leaveFilesOpen);
    row("allows sixteen open files", lowerLimits);
    row("reads no output, ignores and blocks all signals", [] {
        breakOutput();
        ignoreAllSignals();
        blockAllSignals();
    });
    row("closes all files", [] {
        for (int file = 0; file < 1024; ++file) {
            close(file);
        }
    });
    row("starts it in a session without a terminal", [] { setsid(); });
}

void tst_AlwaysAnswers::answersUnderOddParent()
{
    QFETCH(Preparation, prepare);
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    server.expect("POST", "/citations/merge", ScriptedReply::json(R"({"citationCluster":1})"));
    QByteArray results;
    QCOMPARE(answerTo("getUserUuid", BridgeStart::prepared(prepare), &results), QByteArray());
    QCOMPARE(results, utf16le(text("u")));
    QCOMPARE(answerTo("mergeFields", BridgeStart::prepared(prepare), &results), QByteArray());
    QCOMPARE(results, utf16le(text("ADDIN CSL_CITATION 1")));
}

void tst_AlwaysAnswers::answersWithoutThreads_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<int>("processes");
    QTest::addColumn<QString>("result");
    const QString failed = text(
        "Unable to retrieve uuid - error: 0. Server error 'Unable to start the network thread'");
    QTest::newRow("GET, no thread allowed") << QByteArray("getUserUuid") << 1 << failed;
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0) && QT_CONFIG(bearermanagement)
    // Bearer management starts a thread first, which uses up the one allowed.
    QTest::newRow("GET, one thread allowed") << QByteArray("getUserUuid") << 2 << failed;
#endif
    QTest::newRow("POST, no thread allowed") << QByteArray("mergeFields") << 1 << QString();
}

void tst_AlwaysAnswers::answersWithoutThreads()
{
    QFETCH(QByteArray, command);
    QFETCH(int, processes);
    QFETCH(QString, result);
    const ExchangeFolder folder;
    folder.putArguments({});
    giveToOrdinaryUser(folder.path());
    const ExchangeFolder programs;
    // The limit does not apply to root.
    BridgeStart start = BridgeStart::asOrdinaryUser(programs.path(), [processes] {
        const rlimit limit{rlim_t(processes), rlim_t(processes)};
        setrlimit(RLIMIT_NPROC, &limit);
    });
    // The leak checker needs a process, too, and Qt leaks the objects that wait for its thread.
    start.environment.insert(text("ASAN_OPTIONS"), text("detect_leaks=0"));
    const BridgeOutcome run = runCommand(command.constData(), folder, start);
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(result));
    QCOMPARE(server.connectionCount(), 0);
}

QTEST_GUILESS_MAIN(tst_AlwaysAnswers)
#include "tst_alwaysanswers.moc"

#include "tests/support/BadParents.h"
#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <unistd.h>

namespace {

/// The values behind `key` in what the started application recorded.
QByteArrayList recorded(const QByteArray& record, const QByteArray& key)
{
    QByteArrayList values;
    const QByteArrayList lines = record.split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(key)) {
            values << line.mid(key.size()).trimmed();
        }
    }
    return values;
}

/// The signals in the line `key`, without the two that the C library keeps for its threads: its
/// posix_spawn() ignores them on the way, and every process sets them anew.
quint64 signalSet(const QByteArray& record, const QByteArray& key)
{
    constexpr quint64 ofTheLibrary = 0x180000000;
    bool ok = false;
    const quint64 set = recorded(record, key).value(0).toULongLong(&ok, 16);
    return ok ? set & ~ofTheLibrary : ~quint64(0);
}

} // namespace

/// The application that the program starts gets nothing of the program's surroundings, and nothing
/// of what the program set for itself.
class tst_Inheritance : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }
    void theApplicationInheritsNothing_data();
    void theApplicationInheritsNothing();
    void theApplicationGetsTheUsersLocale_data();
    void theApplicationGetsTheUsersLocale();

private:
    void launch(BridgeStart start, QByteArray* record);

    TemporaryHome home;
    ScriptedServer server;
};

void tst_Inheritance::theApplicationInheritsNothing_data()
{
    QTest::addColumn<Preparation>("prepare");
    const auto row = [](const char* name, Preparation prepare) { QTest::newRow(name) << prepare; };
    row("from an ordinary parent", [] {});
    row("from one that ignores all signals", ignoreAllSignals);
    row("from one that blocks all signals", blockAllSignals);
    row("from one that leaves files open", leaveFilesOpen);
    row("from one that closed its streams", [] {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
    });
    row("from one that does all of it", [] {
        ignoreAllSignals();
        blockAllSignals();
        leaveFilesOpen();
        breakOutput();
    });
}

/// Runs the bridge, which starts a stand-in of the application that records how it was started.
void tst_Inheritance::launch(BridgeStart start, QByteArray* record)
{
    if (QFile::exists(text("/opt/Tessaron Desktop/tessaron-desktop"))) {
        QSKIP("The application is installed on this machine and would be started.");
    }
    const QString entry = text("xdg_data_home/applications/com.tessaron.desktop.desktop");
    home.writeFile(
        entry, "[Desktop Entry]\nType=Application\nName=T\nExec=\"" START_RECORDER "\"\n");
    const QString recordPath = home.path(text("record"));
    QFile::remove(recordPath);
    server.expect("GET", "/tessaronDesktopInfo", ScriptedReply::json("{}", 404));
    server.expect("GET", "/tessaronDesktopInfo",
        ScriptedReply::json("{\"processId\":" + QByteArray::number(getpid()) + '}'));
    start.environment.insert(text("RECORD"), recordPath);
    const ExchangeFolder folder;
    folder.putArguments({});
    const BridgeOutcome run = runBridge({text("launchTessaron"), folder.path()}, start);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), utf16le(text("true")));
    QCOMPARE(server.problem(), QString());
    QTRY_VERIFY(bytesOf(recordPath).contains("fd 2="));
    QVERIFY(QFile::remove(home.path(entry)));
    *record = bytesOf(recordPath);
}

void tst_Inheritance::theApplicationInheritsNothing()
{
    QFETCH(Preparation, prepare);
    QByteArray told;
    launch(BridgeStart::prepared(prepare), &told);
    QCOMPARE(signalSet(told, "SigIgn:"), quint64(0));
    QCOMPARE(signalSet(told, "SigBlk:"), quint64(0));
    QByteArrayList files = recorded(told, "fd ");
    std::sort(files.begin(), files.end());
    QCOMPARE(files, (QByteArrayList{"0=/dev/null", "1=/dev/null", "2=/dev/null"}));
    QCOMPARE(recorded(told, "session "), recorded(told, "pid "));
}

void tst_Inheritance::theApplicationGetsTheUsersLocale_data()
{
    QTest::addColumn<QString>("shellCommand");
    QTest::addColumn<QByteArrayList>("values");
    const auto row = [](const char* name, const char* shellCommand, const QByteArrayList& values) {
        QTest::newRow(name) << text(shellCommand) + text("; exec \"$0\" \"$@\"") << values;
    };
    row("not set", "unset LC_ALL", {});
    row("empty", "export LC_ALL=", {""});
    row("one of this machine", "export LC_ALL=C.UTF-8", {"C.UTF-8"});
    row("one that is missing", "export LC_ALL=xx_XX.ISO-8859-1@none", {"xx_XX.ISO-8859-1@none"});
}

void tst_Inheritance::theApplicationGetsTheUsersLocale()
{
    QFETCH(QString, shellCommand);
    QByteArray told;
    launch(BridgeStart::inShell(shellCommand), &told);
    QTEST(recorded(told, "env LC_ALL="), "values");
}

QTEST_GUILESS_MAIN(tst_Inheritance)
#include "tst_inheritance.moc"

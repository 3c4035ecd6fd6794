#include "tests/support/BridgeRun.h"
#include "tests/support/ClosedPort.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/RecordingApplication.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

Q_DECLARE_METATYPE(ScriptedReply)

namespace {

ScriptedReply json(const QByteArray& body, int status = 200)
{
    return ScriptedReply::json(body, status);
}

/// Sends `bytes` as they are and closes the connection.
ScriptedReply cutOff(const QByteArray& bytes)
{
    return {bytes, ScriptedReply::Close, -1};
}

} // namespace

/// The results that the macro gets for unusual replies and without a reply. The tests of the
/// service and of the lower layers have the full tables.
class tst_BridgeReplies : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { QCOMPARE(server.problem(), QString()); }

    void returnsText_data();
    void returnsText();
    void reportsStatus_data();
    void reportsStatus();
    void formatsBatch_data();
    void formatsBatch();
    void returnsHugeText();
    void readsHugeReplyWithSmallResult();
    void asksForDialogOnce_data();
    void asksForDialogOnce();
    void treatsCutReplyAsEmpty_data();
    void treatsCutReplyAsEmpty();
    void answersWithoutServer_data();
    void answersWithoutServer();

private:
    TemporaryHome home;
    ScriptedServer server;
};

void tst_BridgeReplies::init()
{
    server.reset();
    home.writePort(server.port());
}

void tst_BridgeReplies::returnsText_data()
{
    QTest::addColumn<ScriptedReply>("reply");
    QTest::addColumn<QString>("result");
    QTest::newRow("half an emoji and a separator")
        << json(R"({"uuid":"\ud83d\u0001\u0000"})") << textOfUnits({0xd83d, 1, 0});
    QTest::newRow("page instead of JSON")
        << ScriptedReply::withBody(200, "text/html", "<html>uuid</html>") << QString();
    QTest::newRow("200,000 nested lists")
        << json("{\"uuid\":" + QByteArray(200000, '[') + QByteArray(200000, ']') + '}')
        << QString();
}

void tst_BridgeReplies::returnsText()
{
    QFETCH(ScriptedReply, reply);
    QFETCH(QString, result);
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid", reply);
    QCOMPARE(problem(runCommand("getUserUuid", folder), folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(result));
}

void tst_BridgeReplies::reportsStatus_data()
{
    QTest::addColumn<ScriptedReply>("reply");
    QTest::addColumn<QString>("result");
    const auto row = [](const char* name, const ScriptedReply& reply, const char* message) {
        QTest::newRow(name) << reply << text("Unable to retrieve uuid - error: ") + text(message);
    };
    row("201", json(R"({"uuid":"u"})", 201), R"(201. Server error '{"uuid":"u"}')");
    row("302",
        {"HTTP/1.1 302 Found\r\nLocation: /userAccount\r\nContent-Length: 0\r\n\r\n",
            ScriptedReply::KeepOpen, -1},
        "302. Server error 'Unknown error'");
    row("404 with an error", json(R"({"error":"no user %1"})", 404),
        "404. Server error 'no user %1'");
}

void tst_BridgeReplies::reportsStatus()
{
    QFETCH(ScriptedReply, reply);
    QFETCH(QString, result);
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid", reply);
    QCOMPARE(problem(runCommand("getUserUuid", folder), folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(result));
    QCOMPARE(server.connectionCount(), 1);
}

void tst_BridgeReplies::formatsBatch_data()
{
    QTest::addColumn<ScriptedReply>("reply");
    QTest::addColumn<QStringList>("results");
    QTest::addColumn<QByteArray>("errors");
    QTest::newRow("rejected citation") << json(R"({"citationIndex":0,"error":"bad"})", 500)
                                       << QStringList{text("false"), text("0")} << QByteArray();
    QTest::newRow("body cut off")
        << cutOff("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"citationClusters\":[{}")
        << QStringList{text("false"), text("-1")}
        << QByteArray("Citation count mismatch.  Submitted 1 citations but only received 0 "
                      "formatted citations.\n");
    QTest::newRow("no bibliography")
        << json(R"({"citationClusters":[{}]})") << QStringList{text("false"), text("-1")}
        << QByteArray("No formatted bibliography returned\n");
    QTest::newRow("values of the wrong types")
        << json(R"({"citationClusters":[{"citationCluster":[1],"formattedText":{}}],)"
                R"("citationStyleUrl":7,"bibliography":1.5})")
        << QStringList{text("true"), text("7"), text("1.5"), text("ADDIN CSL_CITATION [1]"),
               QString(), QString(), QString()}
        << QByteArray();
}

void tst_BridgeReplies::formatsBatch()
{
    QFETCH(ScriptedReply, reply);
    QFETCH(QStringList, results);
    QFETCH(QByteArray, errors);
    const ExchangeFolder folder;
    folder.putArguments({text("s"), text("f"), text("t")});
    server.expect("POST", "/formattedCitationsAndBibliography/interactive", reply);
    const BridgeOutcome run = runCommand("formatCitationsAndBibliography", folder);
    QCOMPARE(problem(run, folder, errors), QByteArray());
    QCOMPARE(folder.results(), listBytes(results));
}

void tst_BridgeReplies::returnsHugeText()
{
    constexpr int length = 20 * 1024 * 1024;
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid", json("{\"uuid\":\"" + QByteArray(length, 'u') + "\"}"));
    QCOMPARE(problem(runCommand("getUserUuid", folder), folder), QByteArray());
    QVERIFY(folder.results() == QByteArray("u\0", 2).repeated(length));
}

void tst_BridgeReplies::readsHugeReplyWithSmallResult()
{
    const QByteArray style = R"({"url":"u","title":"t"},)";
    constexpr int size = 5 * 1024 * 1024;
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid",
        json("{\"a\":[" + style.repeated(size / style.size()) + "0],\"uuid\":\"u\"}"));
    QCOMPARE(problem(runCommand("getUserUuid", folder), folder), QByteArray());
    QCOMPARE(folder.results(), QByteArray("u\0", 2));
}

void tst_BridgeReplies::asksForDialogOnce_data()
{
    QTest::addColumn<ScriptedReply>("reply");
    QTest::newRow("closed connection") << cutOff("");
    QTest::newRow("reset connection") << ScriptedReply{"", ScriptedReply::Reset, -1};
    QTest::newRow("bytes that are not HTTP") << cutOff("hello\r\n\r\n");
}

void tst_BridgeReplies::asksForDialogOnce()
{
    QFETCH(ScriptedReply, reply);
    const ExchangeFolder folder;
    folder.putArguments({text("f"), text("t")});
    server.expect("POST", "/citation/update/interactive", reply);
    const BridgeOutcome run = runCommand("checkManualFormatAndGetFieldCode", folder);
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), QByteArray("f\0", 2));
    QCOMPARE(server.requests().size(), 1);
}

void tst_BridgeReplies::treatsCutReplyAsEmpty_data()
{
    QTest::addColumn<ScriptedReply>("reply");
    const QByteArray ok = "HTTP/1.1 200 OK\r\n";
    QTest::newRow("half a body") << cutOff(
        ok + "Content-Length: 90\r\n\r\n{\"citationStyles\":[{\"url\"");
    QTest::newRow("no body") << cutOff(ok + "Content-Length: 50\r\n\r\n");
}

void tst_BridgeReplies::treatsCutReplyAsEmpty()
{
    QFETCH(ScriptedReply, reply);
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/citationStyles/default", reply);
    QCOMPARE(problem(runCommand("getRecentStyles", folder), folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(text("0")));
}

void tst_BridgeReplies::answersWithoutServer_data()
{
    QTest::addColumn<QStringList>("results");
    const auto row = [](const char* command, const QStringList& results) {
        QTest::newRow(command) << results;
    };
    const QString error = text(" - error: 0. Server error 'Connection refused'");
    const QString code = text(R"(ADDIN {"tessaron":{}})");
    const QStringList emptyString{QString()};
    row("setWordProcessor", {});
    row("getFieldCodeFromCitationEditor", emptyString);
    row("getFieldCodeFromUuid", emptyString);
    row("getCitationStyleFromDialog", emptyString);
    row("formatCitationsAndBibliography", {text("false"), text("-1")});
    row("isTessaronRunning", {text("false")});
    row("launchTessaron", {text("false")});
    row("mergeFields", emptyString);
    row("checkManualFormatAndGetFieldCode", {code});
    row("undoManualFormat", {code});
    row("hasManualEdit", {text("false")});
    row("getUserAccount", {text("Unable to retrieve account") + error});
    row("getUserUuid", {text("Unable to retrieve uuid") + error});
    row("getRecentStyles", {text("0")});
    row("tessaronProcessId", {text("0")});
    row("lastError", emptyString);
    row("getDesktopCitationStyleId", {text("Can't get selected citation style id") + error});
}

void tst_BridgeReplies::answersWithoutServer()
{
    QFETCH(QStringList, results);
    if (RecordingApplication::isRealOneInstalled()) {
        QSKIP("The application is installed on this machine and would be started.");
    }
    const ClosedPort port;
    home.writePort(port.number());
    const ExchangeFolder folder;
    folder.putArguments({text(R"(ADDIN {"tessaron":{}})"), text("t")});
    QCOMPARE(problem(runCommand(QTest::currentDataTag(), folder), folder), QByteArray());
    QCOMPARE(folder.results(), listBytes(results));
}

QTEST_GUILESS_MAIN(tst_BridgeReplies)
#include "tst_bridgereplies.moc"

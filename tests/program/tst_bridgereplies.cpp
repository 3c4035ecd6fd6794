#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QTcpSocket>
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

QByteArray nested(int depth)
{
    return QByteArray(depth, '[') + QByteArray(depth, ']');
}

/// A server that answers every connection with the same bytes and closes it.
class StubbornServer : public QTcpServer {
public:
    explicit StubbornServer(const QByteArray& bytes)
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this, bytes] {
            QTcpSocket* const socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [socket, bytes] {
                socket->write(bytes);
                socket->disconnectFromHost();
            });
        });
    }
};

} // namespace

/// What the macro gets when the application answers with something unusual, or not at all.
class tst_BridgeReplies : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void texts_data();
    void texts();
    void statuses_data();
    void statuses();
    void batches_data();
    void batches();
    void hugeTexts();
    void hugeRepliesThatSayLittle();
    void dialogsAreAskedForOnce_data();
    void dialogsAreAskedForOnce();
    void queriesThatAreCutOff_data();
    void queriesThatAreCutOff();
    void noServer_data();
    void noServer();

private:
    TemporaryHome home;
    ScriptedServer server;
};

void tst_BridgeReplies::init()
{
    server.reset();
    home.writePort(server.port());
}

void tst_BridgeReplies::texts_data()
{
    QTest::addColumn<ScriptedReply>("reply");
    QTest::addColumn<QString>("result");
    const auto row = [](const char* name, const ScriptedReply& reply, const QString& result) {
        QTest::newRow(name) << reply << result;
    };
    const QString none;
    row("a text", json(R"({"uuid":"u"})"), text("u"));
    row("a text in 1,000 others", json(R"({"a":)" + nested(1000) + R"(,"uuid":"u"})"), text("u"));
    row("an error in a success", json(R"({"error":"no","uuid":"u"})"), text("u"));
    row("an escaped separator", json(R"({"uuid":"a\u0001b"})"), textOfUnits({'a', 1, 'b'}));
    row("U+0000", json(R"({"uuid":"a\u0000b"})"), textOfUnits({'a', 0, 'b'}));
    row("half an emoji", json(R"({"uuid":"\ud83d"})"), textOfUnits({0xd83d}));
    row("a byte-order mark in the text", json(R"({"uuid":"\ufeffu"})"), textOfUnits({0xfeff, 'u'}));
    row("raw control characters", json("{\"uuid\":\"a\tb\"}"), text("a\tb"));
    row("the key twice", json(R"({"uuid":"u","uuid":"v"})"), text("v"));
    row("a number", json(R"({"uuid":42})"), text("42"));
    row("a large number", json(R"({"uuid":18446744073709551615})"), text("18446744073709551615"));
    row("true", json(R"({"uuid":true})"), text("true"));
    row("null", json(R"({"uuid":null})"), none);
    row("an object", json(R"({"uuid":{"uuid":"u"}})"), none);
    row("a list", json(R"({"uuid":["u"]})"), none);
    row("another letter case", json(R"({"UUID":"u"})"), none);
    row("an empty body", json(""), none);
    row("blanks", json("  \r\n "), none);
    row("no JSON", ScriptedReply::withBody(200, "text/html", "<html>uuid</html>"), none);
    row("JSON cut off", json(R"({"uuid":"u")"), none);
    row("JSON and more", json(R"({"uuid":"u"} more)"), none);
    row("two objects", json(R"({"uuid":"u"}{"uuid":"v"})"), none);
    row("single quotes", json("{'uuid':'u'}"), none);
    row("invalid UTF-8", json("{\"uuid\":\"\xff\"}"), none);
    row("a list as the whole", json(R"([{"uuid":"u"}])"), none);
    row("a text as the whole", json(R"("uuid")"), none);
    row("null as the whole", json("null"), none);
    row("nested too deeply", json(R"({"a":)" + nested(1100) + R"(,"uuid":"u"})"), none);
    row("200,000 lists", json(R"({"uuid":)" + nested(200000) + '}'), none);
    row("200,000 lists, never closed", json(QByteArray(200000, '[')), none);
    row("200,000 objects, never closed", json(QByteArray("{\"a\":").repeated(200000)), none);
}

void tst_BridgeReplies::texts()
{
    QFETCH(ScriptedReply, reply);
    QFETCH(QString, result);
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid", reply);
    const BridgeOutcome run = runBridge({text("getUserUuid"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray::number(2 * result.size()) + '\n');
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), utf16le(result));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeReplies::statuses_data()
{
    QTest::addColumn<ScriptedReply>("reply");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("error");
    const auto row = [](const char* name, const ScriptedReply& reply, const char* status,
                         const QString& error) {
        QTest::newRow(name) << reply << text(status) << error;
    };
    const QByteArray uuid = R"({"uuid":"u"})";
    const QByteArray elsewhere = "HTTP/1.1 302 Found\r\nLocation: /userAccount\r\n";
    const QString unknown = text("Unknown error");
    row("201", json(uuid, 201), "201", text(R"({"uuid":"u"})"));
    row("201 without a body", json("", 201), "201", unknown);
    row("204", {"HTTP/1.1 204 No Content\r\n\r\n", ScriptedReply::KeepOpen, -1}, "204", unknown);
    row("206", json(uuid, 206), "206", text(R"({"uuid":"u"})"));
    row("302", {elsewhere + "Content-Length: 5\r\n\r\nmoved", ScriptedReply::KeepOpen, -1}, "302",
        text("moved"));
    row("302 without a body",
        {elsewhere + "Content-Length: 0\r\n\r\n", ScriptedReply::KeepOpen, -1}, "302", unknown);
    row("401",
        {"HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"r\"\r\n"
         "Content-Length: 4\r\n\r\nwho?",
            ScriptedReply::KeepOpen, -1},
        "401", text("who?"));
    row("404 with an error", json(R"({"error":"no user"})", 404), "404", text("no user"));
    row("404 with a page", ScriptedReply::withBody(404, "text/html", "<p>\xd0\xb6"), "404",
        text("<p>\xd0\xb6"));
    row("500 with a number", json(R"({"error":42})", 500), "500", text("42"));
    row("500 with an object", json(R"({"error":{"error":"x"}})", 500), "500", QString());
    row("500 with a list", json(R"({"error":["x"]})", 500), "500", QString());
    row("500 with null", json(R"({"error":null})", 500), "500", QString());
    row("500 with an empty text", json(R"({"error":""})", 500), "500", QString());
    row("500 with placeholders", json(R"({"error":"%1 %2 100%"})", 500), "500", text("%1 %2 100%"));
    row("500 with a list as the whole", json(R"(["error"])", 500), "500", text(R"(["error"])"));
    row("500 with JSON cut off", json(R"({"error":"x)", 500), "500", text(R"({"error":"x)"));
    row("500 with much text", json(QByteArray(1000000, 'x'), 500), "500",
        QString(1000000, QLatin1Char('x')));
}

void tst_BridgeReplies::statuses()
{
    QFETCH(ScriptedReply, reply);
    QFETCH(QString, status);
    QFETCH(QString, error);
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid", reply);
    const BridgeOutcome run = runBridge({text("getUserUuid"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    const QByteArray results = utf16le(text("Unable to retrieve uuid - error: ") + status
        + text(". Server error '") + error + QLatin1Char('\''));
    QCOMPARE(folder.results(), results);
    QCOMPARE(run.output, QByteArray::number(results.size()) + '\n');
    QCOMPARE(server.problem(), QString());
    QCOMPARE(server.connectionCount(), 1);
}

void tst_BridgeReplies::batches_data()
{
    QTest::addColumn<ScriptedReply>("reply");
    QTest::addColumn<QStringList>("results");
    QTest::addColumn<QByteArray>("errors");
    const QStringList failed{text("false"), text("-1")};
    const auto mismatch = [](int received) {
        return "Citation count mismatch.  Submitted 1 citations but only received "
            + QByteArray::number(received) + " formatted citations.\n";
    };
    const auto silent = [&](const char* name, const ScriptedReply& reply, const char* index) {
        QTest::newRow(name) << reply << QStringList{text("false"), text(index)} << QByteArray();
    };
    silent("a rejected citation", json(R"({"citationIndex":0,"error":"bad"})", 500), "0");
    silent("a large index", json(R"({"citationIndex":2147483647})", 400), "2147483647");
    silent("an index that is a text", json(R"({"citationIndex":"x"})", 500), "0");
    silent("an index that is an object", json(R"({"citationIndex":{}})", 500), "0");
    silent("an index in almost a success", json(R"({"citationIndex":3})", 201), "3");
    silent("404 with a page", json("<p>", 404), "-1");
    silent("500 with nothing", json("", 500), "-1");
    silent("500 with a list", json(R"([{"citationIndex":1}])", 500), "-1");
    const auto told = [&](const char* name, const ScriptedReply& reply, int received) {
        QTest::newRow(name) << reply << failed << mismatch(received);
    };
    told("an empty body", json(""), 0);
    told("no JSON", json("hello"), 0);
    told("a list", json("[]"), 0);
    told("JSON cut off", json(R"({"citationClusters":[{},{}],"bibliography":"b")"), 0);
    told("a body cut off",
        cutOff("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"citationClusters\":[{}"), 0);
    told("clusters that are an object", json(R"({"citationClusters":{"a":1}})"), 0);
    told("clusters that are a text", json(R"({"citationClusters":"[{}]"})"), 0);
    told("no clusters", json(R"({"bibliography":"b"})"), 0);
    told("a cluster too many", json(R"({"citationClusters":[{},{}],"bibliography":"b"})"), 2);
    const QByteArray noBibliography = "No formatted bibliography returned\n";
    QTest::newRow("no bibliography")
        << json(R"({"citationClusters":[{}]})") << failed << noBibliography;
    QTest::newRow("a bibliography that is an object")
        << json(R"({"citationClusters":[{}],"bibliography":{}})") << failed << noBibliography;
    QTest::newRow("clusters of the wrong types")
        << json(R"({"citationClusters":[{"citationCluster":[1],"formattedText":{}}],)"
                R"("citationStyleUrl":7,"bibliography":1.5})")
        << QStringList{text("true"), text("7"), text("1.5"), text("ADDIN CSL_CITATION [1]"),
               QString(), QString(), QString()}
        << QByteArray();
    QTest::newRow("a cluster that is null")
        << json(R"({"citationClusters":[null],"bibliography":"b"})")
        << QStringList{text("true"), QString(), text("b"), text("ADDIN CSL_CITATION null"),
               QString(), QString(), QString()}
        << QByteArray();
}

void tst_BridgeReplies::batches()
{
    QFETCH(ScriptedReply, reply);
    QFETCH(QStringList, results);
    QFETCH(QByteArray, errors);
    const ExchangeFolder folder;
    folder.putArguments({text("s"), text("f"), text("t")});
    server.expect("POST", "/formattedCitationsAndBibliography/interactive", reply);
    const BridgeOutcome run = runBridge({text("formatCitationsAndBibliography"), folder.path()});
    QCOMPARE(run.errors, errors);
    QCOMPARE(run.output, QByteArray::number(listBytes(results).size()) + '\n');
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), listBytes(results));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeReplies::hugeTexts()
{
    constexpr int length = 50 * 1024 * 1024;
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid", json("{\"uuid\":\"" + QByteArray(length, 'u') + "\"}"));
    const BridgeOutcome run = runBridge({text("getUserUuid"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray::number(2 * length) + '\n');
    QCOMPARE(run.exitStatus, 0);
    QVERIFY(folder.results() == QByteArray("u\0", 2).repeated(length));
    QCOMPARE(folder.ready(), utf16le(QString::number(2 * length)));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeReplies::hugeRepliesThatSayLittle()
{
    const QByteArray style = R"({"url":"u","title":"t"},)";
    constexpr int size = 50 * 1024 * 1024;
    const ExchangeFolder folder;
    folder.putArguments({});
    server.expect("GET", "/userUuid",
        json("{\"a\":[" + style.repeated(size / style.size()) + "0],\"uuid\":\"u\"}"));
    const BridgeOutcome run = runBridge({text("getUserUuid"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("2\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), QByteArray("u\0", 2));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeReplies::dialogsAreAskedForOnce_data()
{
    QTest::addColumn<ScriptedReply>("reply");
    QTest::newRow("the server hangs up") << cutOff("");
    QTest::newRow("the server breaks off") << ScriptedReply{"", ScriptedReply::Reset, -1};
    QTest::newRow("a status line cut off") << cutOff("HTTP/1.1 20");
    QTest::newRow("headers cut off") << cutOff("HTTP/1.1 500 No\r\nContent-Le");
    QTest::newRow("no HTTP") << cutOff("hello\r\n\r\n");
    QTest::newRow("nonsense") << cutOff(QByteArray(5000, '\xff'));
    QTest::newRow("503") << cutOff("HTTP/1.1 503 Busy\r\nRetry-After: 0\r\n\r\n");
}

void tst_BridgeReplies::dialogsAreAskedForOnce()
{
    QFETCH(ScriptedReply, reply);
    const ExchangeFolder folder;
    folder.putArguments({text("f"), text("t")});
    server.expect("POST", "/citation/update/interactive", reply);
    const BridgeOutcome run = runBridge({text("checkManualFormatAndGetFieldCode"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("2\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), QByteArray("f\0", 2));
    QCOMPARE(server.problem(), QString());
    QCOMPARE(server.requests().size(), 1);
}

void tst_BridgeReplies::queriesThatAreCutOff_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("the server hangs up") << QByteArray();
    QTest::newRow("a status line cut off") << QByteArray("HTTP/1.1 20");
    QTest::newRow("headers cut off") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 5");
    QTest::newRow("no body") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n");
    QTest::newRow("half a body") << QByteArray(
        "HTTP/1.1 200 OK\r\nContent-Length: 90\r\n\r\n{\"citationStyles\":[{\"url\"");
    QTest::newRow("a length that is far from true")
        << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 268435456\r\n\r\n{\"citationStyles\":[");
    QTest::newRow("a length beyond all numbers")
        << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\n{\"cit");
    QTest::newRow("a negative length")
        << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n{\"citationSt");
    QTest::newRow("half a chunk") << QByteArray(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n50\r\n{\"citationSt");
    QTest::newRow("no HTTP") << QByteArray("hello\r\n\r\n");
}

void tst_BridgeReplies::queriesThatAreCutOff()
{
    QFETCH(QByteArray, bytes);
    const StubbornServer stubborn(bytes);
    QVERIFY(stubborn.isListening());
    home.writePort(stubborn.serverPort());
    const ExchangeFolder folder;
    folder.putArguments({});
    const BridgeOutcome run = runBridge({text("getRecentStyles"), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.output, QByteArray("2\n"));
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(folder.results(), QByteArray("0\0", 2));
    QCOMPARE(server.problem(), QString());
}

void tst_BridgeReplies::noServer_data()
{
    QTest::addColumn<QStringList>("results");
    const auto row = [](const char* command, const QStringList& results) {
        QTest::newRow(command) << results;
    };
    const QString error = text(" - error: 0. Server error 'Connection refused'");
    const QString code = text(R"(ADDIN {"tessaron":{}})");
    const QStringList nothing{QString()};
    row("setWordProcessor", {});
    row("getFieldCodeFromCitationEditor", nothing);
    row("getFieldCodeFromUuid", nothing);
    row("getCitationStyleFromDialog", nothing);
    row("formatCitationsAndBibliography", {text("false"), text("-1")});
    row("isTessaronRunning", {text("false")});
    row("launchTessaron", {text("false")});
    row("mergeFields", nothing);
    row("checkManualFormatAndGetFieldCode", {code});
    row("undoManualFormat", {code});
    row("hasManualEdit", {text("false")});
    row("getUserAccount", {text("Unable to retrieve account") + error});
    row("getUserUuid", {text("Unable to retrieve uuid") + error});
    row("getRecentStyles", {text("0")});
    row("tessaronProcessId", {text("0")});
    row("lastError", nothing);
    row("getDesktopCitationStyleId", {text("Can't get selected citation style id") + error});
}

void tst_BridgeReplies::noServer()
{
    QFETCH(QStringList, results);
    if (QFile::exists(text("/opt/Tessaron Desktop/tessaron-desktop"))) {
        QSKIP("The application is installed on this machine and would be started.");
    }
    // Bound but not listening: nobody else can take the port, and connections are refused.
    QTcpSocket reserved;
    QVERIFY(reserved.bind(QHostAddress(QHostAddress::LocalHost)));
    home.writePort(reserved.localPort());
    const ExchangeFolder folder;
    folder.putArguments({text(R"(ADDIN {"tessaron":{}})"), text("t")});
    const BridgeOutcome run = runBridge({text(QTest::currentDataTag()), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(folder.results(), listBytes(results));
    QCOMPARE(run.output, QByteArray::number(listBytes(results).size()) + '\n');
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(server.problem(), QString());
}

QTEST_GUILESS_MAIN(tst_BridgeReplies)
#include "tst_bridgereplies.moc"

#include "tests/frontend/HandlerFixture.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/Texts.h"

#include <QtTest>

namespace {

ScriptedReply reply(const char* json, int status = 200)
{
    return ScriptedReply::json(json, status);
}

} // namespace

/// What stays from one command to the next, commands that there are not, and the files.
class tst_CiteCommandHandlerFiles : public QObject, private HandlerFixture {
    Q_OBJECT

private Q_SLOTS:
    void init() { renew(); }

    void lastErrorTellsTheLastFailure();
    void aBatchStartsAnew();
    void aBatchFailsOnACountMismatch_data();
    void aBatchFailsOnACountMismatch();
    void aBatchFailsWithoutABibliography();
    void unknownCommands_data();
    void unknownCommands();
    void everyCommandSetsTheTemporaryFolder_data();
    void everyCommandSetsTheTemporaryFolder();
    void handlesFiles_data();
    void handlesFiles();
    void handlesAMissingArgumentFile();
    void cannotWriteResults();
};

void tst_CiteCommandHandlerFiles::lastErrorTellsTheLastFailure()
{
    server.expect("GET", "/userUuid", reply(R"({"error":"not signed in"})", 500));
    handler->handleCommandInternal(text("getUserUuid"), QString(), {});
    QCOMPARE(handler->handleCommandInternal(text("lastError"), QString(), {}),
        QStringList{text("not signed in")});
    QCOMPARE(server.problem(), QString());
}

void tst_CiteCommandHandlerFiles::aBatchStartsAnew()
{
    const QByteArray path = "/formattedCitationsAndBibliography/interactive";
    const QString command = text("formatCitationsAndBibliography");
    server.expect("POST", path, reply("{}", 500));
    server.expect("POST", path, reply("{}", 500));
    handler->handleCommandInternal(
        command, text("/one"), {text("s1"), text("f1"), text("t1"), text("f2"), text("t2")});
    handler->handleCommandInternal(command, text("/two"), {text("s2"), text("f3"), text("t3")});
    QCOMPARE(server.problem(), QString());
    QCOMPARE(compactJson(server.requests().at(1).body),
        compactJson(R"({"citationStyleUrl":"s2","tempDirectory":"/two","citationClusters":)"
                    R"([{"fieldCode":"f3","formattedText":"t3"}]})"));
}

void tst_CiteCommandHandlerFiles::aBatchFailsOnACountMismatch_data()
{
    QTest::addColumn<QByteArray>("clusters");
    QTest::addColumn<int>("received");
    QTest::newRow("none came back") << QByteArray("[]") << 0;
    QTest::newRow("one too few") << QByteArray("[{}]") << 1;
    QTest::newRow("one too many") << QByteArray("[{},{},{}]") << 3;
    QTest::newRow("no list") << QByteArray("{}") << 0;
    QTest::newRow("null") << QByteArray("null") << 0;
}

void tst_CiteCommandHandlerFiles::aBatchFailsOnACountMismatch()
{
    QFETCH(QByteArray, clusters);
    QFETCH(int, received);
    server.expect("POST", "/formattedCitationsAndBibliography/interactive",
        reply(
            "{\"bibliography\":\"b\",\"citationIndex\":1,\"citationClusters\":" + clusters + '}'));
    const QString warning =
        text("Citation count mismatch.  Submitted 2 citations but only received %1 formatted "
             "citations.")
            .arg(received);
    QTest::ignoreMessage(QtWarningMsg, qUtf8Printable(warning));
    QCOMPARE(handler->handleCommandInternal(text("formatCitationsAndBibliography"), QString(),
                 {QString(), QString(), QString(), QString(), QString()}),
        (QStringList{text("false"), text("-1")}));
    QCOMPARE(server.problem(), QString());
}

void tst_CiteCommandHandlerFiles::aBatchFailsWithoutABibliography()
{
    server.expect("POST", "/formattedCitationsAndBibliography/interactive",
        reply(R"({"citationStyleUrl":"s","citationClusters":[],"bibliography":""})"));
    QTest::ignoreMessage(QtWarningMsg, "No formatted bibliography returned");
    QCOMPARE(handler->handleCommandInternal(
                 text("formatCitationsAndBibliography"), QString(), {text("s")}),
        (QStringList{text("false"), text("-1")}));
    QCOMPARE(server.problem(), QString());
}

void tst_CiteCommandHandlerFiles::unknownCommands_data()
{
    QTest::addColumn<QString>("command");
    const char* const commands[] = {"", "noSuchCommand", "LastError", "lasterror", "GETUSERUUID",
        "getuseruuid", "getUserUui", "getUserUuidX", " getUserUuid", "getUserUuid ",
        "getUserUuid\n", "getUserUuid,lastError", "pluginVersion", "allowSetFocus",
        "setTempDirectory", "setCitationStyle", "resetCitations", "addCitation",
        "getCitationStyleId", "lastErrorCitationIndex", "-qmljsdebugger", "%1",
        "\xd0\xb3\xd0\xb5\xd1\x82"};
    for (const char* const command : commands) {
        const QString shown = text(command).replace(QLatin1Char('\n'), text("\\n"));
        QTest::newRow(qUtf8Printable(QLatin1Char('"') + shown + QLatin1Char('"'))) << text(command);
    }
    const char* const known[] = {"setWordProcessor", "getFieldCodeFromCitationEditor",
        "getFieldCodeFromUuid", "getCitationStyleFromDialog", "formatCitationsAndBibliography",
        "isTessaronRunning", "launchTessaron", "mergeFields", "checkManualFormatAndGetFieldCode",
        "undoManualFormat", "hasManualEdit", "getUserAccount", "getUserUuid", "getRecentStyles",
        "tessaronProcessId", "lastError", "getDesktopCitationStyleId"};
    for (const char* const command : known) {
        const QString capital = QChar::fromLatin1(command[0]).toUpper() + text(command + 1);
        QTest::newRow(qUtf8Printable(capital)) << capital;
    }
    QTest::newRow("U+0000 behind a known name") << text("getUserUuid") + QChar(0);
}

void tst_CiteCommandHandlerFiles::unknownCommands()
{
    QFETCH(QString, command);
    const ExchangeFolder folder;
    folder.putArguments({text("a"), text("b")});
    putFile(folder.resultsPath(), "old");
    QCOMPARE(handler->handleCommand(command, folder.path()), text("0"));
    QCOMPARE(folder.results(), QByteArray());
    QCOMPARE(folder.names(),
        (QStringList{text("mac-word-plugin-args.txt"), text("mac-word-plugin-results.txt")}));
    QCOMPARE(server.problem(), QString());
}

void tst_CiteCommandHandlerFiles::everyCommandSetsTheTemporaryFolder_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("an unknown one") << text("noSuchCommand");
    QTest::newRow("another letter case") << text("LastError");
    QTest::newRow("one that sends nothing") << text("lastError");
    QTest::newRow("hasManualEdit") << text("hasManualEdit");
}

void tst_CiteCommandHandlerFiles::everyCommandSetsTheTemporaryFolder()
{
    QFETCH(QString, command);
    handler->handleCommandInternal(command, text("/chosen \xd0\xb3"), {});
    server.expect("POST", "/formattedCitationsAndBibliography/interactive", reply("{}", 500));
    QVERIFY(!service->formatCitationsAndBibliography());
    QCOMPARE(server.problem(), QString());
    QCOMPARE(server.requests().constFirst().json().value(text("tempDirectory")).toString(),
        text("/chosen \xd0\xb3"));
}

void tst_CiteCommandHandlerFiles::handlesFiles_data()
{
    QTest::addColumn<QByteArray>("arguments");
    QTest::addColumn<QByteArray>("request");
    const auto row = [](const char* name, const QByteArray& hex, const QByteArray& request) {
        QTest::newRow(name) << QByteArray::fromHex(hex) << request;
    };
    row("an empty file", "", R"({"citationClusters":[{"fieldCode":""}]})");
    row("nothing but a byte-order mark", "fffe", R"({"citationClusters":[{"fieldCode":""}]})");
    row("a byte-order mark", "fffe6100", R"({"citationClusters":[{"fieldCode":"a"}]})");
    row("odd length", "610001006200ff",
        R"({"citationClusters":[{"fieldCode":"a"},{"fieldCode":"b"}]})");
    row("a separator at the end", "61000100",
        R"({"citationClusters":[{"fieldCode":"a"},{"fieldCode":""}]})");
    row("control characters", "00000200090022005c00",
        R"({"citationClusters":[{"fieldCode":"\u0000\u0002\t\"\\"}]})");
    row("astral text", "3dd800de", R"({"citationClusters":[{"fieldCode":"\ud83d\ude00"}]})");
    row("half an emoji", "3dd8", R"({"citationClusters":[{"fieldCode":"\ud83d"}]})");
}

void tst_CiteCommandHandlerFiles::handlesFiles()
{
    QFETCH(QByteArray, arguments);
    QFETCH(QByteArray, request);
    const ExchangeFolder folder;
    putFile(folder.argumentsPath(), arguments);
    server.expect("POST", "/citations/merge", reply(R"({"citationCluster":7})"));
    // "ADDIN CSL_CITATION 7" is 20 letters long.
    QCOMPARE(handler->handleCommand(text("mergeFields"), folder.path()), text("40"));
    QCOMPARE(folder.results(), utf16le(text("ADDIN CSL_CITATION 7")));
    QCOMPARE(server.problem(), QString());
    QCOMPARE(compactJson(server.requests().constFirst().body), compactJson(request));
    QCOMPARE(bytesOf(folder.argumentsPath()), arguments);
}

void tst_CiteCommandHandlerFiles::handlesAMissingArgumentFile()
{
    const ExchangeFolder folder;
    server.expect("POST", "/citations/merge", reply("{}", 500));
    const QString warning =
        text("Unable to open args file \"") + folder.argumentsPath() + QLatin1Char('"');
    QTest::ignoreMessage(QtWarningMsg, qUtf8Printable(warning));
    QCOMPARE(handler->handleCommand(text("mergeFields"), folder.path()), text("0"));
    QCOMPARE(folder.names(), QStringList{text("mac-word-plugin-results.txt")});
    QCOMPARE(server.problem(), QString());
    QCOMPARE(server.requests().constFirst().body, QByteArray(R"({"citationClusters":[]})"));
}

void tst_CiteCommandHandlerFiles::cannotWriteResults()
{
    const ExchangeFolder folder;
    folder.putArguments({});
    putFile(folder.resultsPath(), "old");
    QVERIFY(QDir().mkpath(folder.resultsPath() + text(".temp")));
    const QString warning =
        text("Unable to write args file \"") + folder.resultsPath() + QLatin1Char('"');
    QTest::ignoreMessage(QtWarningMsg, qUtf8Printable(warning));
    QCOMPARE(handler->handleCommand(text("lastError"), folder.path()), text("-1"));
    QCOMPARE(folder.results(), QByteArray("old"));
    QCOMPARE(server.problem(), QString());
}

QTEST_GUILESS_MAIN(tst_CiteCommandHandlerFiles)
#include "tst_citecommandhandler_files.moc"

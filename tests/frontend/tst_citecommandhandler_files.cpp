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

/// State between commands, unknown commands, and the exchange files.
class tst_CiteCommandHandlerFiles : public QObject, private HandlerFixture {
    Q_OBJECT

private Q_SLOTS:
    void init() { renew(); }
    void cleanup() { QCOMPARE(server.problem(), QString()); }

    void returnsLastError();
    void startsEachBatchEmpty();
    void replacesStyleOfFormerBatch_data();
    void replacesStyleOfFormerBatch();
    void writesNoResultsForUnknownCommand_data();
    void writesNoResultsForUnknownCommand();
    void setsTemporaryFolder_data();
    void setsTemporaryFolder();
    void readsArgumentsAndWritesResults_data();
    void readsArgumentsAndWritesResults();
    void runsWithoutArgumentFile();
    void returnsMinusOneIfResultsCannotBeWritten();
};

void tst_CiteCommandHandlerFiles::returnsLastError()
{
    server.expect("GET", "/userUuid", reply(R"({"error":"not signed in"})", 500));
    handler->handleCommandInternal(text("getUserUuid"), QString(), {});
    QCOMPARE(handler->handleCommandInternal(text("lastError"), QString(), {}),
        QStringList{text("not signed in")});
}

void tst_CiteCommandHandlerFiles::startsEachBatchEmpty()
{
    const QByteArray path = "/formattedCitationsAndBibliography/interactive";
    const QString command = text("formatCitationsAndBibliography");
    server.expect("POST", path, reply("{}", 500));
    server.expect("POST", path, reply("{}", 500));
    handler->handleCommandInternal(
        command, text("/one"), {text("s1"), text("f1"), text("t1"), text("f2"), text("t2")});
    handler->handleCommandInternal(command, text("/two"), {text("s2"), text("f3"), text("t3")});
    QCOMPARE(compactJson(server.requests().at(1).body),
        compactJson(R"({"citationStyleUrl":"s2","tempDirectory":"/two","citationClusters":)"
                    R"([{"fieldCode":"f3","formattedText":"t3"}]})"));
}

void tst_CiteCommandHandlerFiles::replacesStyleOfFormerBatch_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("style");
    QTest::newRow("other style") << QStringList{text("s2")} << QByteArray("s2");
    QTest::newRow("empty style") << QStringList{QString()} << QByteArray();
    QTest::newRow("no arguments") << QStringList() << QByteArray();
}

void tst_CiteCommandHandlerFiles::replacesStyleOfFormerBatch()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, style);
    const QByteArray path = "/formattedCitationsAndBibliography/interactive";
    const QString command = text("formatCitationsAndBibliography");
    server.expect("POST", path, reply("{}", 500));
    server.expect("POST", path, reply("{}", 500));
    handler->handleCommandInternal(command, text("/a"), {text("s1")});
    handler->handleCommandInternal(command, text("/a"), arguments);
    QCOMPARE(compactJson(server.requests().at(1).body),
        compactJson(R"({"citationStyleUrl":")" + style
            + R"(","tempDirectory":"/a","citationClusters":[]})"));
}

void tst_CiteCommandHandlerFiles::writesNoResultsForUnknownCommand_data()
{
    QTest::addColumn<QString>("command");
    const auto row = [](const char* name, const char* command) {
        QTest::newRow(name) << text(command);
    };
    row("empty", "");
    row("unknown name", "noSuchCommand");
    row("capital first letter", "GetUserUuid");
    row("capital letters", "GETUSERUUID");
    row("small letters", "getuseruuid");
    row("last letter missing", "getUserUui");
    row("extra letter at the end", "getUserUuidX");
    row("space at the start", " getUserUuid");
    row("space at the end", "getUserUuid ");
    row("newline at the end", "getUserUuid\n");
    row("two commands", "getUserUuid,lastError");
    row("slot that is not a command", "pluginVersion");
    row("slot without results that is not a command", "allowSetFocus");
    row("slot of the batch that is not a command", "resetCitations");
    row("placeholder", "%1");
    row("Cyrillic", "\xd0\xb3\xd0\xb5\xd1\x82");
    QTest::newRow("U+0000 at the end") << text("getUserUuid") + QChar(0);
}

void tst_CiteCommandHandlerFiles::writesNoResultsForUnknownCommand()
{
    QFETCH(QString, command);
    const ExchangeFolder folder;
    folder.putArguments({text("a"), text("b")});
    putFile(folder.resultsPath(), "old");
    QCOMPARE(handler->handleCommand(command, folder.path()), text("0"));
    QCOMPARE(folder.results(), QByteArray());
    QCOMPARE(folder.names(),
        (QStringList{text("mac-word-plugin-args.txt"), text("mac-word-plugin-results.txt")}));
}

void tst_CiteCommandHandlerFiles::setsTemporaryFolder_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("unknown command") << text("noSuchCommand");
    QTest::newRow("command that sends no request") << text("lastError");
}

void tst_CiteCommandHandlerFiles::setsTemporaryFolder()
{
    QFETCH(QString, command);
    handler->handleCommandInternal(command, text("/chosen \xd0\xb3"), {});
    server.expect("POST", "/formattedCitationsAndBibliography/interactive", reply("{}", 500));
    QVERIFY(!service->formatCitationsAndBibliography());
    QCOMPARE(server.requests().constFirst().json().value(text("tempDirectory")).toString(),
        text("/chosen \xd0\xb3"));
}

void tst_CiteCommandHandlerFiles::readsArgumentsAndWritesResults_data()
{
    QTest::addColumn<QByteArray>("arguments");
    QTest::addColumn<QByteArray>("request");
    const auto row = [](const char* name, const QByteArray& hex, const QByteArray& request) {
        QTest::newRow(name) << QByteArray::fromHex(hex) << request;
    };
    row("empty file", "", R"({"citationClusters":[{"fieldCode":""}]})");
    row("byte order mark and an odd last byte", "fffe610001006200ff",
        R"({"citationClusters":[{"fieldCode":"a"},{"fieldCode":"b"}]})");
    row("half an emoji", "3dd8", R"({"citationClusters":[{"fieldCode":"\ud83d"}]})");
}

void tst_CiteCommandHandlerFiles::readsArgumentsAndWritesResults()
{
    QFETCH(QByteArray, arguments);
    QFETCH(QByteArray, request);
    const ExchangeFolder folder;
    putFile(folder.argumentsPath(), arguments);
    server.expect("POST", "/citations/merge", reply(R"({"citationCluster":7})"));
    // "ADDIN CSL_CITATION 7" has 20 characters.
    QCOMPARE(handler->handleCommand(text("mergeFields"), folder.path()), text("40"));
    QCOMPARE(folder.results(), utf16le(text("ADDIN CSL_CITATION 7")));
    QCOMPARE(compactJson(server.requests().constFirst().body), compactJson(request));
    QCOMPARE(bytesOf(folder.argumentsPath()), arguments);
}

void tst_CiteCommandHandlerFiles::runsWithoutArgumentFile()
{
    const ExchangeFolder folder;
    server.expect("POST", "/citations/merge", reply("{}", 500));
    const QString warning =
        text("Unable to open args file \"") + folder.argumentsPath() + QLatin1Char('"');
    QTest::ignoreMessage(QtWarningMsg, qUtf8Printable(warning));
    QCOMPARE(handler->handleCommand(text("mergeFields"), folder.path()), text("0"));
    QCOMPARE(folder.names(), QStringList{text("mac-word-plugin-results.txt")});
    QCOMPARE(server.requests().constFirst().body, QByteArray(R"({"citationClusters":[]})"));
}

void tst_CiteCommandHandlerFiles::returnsMinusOneIfResultsCannotBeWritten()
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
}

QTEST_GUILESS_MAIN(tst_CiteCommandHandlerFiles)
#include "tst_citecommandhandler_files.moc"

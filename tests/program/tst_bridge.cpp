#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/FolderWatch.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

Q_DECLARE_METATYPE(ScriptedReply)

namespace {

const QStringList allFiles{text("mac-word-plugin-args.txt"),
    text("mac-word-plugin-result-ready.txt"), text("mac-word-plugin-results.txt")};

} // namespace

/// The program as the macro uses it: the seventeen commands and the three files.
class tst_Bridge : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }
    void cleanup() { QCOMPARE(server.problem(), QString()); }

    void runsCommand_data();
    void runsCommand();
    void sendsPlainRequest_data();
    void sendsPlainRequest();
    void writesUtf16LittleEndian();
    void writesReadyFileLast_data();
    void writesReadyFileLast();
    void readsSettingsInEachRun();
    void printsUsage_data();
    void printsUsage();
    void logsUsageInDefaultCategory();
    void printsNonAsciiProgramNameInUsage();
    void ignoresFurtherArguments();
    void writesNoResultsForUnknownCommand_data();
    void writesNoResultsForUnknownCommand();
    void writesNoResultsForCommandThatIsNotUtf8();

private:
    TemporaryHome home;
    ScriptedServer server;
};

void tst_Bridge::runsCommand_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<ScriptedReply>("reply");
    QTest::addColumn<QStringList>("results");
    const auto row = [](const char* command, const QStringList& arguments, const char* path,
                         const char* request, const char* reply, const QStringList& results) {
        QTest::newRow(command) << arguments << QByteArray(path) << QByteArray(request)
                               << ScriptedReply::json(reply) << results;
    };
    const QString built = text(R"(ADDIN CSL_CITATION {"a":"\u0001","citationItems":[1]})");
    const char* const cluster = R"({"citationCluster":{"citationItems":[1],"a":"\u0001"}})";
    row("setWordProcessor", {text("Word"), text("16.89")}, "/wordProcessor/set",
        R"({"wordProcessor":"Word","version":"16.89"})", "{}", {});
    row("getFieldCodeFromCitationEditor", {text("ADDIN CSL_CITATION {}")},
        "/citation/edit/interactive", R"({"fieldCode":"ADDIN CSL_CITATION {}"})", cluster, {built});
    row("getFieldCodeFromUuid", {text("u-1")}, "/testMethods/citationCluster/getFromUuid",
        R"({"documentUuid":"u-1"})", cluster, {built});
    row("getCitationStyleFromDialog", {text("old")}, "/citationStyle/choose/interactive",
        R"({"currentStyleUrl":"old"})", R"({"citationStyleUrl":"\u0436\ud83d\ude00"})",
        {text("\xd0\xb6\xf0\x9f\x98\x80")});
    row("isTessaronRunning", {}, "/tessaronDesktopInfo", "", R"({"processId":12})", {text("true")});
    row("launchTessaron", {}, "/tessaronDesktopInfo", "", R"({"processId":12})", {text("true")});
    row("mergeFields", {text("f"), text("\xd0\xb6\n")}, "/citations/merge",
        R"({"citationClusters":[{"fieldCode":"f"},{"fieldCode":"\u0436\n"}]})", cluster, {built});
    row("checkManualFormatAndGetFieldCode", {text("f"), text("(A, 1)")},
        "/citation/update/interactive", R"-({"fieldCode":"f","formattedText":"(A, 1)"})-", cluster,
        {built});
    row("undoManualFormat", {text("f")}, "/citation/undoManualFormat", R"({"fieldCode":"f"})",
        cluster, {built});
    row("hasManualEdit", {text(R"(ADDIN {"tessaron":{"manualFormatting":false}})")}, "", "", "",
        {text("true")});
    row("getUserAccount", {}, "/userAccount", "", R"({"account":"a@example.org"})",
        {text("a@example.org")});
    row("getUserUuid", {}, "/userUuid", "", R"({"uuid":"u-2"})", {text("u-2")});
    row("getRecentStyles", {}, "/citationStyles/default", "",
        R"({"citationStyles":[{"url":"u1","title":"t1"},{"url":"u2","title":"t2"}]})",
        {text("2"), text("u1"), text("t1"), text("u2"), text("t2")});
    row("tessaronProcessId", {}, "/tessaronDesktopInfo", "", R"({"processId":4242})",
        {text("4242")});
    row("lastError", {}, "", "", "", {QString()});
    row("getDesktopCitationStyleId", {}, "/citationStyle/selected", "",
        R"({"citationStyleId":"s"})", {text("s")});
    row("formatCitationsAndBibliography",
        {text("s1"), text("f1"), text("t1"), text("f2"), text("t2"), text("left over")},
        "/formattedCitationsAndBibliography/interactive",
        R"({"citationStyleUrl":"s1","tempDirectory":"FOLDER","citationClusters":[)"
        R"({"fieldCode":"f1","formattedText":"t1"},{"fieldCode":"f2","formattedText":"t2"}]})",
        R"({"citationStyleUrl":"s2","bibliography":"b","citationClusters":[)"
        R"({"formattedText":"n1","citationCluster":{"tessaron":{)"
        R"("previouslyFormattedCitation":"p1","plainTextFormattedCitation":"q1"}}},)"
        R"({"formattedText":"n2","citationCluster":{"id":9007199254740993}}]})",
        {text("true"), text("s2"), text("b"),
            text(R"(ADDIN CSL_CITATION {"tessaron":{"plainTextFormattedCitation":"q1",)"
                 R"("previouslyFormattedCitation":"p1"}})"),
            text("n1"), text("p1"), text("q1"),
            text(R"(ADDIN CSL_CITATION {"id":9007199254740993})"), text("n2"), QString(),
            QString()});
}

void tst_Bridge::runsCommand()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, request);
    QFETCH(ScriptedReply, reply);
    QFETCH(QStringList, results);
    const ExchangeFolder folder;
    folder.putArguments(arguments);
    if (!path.isEmpty()) {
        server.expect(request.isEmpty() ? "GET" : "POST", path, reply);
    }
    const BridgeOutcome run = runCommand(QTest::currentDataTag(), folder);
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), listBytes(results));
    QCOMPARE(folder.names(), allFiles);
    QCOMPARE(bytesOf(folder.argumentsPath()), listBytes(arguments));
    if (!request.isEmpty()) {
        QCOMPARE(compactJson(server.requests().constFirst().body),
            compactJson(request.replace("FOLDER", folder.path().toUtf8())));
    }
}

void tst_Bridge::sendsPlainRequest_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("GET") << text("getUserUuid") << QByteArray("GET") << QByteArray("/userUuid")
                         << QByteArray();
    QTest::newRow("POST") << text("undoManualFormat") << QByteArray("POST")
                          << QByteArray("/citation/undoManualFormat")
                          << QByteArray(R"({"fieldCode":"f"})");
    QTest::newRow("POST of an empty object")
        << text("getFieldCodeFromCitationEditor") << QByteArray("POST")
        << QByteArray("/citation/choose/interactive") << QByteArray("{}");
}

void tst_Bridge::sendsPlainRequest()
{
    QFETCH(QString, command);
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, body);
    const ExchangeFolder folder;
    folder.putArguments({body == "{}" ? QString() : text("f")});
    server.expect(method, path, ScriptedReply::json("{}"));
    // Nothing listens at the proxy that the environment names.
    const QString proxy = text("http://127.0.0.1:9");
    const BridgeOutcome run = runBridge({command, folder.path()},
        BridgeStart::withVariables({{text("http_proxy"), proxy}, {text("all_proxy"), proxy}}));
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.exitStatus, 0);
    QCOMPARE(server.connectionCount(), 1);
    const ReceivedRequest request = server.requests().constFirst();
    QCOMPARE(request.body, body);
    QCOMPARE(request.headers.value("host"), "127.0.0.1:" + QByteArray::number(server.port()));
    if (method == "POST") {
        QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
        QCOMPARE(request.headers.value("content-length"), QByteArray::number(body.size()));
    } else {
        QVERIFY(!request.headers.contains("content-type"));
        QCOMPARE(request.headers.value("content-length", "0"), QByteArray("0"));
    }
    QVERIFY(!request.headers.contains("transfer-encoding"));
    QVERIFY(!request.headers.contains("expect"));
}

void tst_Bridge::writesUtf16LittleEndian()
{
    const ExchangeFolder folder;
    putFile(folder.argumentsPath(), QByteArray("\xff\xfe", 2));
    server.expect("GET", "/citationStyles/default",
        ScriptedReply::json(R"({"citationStyles":[{"url":"u"}]})"));
    QCOMPARE(problem(runCommand("getRecentStyles", folder), folder), QByteArray());
    // "1", "u" and an empty title.
    QCOMPARE(folder.results().toHex(' '), QByteArray("31 00 01 00 75 00 01 00"));
    QCOMPARE(folder.ready().toHex(' '), QByteArray("38 00"));
}

void tst_Bridge::writesReadyFileLast_data()
{
    QTest::addColumn<bool>("oldFiles");
    QTest::newRow("first command in a folder") << false;
    QTest::newRow("files of an earlier command") << true;
}

void tst_Bridge::writesReadyFileLast()
{
    QFETCH(bool, oldFiles);
    const ExchangeFolder folder;
    folder.putArguments({});
    if (oldFiles) {
        putFile(folder.resultsPath(), "old results, longer than the new ones");
        putFile(folder.readyPath(), "old status, longer than the new one");
    }
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    const FolderWatch watch(folder.path());
    QCOMPARE(problem(runCommand("getUserUuid", folder), folder), QByteArray());
    QStringList expected;
    for (const char* const name :
        {"mac-word-plugin-results.txt", "mac-word-plugin-result-ready.txt"}) {
        expected << text("create ") + text(name) + text(".temp");
        if (oldFiles) {
            expected << text("delete ") + text(name);
        }
        expected << text("rename to ") + text(name);
    }
    QCOMPARE(watch.events(), expected);
    QCOMPARE(folder.results(), QByteArray("u\0", 2));
    QCOMPARE(folder.ready(), QByteArray("2\0", 2));
}

void tst_Bridge::readsSettingsInEachRun()
{
    ScriptedServer other;
    home.writePort(other.port());
    const ExchangeFolder folder;
    folder.putArguments({});
    other.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"other"})"));
    const BridgeOutcome run = runCommand("getUserUuid", folder);
    home.writePort(server.port());
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(text("other")));
    QCOMPARE(other.problem(), QString());
}

void tst_Bridge::printsUsage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no arguments") << QStringList();
    QTest::newRow("only a command") << QStringList{text("getUserUuid")};
    QTest::newRow("only an option") << QStringList{text("--help")};
}

void tst_Bridge::printsUsage()
{
    QFETCH(QStringList, arguments);
    const ExchangeFolder folder;
    const BridgeOutcome run = runBridge(arguments, BridgeStart::inFolder(folder.path()));
    QCOMPARE(run.errors, "usage:  " + bridgePath().toUtf8() + "  tessaronCommand tempFolderPath\n");
    QCOMPARE(run.output, QByteArray());
    QCOMPARE(run.exitStatus, 1);
    QCOMPARE(folder.names(), QStringList());
}

void tst_Bridge::logsUsageInDefaultCategory()
{
    const BridgeOutcome run = runBridge({},
        BridgeStart::withVariables(
            {{text("QT_MESSAGE_PATTERN"), text("%{type} %{category} %{line} %{message}")}}));
    QCOMPARE(run.errors,
        "warning default 0 usage:  " + bridgePath().toUtf8()
            + "  tessaronCommand tempFolderPath\n");
    QCOMPARE(run.exitStatus, 1);
}

void tst_Bridge::printsNonAsciiProgramNameInUsage()
{
    const ExchangeFolder folder;
    BridgeStart start = BridgeStart::withVariables({{text("LC_ALL"), text("C")}});
    start.program = folder.path() + text("/\xd0\x9c\xd0\xbe\xd1\x81\xd1\x82 %1 \xf0\x9f\x98\x80");
    QVERIFY(QFile::link(bridgePath(), start.program));
    const BridgeOutcome run = runBridge({}, start);
    QCOMPARE(
        run.errors, "usage:  " + start.program.toUtf8() + "  tessaronCommand tempFolderPath\n");
    QCOMPARE(run.exitStatus, 1);
}

void tst_Bridge::ignoresFurtherArguments()
{
    const ExchangeFolder folder;
    const ExchangeFolder other;
    folder.putArguments({text("f")});
    other.putArguments({text("g")});
    server.expect("POST", "/citation/undoManualFormat", ScriptedReply::json("{}", 500));
    const BridgeOutcome run = runBridge(
        {text("undoManualFormat"), folder.path(), other.path(), text("getUserUuid"), QString()});
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), QByteArray("f\0", 2));
    QCOMPARE(other.names(), QStringList{text("mac-word-plugin-args.txt")});
}

void tst_Bridge::writesNoResultsForUnknownCommand_data()
{
    QTest::addColumn<QString>("command");
    // The handler's tests have the full table. Qt would remove some of these options.
    const char* const commands[] = {"", "noSuchCommand", "GETUSERUUID", "--help", "-qmljsdebugger",
        "-qmljsdebugger=port:3768,block", "-platform", "%s%n", "\xd0\xb3\xd0\xb5\xd1\x82"};
    for (const char* const command : commands) {
        QTest::newRow(qUtf8Printable(QLatin1Char('"') + text(command) + QLatin1Char('"')))
            << text(command);
    }
}

void tst_Bridge::writesNoResultsForUnknownCommand()
{
    QFETCH(QString, command);
    const ExchangeFolder folder;
    folder.putArguments({text("f")});
    QCOMPARE(problem(runBridge({command, folder.path()}), folder), QByteArray());
    QCOMPARE(folder.results(), QByteArray());
    QCOMPARE(folder.names(), allFiles);
}

void tst_Bridge::writesNoResultsForCommandThatIsNotUtf8()
{
    const ExchangeFolder folder;
    folder.putArguments({text("f")});
    const BridgeOutcome run = runBridge({folder.path()},
        BridgeStart::inShell(text(R"sh(exec "$0" "$(printf 'getUserUuid\377')" "$1")sh")));
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), QByteArray());
}

QTEST_GUILESS_MAIN(tst_Bridge)
#include "tst_bridge.moc"

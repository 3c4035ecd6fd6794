#include "tests/frontend/HandlerFixture.h"
#include "tests/support/Texts.h"

#include <QtTest>

Q_DECLARE_METATYPE(ScriptedReply)

namespace {

const QString code = QStringLiteral("ADDIN CSL_CITATION {\"citationItems\":[1]}");

void commandColumns()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<ScriptedReply>("reply");
    QTest::addColumn<QStringList>("results");
}

/// A row of a command that sends `request` in a POST (a GET when it is empty) to `path` (nothing
/// when that is empty).
struct Row {
    const char* name;
    const char* command;
    QStringList arguments;
    const char* path;
    const char* request;
    ScriptedReply reply;
    QStringList results;
};

void addRows(std::initializer_list<Row> rows)
{
    for (const Row& row : rows) {
        const QByteArray name = QByteArray(row.command) + ": " + row.name;
        QTest::newRow(name.constData())
            << text(row.command) << row.arguments << QByteArray(row.path) << QByteArray(row.request)
            << row.reply << row.results;
    }
}

ScriptedReply reply(const char* json, int status = 200)
{
    return ScriptedReply::json(json, status);
}

const QStringList anEmptyText{QString()};

} // namespace

/// Every command: what it sends, what it makes of the answer, and which arguments it reads.
class tst_CiteCommandHandler : public QObject, private HandlerFixture {
    Q_OBJECT

private Q_SLOTS:
    void init() { renew(); }

    void initReturnsTheHandler();
    void dialogs_data();
    void dialogs() { runsCommand(); }
    void fieldCodes_data();
    void fieldCodes() { runsCommand(); }
    void queries_data();
    void queries() { runsCommand(); }
    void batch_data();
    void batch() { runsCommand(); }

private:
    void runsCommand();
};

void tst_CiteCommandHandler::initReturnsTheHandler()
{
    CiteCommandHandler other;
    QCOMPARE(other.initWithPluginClient(service.data()), &other);
}

/// Runs the command of the row and compares its one request, or none, and its results.
void tst_CiteCommandHandler::runsCommand()
{
    QFETCH(QString, command);
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, request);
    QFETCH(ScriptedReply, reply);
    if (!path.isEmpty()) {
        server.expect(request.isEmpty() ? "GET" : "POST", path, reply);
    }
    QTEST(
        handler->handleCommandInternal(command, QStringLiteral("/a folder"), arguments), "results");
    QCOMPARE(server.problem(), QString());
    if (!request.isEmpty()) {
        QCOMPARE(compactJson(server.requests().constFirst().body), compactJson(request));
        QVERIFY(compactJson(request) != "not JSON");
    }
}

void tst_CiteCommandHandler::dialogs_data()
{
    commandColumns();
    const char* const choose = "/citation/choose/interactive";
    const char* const edit = "/citation/edit/interactive";
    const char* const style = "/citationStyle/choose/interactive";
    const char* const processor = "/wordProcessor/set";
    const auto cluster = reply(R"({"citationCluster":{"citationItems":[{"id":"b"}],"a":1}})");
    const QString built = text(R"(ADDIN CSL_CITATION {"a":1,"citationItems":[{"id":"b"}]})");
    const QString word = text("Word");
    addRows({
        {"both arguments", "setWordProcessor", {word, text("16.1")}, processor,
            R"({"wordProcessor":"Word","version":"16.1"})", reply("{}"), {}},
        {"a third argument", "setWordProcessor", {word, text("16"), text("x")}, processor,
            R"({"wordProcessor":"Word","version":"16"})", reply("{}"), {}},
        {"no version", "setWordProcessor", {word}, processor,
            R"({"wordProcessor":"Word","version":""})", reply("{}"), {}},
        {"no arguments", "setWordProcessor", {}, processor, R"({"wordProcessor":"","version":""})",
            reply("{}"), {}},
        {"refused", "setWordProcessor", {word, text("16")}, processor,
            R"({"wordProcessor":"Word","version":"16"})", reply(R"({"error":"no"})", 500), {}},

        {"a citation to edit", "getFieldCodeFromCitationEditor", {code}, edit,
            R"({"fieldCode":"ADDIN CSL_CITATION {\"citationItems\":[1]}"})", cluster, {built}},
        {"a second argument", "getFieldCodeFromCitationEditor", {text("f"), code}, edit,
            R"({"fieldCode":"f"})", cluster, {built}},
        {"an empty field code", "getFieldCodeFromCitationEditor", {QString()}, choose, "{}",
            cluster, {built}},
        {"no arguments", "getFieldCodeFromCitationEditor", {}, choose, "{}", cluster, {built}},
        {"an empty first argument", "getFieldCodeFromCitationEditor", {QString(), code}, choose,
            "{}", cluster, {built}},
        {"an edit that is cancelled", "getFieldCodeFromCitationEditor", {text("f")}, edit,
            R"({"fieldCode":"f"})", reply(R"({"citationCluster":{"citationItems":[]}})"),
            {text("f")}},
        {"a choice that is cancelled", "getFieldCodeFromCitationEditor", {}, choose, "{}",
            reply("{}"), anEmptyText},
        {"an edit that fails", "getFieldCodeFromCitationEditor", {text("f")}, edit,
            R"({"fieldCode":"f"})", reply(R"({"citationCluster":{"citationItems":[1]}})", 500),
            anEmptyText},
        {"almost a success", "getFieldCodeFromCitationEditor", {text("f")}, edit,
            R"({"fieldCode":"f"})", reply(R"({"citationCluster":{"citationItems":[1]}})", 201),
            anEmptyText},

        {"a style", "getCitationStyleFromDialog", {text("old")}, style,
            R"({"currentStyleUrl":"old"})", reply(R"({"citationStyleUrl":"new"})"), {text("new")}},
        {"a second argument", "getCitationStyleFromDialog", {text("old"), text("x")}, style,
            R"({"currentStyleUrl":"old"})", reply(R"({"citationStyleUrl":"new"})"), {text("new")}},
        {"no arguments", "getCitationStyleFromDialog", {}, style, R"({"currentStyleUrl":""})",
            reply(R"({"citationStyleUrl":"new"})"), {text("new")}},
        {"a style in a failure", "getCitationStyleFromDialog", {text("old")}, style,
            R"({"currentStyleUrl":"old"})", reply(R"({"citationStyleUrl":"new"})", 500),
            {text("new")}},
        {"a failure", "getCitationStyleFromDialog", {text("old")}, style,
            R"({"currentStyleUrl":"old"})", reply(R"({"error":"closed"})", 404), anEmptyText},
        {"cancelled", "getCitationStyleFromDialog", {text("old")}, style,
            R"({"currentStyleUrl":"old"})", reply("{}"), anEmptyText},
    });
}

void tst_CiteCommandHandler::fieldCodes_data()
{
    commandColumns();
    const char* const uuid = "/testMethods/citationCluster/getFromUuid";
    const char* const merge = "/citations/merge";
    const char* const update = "/citation/update/interactive";
    const char* const undo = "/citation/undoManualFormat";
    const auto cluster = reply(R"({"citationCluster":{"b":2,"a":1}})");
    const auto refused = reply(R"({"citationCluster":{"a":1},"error":"no"})", 500);
    const QString built = text(R"(ADDIN CSL_CITATION {"a":1,"b":2})");
    const QString none = text("ADDIN CSL_CITATION null");
    const auto edited = [](const char* tessaron) {
        return QStringList{text("ADDIN {\"tessaron\":") + text(tessaron) + text("}")};
    };
    addRows({
        {"a uuid", "getFieldCodeFromUuid", {text("u-1")}, uuid, R"({"documentUuid":"u-1"})",
            cluster, {built}},
        {"a second argument", "getFieldCodeFromUuid", {text("u-1"), text("u-2")}, uuid,
            R"({"documentUuid":"u-1"})", cluster, {built}},
        {"no arguments", "getFieldCodeFromUuid", {}, uuid, R"({"documentUuid":""})", cluster,
            {built}},
        {"no cluster", "getFieldCodeFromUuid", {text("u")}, uuid, R"({"documentUuid":"u"})",
            reply("{}"), {none}},
        {"a failure", "getFieldCodeFromUuid", {text("u")}, uuid, R"({"documentUuid":"u"})", refused,
            anEmptyText},

        {"two field codes", "mergeFields", {text("f"), text("g")}, merge,
            R"({"citationClusters":[{"fieldCode":"f"},{"fieldCode":"g"}]})", cluster, {built}},
        {"one", "mergeFields", {text("f")}, merge, R"({"citationClusters":[{"fieldCode":"f"}]})",
            cluster, {built}},
        {"empty ones", "mergeFields", {QString(), QString()}, merge,
            R"({"citationClusters":[{"fieldCode":""},{"fieldCode":""}]})", cluster, {built}},
        {"no arguments", "mergeFields", {}, merge, R"({"citationClusters":[]})", cluster, {built}},
        {"no cluster", "mergeFields", {text("f")}, merge,
            R"({"citationClusters":[{"fieldCode":"f"}]})", reply("{}"), {none}},
        {"a failure", "mergeFields", {text("f"), text("g")}, merge,
            R"({"citationClusters":[{"fieldCode":"f"},{"fieldCode":"g"}]})", refused, anEmptyText},

        {"both", "checkManualFormatAndGetFieldCode", {text("f"), text("A, 1")}, update,
            R"({"fieldCode":"f","formattedText":"A, 1"})", cluster, {built}},
        {"a third argument", "checkManualFormatAndGetFieldCode", {text("f"), text("t"), text("x")},
            update, R"({"fieldCode":"f","formattedText":"t"})", cluster, {built}},
        {"no text", "checkManualFormatAndGetFieldCode", {text("f")}, update,
            R"({"fieldCode":"f","formattedText":""})", cluster, {built}},
        {"no arguments", "checkManualFormatAndGetFieldCode", {}, update,
            R"({"fieldCode":"","formattedText":""})", cluster, {built}},
        {"no cluster", "checkManualFormatAndGetFieldCode", {text("f"), text("t")}, update,
            R"({"fieldCode":"f","formattedText":"t"})", reply("{}"), {none}},
        {"a failure", "checkManualFormatAndGetFieldCode", {text("f"), text("t")}, update,
            R"({"fieldCode":"f","formattedText":"t"})", refused, {text("f")}},
        {"a failure without arguments", "checkManualFormatAndGetFieldCode", {}, update,
            R"({"fieldCode":"","formattedText":""})", refused, anEmptyText},

        {"a field code", "undoManualFormat", {text("f")}, undo, R"({"fieldCode":"f"})", cluster,
            {built}},
        {"a second argument", "undoManualFormat", {text("f"), text("g")}, undo,
            R"({"fieldCode":"f"})", cluster, {built}},
        {"no arguments", "undoManualFormat", {}, undo, R"({"fieldCode":""})", cluster, {built}},
        {"a failure", "undoManualFormat", {text("f")}, undo, R"({"fieldCode":"f"})", refused,
            {text("f")}},

        {"edited", "hasManualEdit", edited(R"({"manualFormatting":{"x":1}})"), "", "", {},
            {text("true")}},
        {"edited, with value false", "hasManualEdit", edited(R"({"manualFormatting":false})"), "",
            "", {}, {text("true")}},
        {"edited, with value null", "hasManualEdit", edited(R"({"manualFormatting":null})"), "", "",
            {}, {text("true")}},
        {"not edited", "hasManualEdit", edited(R"({"other":1})"), "", "", {}, {text("false")}},
        {"tessaron is no object", "hasManualEdit", edited("\"manualFormatting\""), "", "", {},
            {text("false")}},
        {"only the second is edited", "hasManualEdit",
            {text("{}"), text(R"({"tessaron":{"manualFormatting":1}})")}, "", "", {},
            {text("false")}},
        {"malformed JSON", "hasManualEdit", {text(R"({"tessaron":{"manualFormatting":1})")}, "", "",
            {}, {text("false")}},
        {"no braces", "hasManualEdit", {text("manualFormatting")}, "", "", {}, {text("false")}},
        {"no arguments", "hasManualEdit", {}, "", "", {}, {text("false")}},
    });
}

void tst_CiteCommandHandler::queries_data()
{
    commandColumns();
    const char* const info = "/tessaronDesktopInfo";
    const char* const styles = "/citationStyles/default";
    const QStringList ignored{text("x"), text("y")};
    const auto error = reply(R"({"error":"no style"})", 404);
    addRows({
        {"it runs", "isTessaronRunning", {}, info, "", reply(R"({"processId":7})"), {text("true")}},
        {"an argument", "isTessaronRunning", ignored, info, "", reply(R"({"processId":7})"),
            {text("true")}},
        {"process 0", "isTessaronRunning", {}, info, "", reply(R"({"processId":0})"),
            {text("false")}},
        {"no process", "isTessaronRunning", {}, info, "", reply("{}"), {text("false")}},
        {"a failure", "isTessaronRunning", {}, info, "", reply(R"({"processId":7})", 500),
            {text("false")}},

        {"it runs already", "launchTessaron", ignored, info, "", reply(R"({"processId":7})"),
            {text("true")}},

        {"a number", "tessaronProcessId", {}, info, "", reply(R"({"processId":4711})"),
            {text("4711")}},
        {"the largest", "tessaronProcessId", {}, info, "", reply(R"({"processId":2147483647})"),
            {text("2147483647")}},
        {"beyond 32 bits with sign", "tessaronProcessId", ignored, info, "",
            reply(R"({"processId":2147483648})"), {text("-2147483648")}},
        {"all 32 bits", "tessaronProcessId", {}, info, "", reply(R"({"processId":4294967295})"),
            {text("-1")}},
        {"beyond 32 bits", "tessaronProcessId", {}, info, "", reply(R"({"processId":4294967303})"),
            {text("7")}},
        {"a number as text", "tessaronProcessId", {}, info, "", reply(R"({"processId":"12"})"),
            {text("12")}},
        {"a text", "tessaronProcessId", {}, info, "", reply(R"({"processId":"many"})"),
            {text("0")}},
        {"a list", "tessaronProcessId", {}, info, "", reply(R"({"processId":[7]})"), {text("0")}},
        {"process 0", "tessaronProcessId", {}, info, "", reply(R"({"processId":0})"), {text("0")}},
        {"no process", "tessaronProcessId", {}, info, "", reply("{}"), {text("0")}},
        {"a failure", "tessaronProcessId", {}, info, "", reply(R"({"processId":7})", 500),
            {text("0")}},

        {"an account", "getUserAccount", ignored, "/userAccount", "",
            reply(R"({"account":"a@example.org"})"), {text("a@example.org")}},
        {"no account", "getUserAccount", {}, "/userAccount", "", reply(R"({"uuid":"u"})"),
            anEmptyText},
        {"a failure", "getUserAccount", {}, "/userAccount", "", error,
            {text("Unable to retrieve account - error: 404. Server error 'no style'")}},
        {"a uuid", "getUserUuid", ignored, "/userUuid", "", reply(R"({"uuid":"u-1"})"),
            {text("u-1")}},
        {"no uuid", "getUserUuid", {}, "/userUuid", "", reply(R"({"account":"a"})"), anEmptyText},
        {"a failure", "getUserUuid", {}, "/userUuid", "", error,
            {text("Unable to retrieve uuid - error: 404. Server error 'no style'")}},
        {"a style", "getDesktopCitationStyleId", ignored, "/citationStyle/selected", "",
            reply(R"({"citationStyleId":"s"})"), {text("s")}},
        {"no style", "getDesktopCitationStyleId", {}, "/citationStyle/selected", "",
            reply(R"({"citationStyleUrl":"s"})"), anEmptyText},
        {"a failure", "getDesktopCitationStyleId", {}, "/citationStyle/selected", "", error,
            {text("Can't get selected citation style id - error: 404. Server error 'no style'")}},

        {"two styles", "getRecentStyles", ignored, styles, "",
            reply(R"({"citationStyles":[{"url":"u1","title":"t1"},{"title":"t2","url":"u2"}]})"),
            {text("2"), text("u1"), text("t1"), text("u2"), text("t2")}},
        {"missing keys", "getRecentStyles", {}, styles, "",
            reply(R"({"citationStyles":[{"url":"u1"},{"title":"t2"},{},7]})"),
            {text("4"), text("u1"), QString(), QString(), text("t2"), QString(), QString(),
                QString(), QString()}},
        {"none", "getRecentStyles", {}, styles, "", reply(R"({"citationStyles":[]})"), {text("0")}},
        {"no list", "getRecentStyles", {}, styles, "", reply(R"({"citationStyles":"u"})"),
            {text("0")}},
        {"a failure", "getRecentStyles", {}, styles, "",
            reply(R"({"citationStyles":[{"url":"u1","title":"t1"}]})", 500), {text("0")}},

        {"before any request", "lastError", {}, "", "", {}, anEmptyText},
        {"arguments", "lastError", ignored, "", "", {}, anEmptyText},
    });
}

void tst_CiteCommandHandler::batch_data()
{
    commandColumns();
    const char* const path = "/formattedCitationsAndBibliography/interactive";
    const char* const command = "formatCitationsAndBibliography";
    const QString style = text("style");
    const QStringList two{style, text("f1"), text("t1"), text("f2"), text("t2")};
    const char* const noClusters =
        R"({"citationStyleUrl":"style","citationClusters":[],"tempDirectory":"/a folder"})";
    const char* const oneCluster =
        R"({"citationStyleUrl":"style","citationClusters":[{"fieldCode":"f1",)"
        R"("formattedText":"t1"}],"tempDirectory":"/a folder"})";
    const char* const twoClusters =
        R"({"citationStyleUrl":"style","citationClusters":[{"fieldCode":"f1",)"
        R"("formattedText":"t1"},{"fieldCode":"f2","formattedText":"t2"}],)"
        R"("tempDirectory":"/a folder"})";
    const auto bare = reply(R"({"citationStyleUrl":"s","citationClusters":[],"bibliography":"b"})");
    const char* const one =
        R"({"citationStyleUrl":"s","bibliography":"b","citationClusters":[{"formattedText":"n1",)"
        R"("citationCluster":{"tessaron":{"previouslyFormattedCitation":"p1",)"
        R"("plainTextFormattedCitation":"q1"}}}]})";
    const QString code1 = text(R"(ADDIN CSL_CITATION {"tessaron":{"plainTextFormattedCitation":)"
                               R"("q1","previouslyFormattedCitation":"p1"}})");
    const QStringList resultsOfOne{
        text("true"), text("s"), text("b"), code1, text("n1"), text("p1"), text("q1")};
    const QStringList failed{text("false"), text("-1")};
    addRows({
        {"no arguments", command, {}, path,
            R"({"citationStyleUrl":"","citationClusters":[],"tempDirectory":"/a folder"})", bare,
            {text("true"), text("s"), text("b")}},
        {"only a style", command, two.mid(0, 1), path, noClusters, bare,
            {text("true"), text("s"), text("b")}},
        {"a field code without its text", command, two.mid(0, 2), path, noClusters, bare,
            {text("true"), text("s"), text("b")}},
        {"one citation", command, two.mid(0, 3), path, oneCluster, reply(one), resultsOfOne},
        {"one citation and a half", command, two.mid(0, 4), path, oneCluster, reply(one),
            resultsOfOne},
        {"two citations", command, two, path, twoClusters,
            reply(R"({"citationClusters":[{"citationCluster":2},{"formattedText":"n2"}],)"
                  R"("bibliography":"b"})"),
            {text("true"), QString(), text("b"), text("ADDIN CSL_CITATION 2"), QString(), QString(),
                QString(), text("ADDIN CSL_CITATION null"), text("n2"), QString(), QString()}},
        {"an index in a success", command, two.mid(0, 1), path, noClusters,
            reply(R"({"citationStyleUrl":"s","citationClusters":[],"bibliography":"b",)"
                  R"("citationIndex":3})"),
            {text("true"), text("s"), text("b")}},
        {"a citation that is rejected", command, two, path, twoClusters,
            reply(R"({"citationIndex":1,"error":"bad"})", 500), {text("false"), text("1")}},
        {"the first one is rejected", command, two, path, twoClusters,
            reply(R"({"citationIndex":0})", 400), {text("false"), text("0")}},
        {"an index that is no number", command, two, path, twoClusters,
            reply(R"({"citationIndex":"none"})", 500), {text("false"), text("0")}},
        {"a failure without an index", command, two, path, twoClusters,
            reply(R"({"error":"bad"})", 500), failed},
        {"a failure that is no JSON", command, two, path, twoClusters, reply("oh", 500), failed},
        {"almost a success", command, two.mid(0, 3), path, oneCluster, reply(one, 201), failed},
    });
}

QTEST_GUILESS_MAIN(tst_CiteCommandHandler)
#include "tst_citecommandhandler.moc"

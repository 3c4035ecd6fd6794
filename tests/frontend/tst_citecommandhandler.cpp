#include "tests/frontend/HandlerFixture.h"
#include "tests/support/Texts.h"

#include <QtTest>

Q_DECLARE_METATYPE(ScriptedReply)

namespace {

const QString code = QStringLiteral("ADDIN CSL_CITATION {\"citationItems\":[1]}");

/// A command that sends `request` to `path` in a POST, or a GET if `request` is empty. It sends
/// nothing if `path` is empty.
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

const QStringList emptyText{QString()};

void addDialogRows()
{
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
        {"three arguments", "setWordProcessor", {word, text("16"), text("x")}, processor,
            R"({"wordProcessor":"Word","version":"16"})", reply("{}"), {}},
        {"no arguments", "setWordProcessor", {}, processor, R"({"wordProcessor":"","version":""})",
            reply("{}"), {}},

        {"one argument", "getFieldCodeFromCitationEditor", {code}, edit,
            R"({"fieldCode":"ADDIN CSL_CITATION {\"citationItems\":[1]}"})", cluster, {built}},
        {"two arguments", "getFieldCodeFromCitationEditor", {text("f"), code}, edit,
            R"({"fieldCode":"f"})", cluster, {built}},
        {"no arguments", "getFieldCodeFromCitationEditor", {}, choose, "{}", cluster, {built}},
        {"failure", "getFieldCodeFromCitationEditor", {text("f")}, edit, R"({"fieldCode":"f"})",
            reply(R"({"citationCluster":{"citationItems":[1]}})", 500), emptyText},

        {"one argument", "getCitationStyleFromDialog", {text("old")}, style,
            R"({"currentStyleUrl":"old"})", reply(R"({"citationStyleUrl":"new"})"), {text("new")}},
        {"no arguments", "getCitationStyleFromDialog", {}, style, R"({"currentStyleUrl":""})",
            reply(R"({"citationStyleUrl":"new"})"), {text("new")}},
        {"failure that names a style", "getCitationStyleFromDialog", {text("old")}, style,
            R"({"currentStyleUrl":"old"})", reply(R"({"citationStyleUrl":"new"})", 500),
            {text("new")}},
    });
}

void addFieldCodeRows()
{
    const char* const uuid = "/testMethods/citationCluster/getFromUuid";
    const char* const merge = "/citations/merge";
    const char* const update = "/citation/update/interactive";
    const char* const undo = "/citation/undoManualFormat";
    const auto cluster = reply(R"({"citationCluster":{"b":2,"a":1}})");
    const auto refused = reply(R"({"citationCluster":{"a":1},"error":"no"})", 500);
    const QString built = text(R"(ADDIN CSL_CITATION {"a":1,"b":2})");
    const auto edited = [](const char* tessaron) {
        return QStringList{text("ADDIN {\"tessaron\":") + text(tessaron) + text("}")};
    };
    addRows({
        {"one argument", "getFieldCodeFromUuid", {text("u-1")}, uuid, R"({"documentUuid":"u-1"})",
            cluster, {built}},
        {"no arguments", "getFieldCodeFromUuid", {}, uuid, R"({"documentUuid":""})", cluster,
            {built}},
        {"failure", "getFieldCodeFromUuid", {text("u")}, uuid, R"({"documentUuid":"u"})", refused,
            emptyText},

        {"two field codes", "mergeFields", {text("f"), text("g")}, merge,
            R"({"citationClusters":[{"fieldCode":"f"},{"fieldCode":"g"}]})", cluster, {built}},
        {"empty field codes", "mergeFields", {QString(), QString()}, merge,
            R"({"citationClusters":[{"fieldCode":""},{"fieldCode":""}]})", cluster, {built}},
        {"no arguments", "mergeFields", {}, merge, R"({"citationClusters":[]})", cluster, {built}},
        {"failure", "mergeFields", {text("f"), text("g")}, merge,
            R"({"citationClusters":[{"fieldCode":"f"},{"fieldCode":"g"}]})", refused, emptyText},

        {"two arguments", "checkManualFormatAndGetFieldCode", {text("f"), text("A, 1")}, update,
            R"({"fieldCode":"f","formattedText":"A, 1"})", cluster, {built}},
        {"one argument", "checkManualFormatAndGetFieldCode", {text("f")}, update,
            R"({"fieldCode":"f","formattedText":""})", cluster, {built}},
        {"failure", "checkManualFormatAndGetFieldCode", {text("f"), text("t")}, update,
            R"({"fieldCode":"f","formattedText":"t"})", refused, {text("f")}},

        {"one argument", "undoManualFormat", {text("f")}, undo, R"({"fieldCode":"f"})", cluster,
            {built}},
        {"no arguments", "undoManualFormat", {}, undo, R"({"fieldCode":""})", cluster, {built}},
        {"failure", "undoManualFormat", {text("f")}, undo, R"({"fieldCode":"f"})", refused,
            {text("f")}},

        {"manual edit", "hasManualEdit", edited(R"({"manualFormatting":{"x":1}})"), "", "", {},
            {text("true")}},
        {"no manual edit", "hasManualEdit", edited(R"({"other":1})"), "", "", {}, {text("false")}},
        {"manual edit in a second argument", "hasManualEdit",
            {text("{}"), text(R"({"tessaron":{"manualFormatting":1}})")}, "", "", {},
            {text("false")}},
        {"no arguments", "hasManualEdit", {}, "", "", {}, {text("false")}},
    });
}

void addQueryRows()
{
    const char* const info = "/tessaronDesktopInfo";
    const char* const styles = "/citationStyles/default";
    const QStringList ignored{text("x"), text("y")};
    const auto error = reply(R"({"error":"no style"})", 404);
    addRows({
        {"running application", "isTessaronRunning", {}, info, "", reply(R"({"processId":7})"),
            {text("true")}},
        {"failure", "isTessaronRunning", {}, info, "", reply(R"({"processId":7})", 500),
            {text("false")}},

        {"ignored arguments", "launchTessaron", ignored, info, "", reply(R"({"processId":7})"),
            {text("true")}},

        {"number", "tessaronProcessId", {}, info, "", reply(R"({"processId":4711})"),
            {text("4711")}},
        {"number above 2^31", "tessaronProcessId", {}, info, "",
            reply(R"({"processId":2147483648})"), {text("-2147483648")}},
        {"failure", "tessaronProcessId", {}, info, "", reply(R"({"processId":7})", 500),
            {text("0")}},

        {"ignored arguments", "getUserAccount", ignored, "/userAccount", "",
            reply(R"({"account":"a@example.org"})"), {text("a@example.org")}},
        {"failure", "getUserAccount", {}, "/userAccount", "", error,
            {text("Unable to retrieve account - error: 404. Server error 'no style'")}},
        {"ignored arguments", "getUserUuid", ignored, "/userUuid", "", reply(R"({"uuid":"u-1"})"),
            {text("u-1")}},
        {"failure", "getUserUuid", {}, "/userUuid", "", error,
            {text("Unable to retrieve uuid - error: 404. Server error 'no style'")}},
        {"ignored arguments", "getDesktopCitationStyleId", ignored, "/citationStyle/selected", "",
            reply(R"({"citationStyleId":"s"})"), {text("s")}},
        {"failure", "getDesktopCitationStyleId", {}, "/citationStyle/selected", "", error,
            {text("Can't get selected citation style id - error: 404. Server error 'no style'")}},

        {"ignored arguments", "getRecentStyles", ignored, styles, "",
            reply(R"({"citationStyles":[{"url":"u1","title":"t1"},{"title":"t2","url":"u2"}]})"),
            {text("2"), text("u1"), text("t1"), text("u2"), text("t2")}},
        {"styles without keys", "getRecentStyles", {}, styles, "",
            reply(R"({"citationStyles":[{"url":"u1"},{"title":"t2"},{},7]})"),
            {text("4"), text("u1"), QString(), QString(), text("t2"), QString(), QString(),
                QString(), QString()}},
        {"failure", "getRecentStyles", {}, styles, "",
            reply(R"({"citationStyles":[{"url":"u1","title":"t1"}]})", 500), {text("0")}},

        {"before any request", "lastError", {}, "", "", {}, emptyText},
    });
}

void addBatchRows()
{
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
        {"field code without its text", command, two.mid(0, 2), path, noClusters, bare,
            {text("true"), text("s"), text("b")}},
        {"one citation", command, two.mid(0, 3), path, oneCluster, reply(one), resultsOfOne},
        {"field code without its text after a citation", command, two.mid(0, 4), path, oneCluster,
            reply(one), resultsOfOne},
        {"two citations", command, two, path, twoClusters,
            reply(R"({"citationClusters":[{"citationCluster":2},{"formattedText":"n2"}],)"
                  R"("bibliography":"b"})"),
            {text("true"), QString(), text("b"), text("ADDIN CSL_CITATION 2"), QString(), QString(),
                QString(), text("ADDIN CSL_CITATION null"), text("n2"), QString(), QString()}},
        {"rejected first citation", command, two, path, twoClusters,
            reply(R"({"citationIndex":0})", 400), {text("false"), text("0")}},
        {"failure without an index", command, two, path, twoClusters,
            reply(R"({"error":"bad"})", 500), failed},
    });
}

} // namespace

/// Every command: which arguments it reads, what it sends, and its results.
class tst_CiteCommandHandler : public QObject, private HandlerFixture {
    Q_OBJECT

private Q_SLOTS:
    void init() { renew(); }
    void cleanup() { QCOMPARE(server.problem(), QString()); }

    void initialisationReturnsHandler();
    void runsCommand_data();
    void runsCommand();
};

void tst_CiteCommandHandler::initialisationReturnsHandler()
{
    CiteCommandHandler other;
    QCOMPARE(other.initWithPluginClient(service.data()), &other);
}

void tst_CiteCommandHandler::runsCommand_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<ScriptedReply>("reply");
    QTest::addColumn<QStringList>("results");
    addDialogRows();
    addFieldCodeRows();
    addQueryRows();
    addBatchRows();
}

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
    if (!request.isEmpty()) {
        QCOMPARE(compactJson(server.requests().constFirst().body), compactJson(request));
        QVERIFY(compactJson(request) != "not JSON");
    }
}

QTEST_GUILESS_MAIN(tst_CiteCommandHandler)
#include "tst_citecommandhandler.moc"

#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

namespace {

/// A place where one string is inserted into another. "TEXT" stands for the inserted string in all
/// columns.
struct Place {
    const char* name;
    const char* command;
    QStringList arguments;
    const char* path;
    const char* request; ///< empty for a GET
    int status;
    const char* reply;
    QStringList results;
};

QList<Place> places()
{
    const auto message = [](const char* start) {
        return QStringList{text(start) + text(" - error: 500. Server error 'TEXT'")};
    };
    const QString code = text(R"(ADDIN CSL_CITATION {"TEXT":"TEXT"})");
    const char* const cluster = R"({"citationCluster":{"TEXT":"TEXT"}})";
    return {
        {"the account's message", "getUserAccount", {}, "/userAccount", "", 500,
            R"({"error":"TEXT"})", message("Unable to retrieve account")},
        {"the id's message", "getUserUuid", {}, "/userUuid", "", 500, "TEXT",
            message("Unable to retrieve uuid")},
        {"the style's message", "getDesktopCitationStyleId", {}, "/citationStyle/selected", "", 500,
            R"({"error":"TEXT"})", message("Can't get selected citation style id")},
        {"a field code", "undoManualFormat", {text("TEXT")}, "/citation/undoManualFormat",
            R"({"fieldCode":"TEXT"})", 200, cluster, {code}},
        {"a field code that is a text", "getFieldCodeFromUuid", {text("TEXT")},
            "/testMethods/citationCluster/getFromUuid", R"({"documentUuid":"TEXT"})", 200,
            R"({"citationCluster":"TEXT"})", {text(R"(ADDIN CSL_CITATION "TEXT")")}},
        {"merged field codes", "mergeFields", {text("TEXT"), text("TEXT")}, "/citations/merge",
            R"({"citationClusters":[{"fieldCode":"TEXT"},{"fieldCode":"TEXT"}]})", 200, cluster,
            {code}},
        {"an edited field code", "checkManualFormatAndGetFieldCode", {text("TEXT"), text("%1")},
            "/citation/update/interactive", R"({"fieldCode":"TEXT","formattedText":"%1"})", 500, "",
            {text("TEXT")}},
        {"a style", "getCitationStyleFromDialog", {text("TEXT")},
            "/citationStyle/choose/interactive", R"({"currentStyleUrl":"TEXT"})", 200,
            R"({"citationStyleUrl":"TEXT"})", {text("TEXT")}},
        {"the word processor", "setWordProcessor", {text("TEXT"), text("TEXT")},
            "/wordProcessor/set", R"({"wordProcessor":"TEXT","version":"TEXT"})", 200, "{}", {}},
        {"recent styles", "getRecentStyles", {}, "/citationStyles/default", "", 200,
            R"({"citationStyles":[{"url":"TEXT","title":"TEXT"}]})",
            {text("1"), text("TEXT"), text("TEXT")}},
        {"a batch", "formatCitationsAndBibliography", {text("TEXT"), text("TEXT"), text("TEXT")},
            "/formattedCitationsAndBibliography/interactive",
            R"({"citationStyleUrl":"TEXT","tempDirectory":"FOLDER","citationClusters":[)"
            R"({"fieldCode":"TEXT","formattedText":"TEXT"}]})",
            200,
            R"({"citationStyleUrl":"TEXT","bibliography":"TEXT","citationClusters":[)"
            R"({"formattedText":"TEXT","citationCluster":{"TEXT":"TEXT"}}]})",
            {text("true"), text("TEXT"), text("TEXT"), code, text("TEXT"), QString(), QString()}},
    };
}

} // namespace

Q_DECLARE_METATYPE(Place)

/// A string of all the placeholders that Qt or C replaces in a message passes through unchanged.
class tst_Placeholders : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }
    void cleanup() { QCOMPARE(server.problem(), QString()); }

    void insertsUnchanged_data();
    void insertsUnchanged();
    void warnsUnchanged();

private:
    const QString inserted = text("%1 %2%1 %% %L1 %99 100% %s%n %{message} {0} %%");
    TemporaryHome home;
    ScriptedServer server;
};

void tst_Placeholders::insertsUnchanged_data()
{
    QTest::addColumn<Place>("place");
    const QList<Place> all = places();
    for (const Place& place : all) {
        QTest::newRow(place.name) << place;
    }
}

void tst_Placeholders::insertsUnchanged()
{
    QFETCH(Place, place);
    const ExchangeFolder folder(inserted);
    const auto filled = [&](QByteArray json) {
        return json.replace("TEXT", inserted.toUtf8()).replace("FOLDER", folder.path().toUtf8());
    };
    folder.putArguments(place.arguments.replaceInStrings(text("TEXT"), inserted));
    const QByteArray request = filled(place.request);
    server.expect(request.isEmpty() ? "GET" : "POST", place.path,
        ScriptedReply::json(filled(place.reply), place.status));
    QCOMPARE(problem(runCommand(place.command, folder), folder), QByteArray());
    QCOMPARE(folder.results(), listBytes(place.results.replaceInStrings(text("TEXT"), inserted)));
    QCOMPARE(server.requests().size(), 1);
    if (!request.isEmpty()) {
        QCOMPARE(compactJson(server.requests().first().body), compactJson(request));
    }
}

void tst_Placeholders::warnsUnchanged()
{
    const ExchangeFolder folder(inserted);
    const BridgeOutcome run = runBridge({inserted, folder.path()});
    QCOMPARE(run.errors, "Unable to open args file \"" + folder.argumentsPath().toUtf8() + "\"\n");
    QCOMPARE(run.output, QByteArray("0\n"));
    BridgeStart start;
    start.program = folder.path() + QLatin1Char('/') + inserted;
    QVERIFY(QFile::link(bridgePath(), start.program));
    QCOMPARE(runBridge({}, start).errors,
        "usage:  " + start.program.toUtf8() + "  tessaronCommand tempFolderPath\n");
}

QTEST_GUILESS_MAIN(tst_Placeholders)
#include "tst_placeholders.moc"

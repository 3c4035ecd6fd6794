#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

namespace {

/// A place where one text is put into another. "TEXT" stands for the text, in all columns.
struct Place {
    const char* name;
    const char* command;
    QStringList arguments;
    const char* path; ///< empty for a command that sends nothing
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

/// "%1" is text and nothing else, wherever one text is put into another.
class tst_Placeholders : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void init() { server.reset(); }
    void everyPlace_data();
    void everyPlace();
    void warnings_data();
    void warnings();

private:
    TemporaryHome home;
    ScriptedServer server;
};

const char* const placeholders[] = {
    "%1", "%2", "%%", "%L1", "%1%2%1", "%99", "100%", "%s%n", "%{message}", "{0}", "%1 %2 %%"};

void tst_Placeholders::everyPlace_data()
{
    QTest::addColumn<Place>("place");
    QTest::addColumn<QString>("inserted");
    const QList<Place> all = places();
    for (const Place& place : all) {
        for (const char* const inserted : placeholders) {
            QTest::newRow((QByteArray(inserted) + " in " + place.name).constData())
                << place << text(inserted);
        }
    }
}

void tst_Placeholders::everyPlace()
{
    QFETCH(Place, place);
    QFETCH(QString, inserted);
    const ExchangeFolder folder(inserted);
    const QByteArray bytes = inserted.toUtf8();
    const auto filled = [&](QByteArray json) {
        return json.replace("TEXT", bytes).replace("FOLDER", folder.path().toUtf8());
    };
    folder.putArguments(place.arguments.replaceInStrings(text("TEXT"), inserted));
    const QByteArray request = filled(place.request);
    server.expect(request.isEmpty() ? "GET" : "POST", place.path,
        ScriptedReply::json(filled(place.reply), place.status));
    const BridgeOutcome run = runBridge({text(place.command), folder.path()});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(folder.results(), listBytes(place.results.replaceInStrings(text("TEXT"), inserted)));
    QCOMPARE(folder.ready(), utf16le(QString::number(folder.results().size())));
    QCOMPARE(server.problem(), QString());
    if (!request.isEmpty()) {
        QCOMPARE(compactJson(server.requests().first().body), compactJson(request));
    }
}

void tst_Placeholders::warnings_data()
{
    QTest::addColumn<QString>("inserted");
    for (const char* const inserted : placeholders) {
        QTest::newRow(inserted) << text(inserted);
    }
}

void tst_Placeholders::warnings()
{
    QFETCH(QString, inserted);
    const ExchangeFolder folder(inserted);
    const BridgeOutcome run = runBridge({inserted, folder.path()});
    QCOMPARE(run.errors, "Unable to open args file \"" + folder.argumentsPath().toUtf8() + "\"\n");
    QCOMPARE(run.output, QByteArray("0\n"));
    BridgeStart start;
    start.program = folder.path() + QLatin1Char('/') + inserted;
    QVERIFY(QFile::link(bridgePath(), start.program));
    QCOMPARE(runBridge({}, start).errors,
        "usage:  " + start.program.toUtf8() + "  tessaronCommand tempFolderPath\n");
    QCOMPARE(server.problem(), QString());
}

QTEST_GUILESS_MAIN(tst_Placeholders)
#include "tst_placeholders.moc"

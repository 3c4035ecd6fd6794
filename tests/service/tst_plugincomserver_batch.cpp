#include "tests/service/BatchSupport.h"
#include "tests/service/Outcomes.h"

#include <QtTest>

/// The request of a batch, and replies that are failures.
class BatchTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void request_data();
    void request();
    void sameBatchTwice();
    void resetEmptiesTheBatchOnly();
    void addingLeavesTheResults();
    void failure_data();
    void failure();
    void rejectedCitation_data();
    void rejectedCitation();
    void noServer();
    void rejectionIsForgotten();

private:
    ServiceFixture fixture;
};

void BatchTest::init()
{
    fixture.server.reset();
}

void BatchTest::cleanup()
{
    QCOMPARE(fixture.server.problem(), QString());
}

// The request

void BatchTest::request_data()
{
    QTest::addColumn<QString>("style");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("citations"); // field code and text in turn
    QTest::addColumn<QByteArray>("request");

    const QString style = QStringLiteral("http://example.org/a");
    const QString folder = QStringLiteral("/tmp/a b");
    const auto row = [&](const char* name, const QStringList& citations, const char* clusters) {
        QTest::newRow(name) << style << folder << citations
                            << QByteArray(R"({"citationStyleUrl":"http://example.org/a",)"
                                          R"("tempDirectory":"/tmp/a b","citationClusters":)")
                + clusters + "}";
    };
    QTest::newRow("nothing set") << QString() << QString() << QStringList()
                                 << QByteArray(R"({"citationStyleUrl":"","tempDirectory":"",)"
                                               R"("citationClusters":[]})");
    QTest::newRow("placeholders")
        << QStringLiteral("%1") << QStringLiteral("%2")
        << QStringList{QStringLiteral("%3 %1"), QStringLiteral("%2 %L1")}
        << QByteArray(R"({"citationStyleUrl":"%1","tempDirectory":"%2",)"
                      R"("citationClusters":[{"fieldCode":"%3 %1","formattedText":"%2 %L1"}]})");
    row("no citations", {}, "[]");
    row("two in order",
        {QStringLiteral("z"), QStringLiteral("Z."), QStringLiteral("a"), QStringLiteral("A.")},
        R"([{"fieldCode":"z","formattedText":"Z."},{"fieldCode":"a","formattedText":"A."}])");
    row("twice the same", {QStringLiteral("a"), QString(), QStringLiteral("a"), QString()},
        R"([{"fieldCode":"a","formattedText":""},{"fieldCode":"a","formattedText":""}])");
    row("empty texts", {QString(), QString()}, R"([{"fieldCode":"","formattedText":""}])");
    row("a field code is not parsed",
        {QStringLiteral("ADDIN CSL_CITATION {\"b\": 1,"), QStringLiteral("<i>ü\u0001</i>")},
        R"([{"fieldCode":"ADDIN CSL_CITATION {\u0022b\u0022: 1,",)"
        R"("formattedText":"<i>ü\u0001</i>"}])");
}

void BatchTest::request()
{
    QFETCH(QString, style);
    QFETCH(QString, folder);
    QFETCH(QStringList, citations);
    QFETCH(QByteArray, request);
    PluginComServer service;
    service.setCitationStyle(style);
    service.setTempDirectory(folder);
    for (int i = 0; i < citations.size(); i += 2) {
        service.addCitation(citations.at(i), citations.at(i + 1));
    }
    QCOMPARE(fixture.server.connectionCount(), 0);

    const int count = citations.size() / 2;
    const QByteArray clusters = '[' + QByteArray("{},").repeated(count);
    fixture.server.expect("POST", batchPath,
        ScriptedReply::json(answer(clusters.left(1 + qMax(0, count * 3 - 1)) + ']')));
    QVERIFY(service.formatCitationsAndBibliography());
    const QByteArray body = fixture.server.requests().value(0).body;
    QVERIFY2(isSameJson(body, request), body);
}

void BatchTest::sameBatchTwice()
{
    const QByteArray entries = '[' + goodEntry + ',' + goodEntry + ']';
    PluginComServer service;
    QVERIFY(format(fixture, service, 2, ScriptedReply::json(answer(entries))));
    service.setCitationStyle(QString());
    service.setCitationStyle(QStringLiteral("style"));
    fixture.server.expect("POST", batchPath, ScriptedReply::json("{}", 500));
    QVERIFY(!service.formatCitationsAndBibliography());
    fixture.server.expect("POST", batchPath, ScriptedReply::json(answer(entries)));
    QVERIFY(service.formatCitationsAndBibliography());

    const auto& requests = fixture.server.requests();
    const QString key = QStringLiteral("citationClusters");
    QCOMPARE(requests.at(0).json().value(key).toList().size(), 2);
    QCOMPARE(requests.at(1).json().value(key), requests.at(0).json().value(key));
    QCOMPARE(requests.at(2).body, requests.at(1).body);
}

void BatchTest::resetEmptiesTheBatchOnly()
{
    PluginComServer service;
    service.setTempDirectory(QStringLiteral("/tmp/x"));
    QVERIFY(format(fixture, service, 1, ScriptedReply::json(answer('[' + goodEntry + ']'))));
    service.resetCitations();
    QCOMPARE(citation(service, 0), goodCitation);
    QCOMPARE(service.getFormattedBibliography(), QStringLiteral("bib"));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("style"));

    // An empty batch is sent like any other.
    fixture.server.expect("POST", batchPath, ScriptedReply::json(answer("[]")));
    QVERIFY(service.formatCitationsAndBibliography());
    QVERIFY(isSameJson(fixture.server.requests().last().body,
        R"({"citationStyleUrl":"style","tempDirectory":"/tmp/x","citationClusters":[]})"));
    QCOMPARE(citation(service, 0), outOfRange);

    QVERIFY(!format(fixture, service, 1, ScriptedReply::json(R"({"citationIndex":3})", 500)));
    service.resetCitations();
    QCOMPARE(service.lastErrorCitationIndex(), 3);
}

void BatchTest::addingLeavesTheResults()
{
    PluginComServer service;
    QVERIFY(format(fixture, service, 1, ScriptedReply::json(answer('[' + goodEntry + ']'))));
    service.addCitation(QStringLiteral("b"), QStringLiteral("(B)"));
    QCOMPARE(citation(service, 0), goodCitation);
    QCOMPARE(citation(service, 1), outOfRange);
}

// Other replies

void BatchTest::failure_data()
{
    QTest::addColumn<Outcome>("outcome");
    for (const Outcome& outcome :
        failures(R"({"citationStyleUrl":"x","bibliography":"x","citationClusters":[{},{}]})")) {
        QTest::newRow(outcome.name) << outcome;
    }
}

void BatchTest::failure()
{
    QFETCH(Outcome, outcome);
    PluginComServer service;
    QVERIFY(format(fixture, service, 1, ScriptedReply::json(answer('[' + goodEntry + ']'))));
    service.setCitationStyle(QStringLiteral("mine"));
    QVERIFY(!format(fixture, service, 2, outcome.reply));
    QCOMPARE(citation(service, 0), outOfRange);
    QCOMPARE(citation(service, 1), outOfRange);
    QCOMPARE(service.getFormattedBibliography(), QStringLiteral("bib"));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("mine"));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QVERIFY2(outcome.explains(service.lastError()), qPrintable(service.lastError()));
}

void BatchTest::rejectedCitation_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("expected");

    const auto row = [](const char* name, const char* reply, int expected) {
        QTest::newRow(name) << 500 << QByteArray(reply) << expected;
    };
    QTest::newRow("status 201") << 201 << QByteArray(R"({"citationIndex":1})") << 1;
    QTest::newRow("status 404") << 404 << QByteArray(R"({"citationIndex":1})") << 1;
    row("first", R"({"citationIndex":0,"error":"x"})", 0);
    row("larger than the batch", R"({"citationIndex":99})", 99);
    row("negative", R"({"citationIndex":-3})", -3);
    row("text of digits", R"({"citationIndex":"2"})", 2);
    row("integral double", R"({"citationIndex":2.0})", 2);
    row("text", R"({"citationIndex":"second %1"})", 0);
    row("empty text", R"({"citationIndex":""})", 0);
    row("null", R"({"citationIndex":null})", 0);
    row("object", R"({"citationIndex":{"index":2}})", 0);
    row("list", R"({"citationIndex":[2]})", 0);
    row("missing", R"({"error":"x"})", -1);
    row("key in another case", R"({"citationindex":2})", -1);
    row("one level deeper", R"({"error":{"citationIndex":2}})", -1);
    row("in an array", R"([{"citationIndex":2}])", -1);
    row("cut off", R"({"citationIndex":2)", -1);
}

void BatchTest::rejectedCitation()
{
    QFETCH(int, status);
    QFETCH(QByteArray, reply);
    QFETCH(int, expected);
    PluginComServer service;
    QVERIFY(!format(fixture, service, 3, ScriptedReply::json(reply, status)));
    QCOMPARE(service.lastErrorCitationIndex(), expected);
}

void BatchTest::noServer()
{
    fixture.useNoServer();
    PluginComServer service;
    fixture.useScriptedServer();
    service.setCitationStyle(QStringLiteral("mine"));
    service.addCitation(QStringLiteral("a"), QStringLiteral("A."));
    QVERIFY(!service.formatCitationsAndBibliography());
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("mine"));
    QCOMPARE(citation(service, 0), outOfRange);
    QVERIFY(isRefusal(service.lastError()));
}

void BatchTest::rejectionIsForgotten()
{
    PluginComServer service;
    QVERIFY(!format(fixture, service, 3, ScriptedReply::json(R"({"citationIndex":2})", 500)));
    QCOMPARE(service.lastErrorCitationIndex(), 2);
    QVERIFY(!format(fixture, service, 3, ScriptedReply::json("{}", 500)));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QVERIFY(!format(fixture, service, 3, ScriptedReply::json(R"({"citationIndex":2})", 500)));
    QVERIFY(format(fixture, service, 0, ScriptedReply::json(answer("[]"))));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
}

QTEST_GUILESS_MAIN(BatchTest)
#include "tst_plugincomserver_batch.moc"

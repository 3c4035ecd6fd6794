#include "tests/service/BatchSupport.h"

#include <QtTest>

/// The request of a batch, and replies that reject it.
class tst_PluginComServer_Batch : public ServiceTest {
    Q_OBJECT

private Q_SLOTS:
    void sendsBatch_data();
    void sendsBatch();
    void keepsBatchForNextRequest();
    void resettingKeepsResults();
    void addingKeepsResults();
    void failureClearsOnlyResults_data();
    void failureClearsOnlyResults();
    void failsWithoutApplication();
    void readsRejectedIndex_data();
    void readsRejectedIndex();
    void forgetsRejectedIndex();
};

void tst_PluginComServer_Batch::sendsBatch_data()
{
    QTest::addColumn<QString>("style");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("citations"); // field code and text in turn
    QTest::addColumn<QByteArray>("request");

    const QString style = QStringLiteral("http://example.org/%1");
    const QString folder = QStringLiteral("/tmp/a b/%2");
    const auto row = [&](const char* name, const QStringList& citations, const char* clusters) {
        QTest::newRow(name) << style << folder << citations
                            << QByteArray(R"({"citationStyleUrl":"http://example.org/%1",)"
                                          R"("tempDirectory":"/tmp/a b/%2","citationClusters":)")
                + clusters + "}";
    };
    QTest::newRow("empty batch") << QString() << QString() << QStringList()
                                 << QByteArray(R"({"citationStyleUrl":"","tempDirectory":"",)"
                                               R"("citationClusters":[]})");
    row("two citations in order",
        {QStringLiteral("z %3"), QStringLiteral("Z."), QStringLiteral("a"), QStringLiteral("A.")},
        R"([{"fieldCode":"z %3","formattedText":"Z."},{"fieldCode":"a","formattedText":"A."}])");
    row("same citation twice, without text",
        {QStringLiteral("a"), QString(), QStringLiteral("a"), QString()},
        R"([{"fieldCode":"a","formattedText":""},{"fieldCode":"a","formattedText":""}])");
    row("field code with malformed JSON",
        {QStringLiteral("ADDIN CSL_CITATION {\"b\": 1,"), QStringLiteral("<i>ü\u0001</i>")},
        R"([{"fieldCode":"ADDIN CSL_CITATION {\u0022b\u0022: 1,",)"
        R"("formattedText":"<i>ü\u0001</i>"}])");
}

void tst_PluginComServer_Batch::sendsBatch()
{
    QFETCH(QString, style);
    QFETCH(QString, folder);
    QFETCH(QStringList, citations);
    QFETCH(QByteArray, request);
    PluginComServer service;
    service.setCitationStyle(style);
    service.setTempDirectory(folder);
    QByteArrayList entries;
    for (int i = 0; i < citations.size(); i += 2) {
        service.addCitation(citations.at(i), citations.at(i + 1));
        entries << "{}";
    }
    QCOMPARE(server.connectionCount(), 0);

    server.expect("POST", batchPath, batchReply(entries));
    QVERIFY(service.formatCitationsAndBibliography());
    const QByteArray body = server.requests().value(0).body;
    QVERIFY2(isSameJson(body, request), body);
}

void tst_PluginComServer_Batch::keepsBatchForNextRequest()
{
    PluginComServer service;
    service.setCitationStyle(QStringLiteral("style"));
    QVERIFY(!format(server, service, 2, ScriptedReply::json("{}", 500)));
    server.expect("POST", batchPath, batchReply({goodEntry, goodEntry}));
    QVERIFY(service.formatCitationsAndBibliography());
    server.expect("POST", batchPath, batchReply({goodEntry, goodEntry}));
    QVERIFY(service.formatCitationsAndBibliography());

    QVERIFY(isSameJson(server.requests().at(0).body,
        R"({"citationStyleUrl":"style","tempDirectory":"","citationClusters":)"
        R"([{"fieldCode":"0","formattedText":""},{"fieldCode":"1","formattedText":""}]})"));
    QCOMPARE(server.requests().at(1).body, server.requests().at(0).body);
    QCOMPARE(server.requests().at(2).body, server.requests().at(0).body);
}

void tst_PluginComServer_Batch::resettingKeepsResults()
{
    PluginComServer service;
    service.setTempDirectory(QStringLiteral("/tmp/x"));
    QVERIFY(format(server, service, 1, batchReply({goodEntry})));
    service.resetCitations();
    QCOMPARE(result(service, 0), goodResult);
    QCOMPARE(service.getFormattedBibliography(), QStringLiteral("bib"));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("style"));

    // An empty batch is sent like any other.
    server.expect("POST", batchPath, batchReply({}));
    QVERIFY(service.formatCitationsAndBibliography());
    QVERIFY(isSameJson(server.requests().last().body,
        R"({"citationStyleUrl":"style","tempDirectory":"/tmp/x","citationClusters":[]})"));
    QCOMPARE(result(service, 0), noResult);

    QVERIFY(!format(server, service, 1, ScriptedReply::json(R"({"citationIndex":3})", 500)));
    service.resetCitations();
    QCOMPARE(service.lastErrorCitationIndex(), 3);
}

void tst_PluginComServer_Batch::addingKeepsResults()
{
    PluginComServer service;
    QVERIFY(format(server, service, 1, batchReply({goodEntry})));
    service.addCitation(QStringLiteral("b"), QStringLiteral("(B)"));
    QCOMPARE(result(service, 0), goodResult);
    QCOMPARE(result(service, 1), noResult);
}

void tst_PluginComServer_Batch::failureClearsOnlyResults_data()
{
    addFailedReplies(R"({"citationStyleUrl":"x","bibliography":"x","citationClusters":[{},{}]})");
}

void tst_PluginComServer_Batch::failureClearsOnlyResults()
{
    QFETCH(FailedReply, failure);
    PluginComServer service;
    QVERIFY(format(server, service, 1, batchReply({goodEntry})));
    service.setCitationStyle(QStringLiteral("mine"));
    QVERIFY(!format(server, service, 2, failure.reply));
    QCOMPARE(result(service, 0), noResult);
    QCOMPARE(service.getFormattedBibliography(), QStringLiteral("bib"));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("mine"));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.lastError(), failure.error);
}

void tst_PluginComServer_Batch::failsWithoutApplication()
{
    const auto service = serviceWithoutApplication();
    service->setCitationStyle(QStringLiteral("mine"));
    service->addCitation(QStringLiteral("a"), QStringLiteral("A."));
    QVERIFY(!service->formatCitationsAndBibliography());
    QCOMPARE(service->lastErrorCitationIndex(), -1);
    QCOMPARE(service->getCitationStyleId(), QStringLiteral("mine"));
    QCOMPARE(service->lastError(), QStringLiteral("Connection refused"));
}

void tst_PluginComServer_Batch::readsRejectedIndex_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("expected");

    const auto row = [](const char* name, const char* reply, int expected) {
        QTest::newRow(name) << QByteArray(reply) << expected;
    };
    row("first citation", R"({"citationIndex":0,"error":"x"})", 0);
    row("larger than the batch", R"({"citationIndex":99})", 99);
    row("negative", R"({"citationIndex":-3})", -3);
    row("string of digits", R"({"citationIndex":"2"})", 2);
    row("negative string", R"({"citationIndex":"-5"})", -5);
    row("integral double", R"({"citationIndex":2.0})", 2);
    // QVariant rounds a double to the nearest integer.
    row("double to round up", R"({"citationIndex":1.5})", 2);
    row("double to round down", R"({"citationIndex":1.25})", 1);
    row("true", R"({"citationIndex":true})", 1);
    row("false", R"({"citationIndex":false})", 0);
    row("string that is not a number", R"({"citationIndex":"second %1"})", 0);
    row("string with a fraction", R"({"citationIndex":"1.5"})", 0);
    row("empty string", R"({"citationIndex":""})", 0);
    row("null", R"({"citationIndex":null})", 0);
    row("object", R"({"citationIndex":{"index":2}})", 0);
    row("list", R"({"citationIndex":[2]})", 0);
    row("missing", R"({"error":"x"})", -1);
    row("key in another case", R"({"citationindex":2})", -1);
    row("one level deeper", R"({"error":{"citationIndex":2}})", -1);
}

void tst_PluginComServer_Batch::readsRejectedIndex()
{
    QFETCH(QByteArray, reply);
    QFETCH(int, expected);
    for (int status : {500, 201}) {
        PluginComServer service;
        QVERIFY(!format(server, service, 3, ScriptedReply::json(reply, status)));
        QCOMPARE(service.lastErrorCitationIndex(), expected);
    }
}

void tst_PluginComServer_Batch::forgetsRejectedIndex()
{
    const ScriptedReply rejection = ScriptedReply::json(R"({"citationIndex":2})", 500);
    PluginComServer service;
    QVERIFY(!format(server, service, 3, rejection));
    QVERIFY(!format(server, service, 3, ScriptedReply::json("{}", 500)));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QVERIFY(!format(server, service, 3, rejection));
    QVERIFY(format(server, service, 0, batchReply({})));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
}

QTEST_GUILESS_MAIN(tst_PluginComServer_Batch)
#include "tst_plugincomserver_batch.moc"

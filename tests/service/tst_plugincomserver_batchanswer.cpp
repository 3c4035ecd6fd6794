#include "tests/service/BatchSupport.h"

#include <QtTest>

/// Replies to a batch with status 200.
class BatchAnswerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void success();
    void entry_data();
    void entry();
    void countMismatch_data();
    void countMismatch();
    void styleAndBibliography_data();
    void styleAndBibliography();
    void uselessAnswer_data();
    void uselessAnswer();
    void badIndex_data();
    void badIndex();
    void indexInASuccessIsNotRead();

private:
    ServiceFixture fixture;
};

void BatchAnswerTest::init()
{
    fixture.server.reset();
}

void BatchAnswerTest::cleanup()
{
    QCOMPARE(fixture.server.problem(), QString());
}

void BatchAnswerTest::success()
{
    const QByteArray reply = R"({"citationStyleUrl":"http://example.org/b",)"
                             R"("bibliography":"<b>%1</b>\n%2","citationClusters":[)"
                             R"({"formattedText":"1. %1","citationCluster":{"id":"x","tessaron":)"
                             R"({"previouslyFormattedCitation":"0.",)"
                             R"("plainTextFormattedCitation":"1"}}},)"
        + goodEntry + "]}";
    PluginComServer service;
    service.setCitationStyle(QStringLiteral("http://example.org/a"));
    QVERIFY(format(fixture, service, 2, ScriptedReply::json(reply)));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("http://example.org/b"));
    QCOMPARE(service.getFormattedBibliography(), QStringLiteral("<b>%1</b>\n%2"));
    QCOMPARE(citation(service, 0),
        (QStringList{QStringLiteral("0."), QStringLiteral("1. %1"), QStringLiteral("1"),
            QStringLiteral("ADDIN CSL_CITATION {\"id\":\"x\",\"tessaron\":"
                           "{\"plainTextFormattedCitation\":\"1\","
                           "\"previouslyFormattedCitation\":\"0.\"}}")}));
    QCOMPARE(citation(service, 1), goodCitation);
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.lastError(), QString());
}

void BatchAnswerTest::entry_data()
{
    QTest::addColumn<QByteArray>("entry");
    QTest::addColumn<QStringList>("expected");

    const auto row = [](const char* name, const char* entry, const char* previous,
                         const char* formatted, const char* plain, const char* cluster) {
        QTest::newRow(name) << QByteArray(entry)
                            << QStringList{QString::fromUtf8(previous),
                                   QString::fromUtf8(formatted), QString::fromUtf8(plain),
                                   QStringLiteral("ADDIN CSL_CITATION ")
                                       + QString::fromUtf8(cluster)};
    };
    row("text only", R"({"formattedText":"%1 ü"})", "", "%1 ü", "", "null");
    row("cluster only", R"({"citationCluster":{"a":1}})", "", "", "", R"({"a":1})");
    row("one of the two texts",
        R"({"citationCluster":{"tessaron":{"plainTextFormattedCitation":"p"}}})", "", "", "p",
        R"({"tessaron":{"plainTextFormattedCitation":"p"}})");
    row("numbers",
        R"({"formattedText":1,"citationCluster":{"tessaron":)"
        R"({"previouslyFormattedCitation":true,"plainTextFormattedCitation":-2}}})",
        "true", "1", "-2",
        R"({"tessaron":{"plainTextFormattedCitation":-2,"previouslyFormattedCitation":true}})");

    row("empty entry", "{}", "", "", "", "null");
    row("null", "null", "", "", "", "null");
    row("text", R"("new")", "", "", "", "null");
    row("number", "7", "", "", "", "null");
    row("list", R"([{"formattedText":"x"}])", "", "", "", "null");
    row("texts null", R"({"formattedText":null,"citationCluster":null})", "", "", "", "null");
    row("text an object", R"({"formattedText":{"a":"x"}})", "", "", "", "null");
    row("text a list", R"({"formattedText":["x"]})", "", "", "", "null");
    row("cluster a text", R"({"citationCluster":"tessaron"})", "", "", "", R"("tessaron")");
    row("tessaron a text", R"({"citationCluster":{"tessaron":"x"}})", "", "", "",
        R"({"tessaron":"x"})");
    row("tessaron a list",
        R"({"citationCluster":{"tessaron":[{"plainTextFormattedCitation":"p"}]}})", "", "", "",
        R"({"tessaron":[{"plainTextFormattedCitation":"p"}]})");
    row("path as a key", R"({"citationCluster.tessaron.plainTextFormattedCitation":"p"})", "", "",
        "", "null");
    row("texts beside tessaron",
        R"({"plainTextFormattedCitation":"p","citationCluster":{"formattedText":"f"}})", "", "", "",
        R"({"formattedText":"f"})");
}

void BatchAnswerTest::entry()
{
    QFETCH(QByteArray, entry);
    QFETCH(QStringList, expected);
    PluginComServer service;
    // The entry keeps its place between two others.
    QVERIFY(format(fixture, service, 3,
        ScriptedReply::json(answer('[' + goodEntry + ',' + entry + ',' + goodEntry + ']'))));
    QCOMPARE(citation(service, 0), goodCitation);
    QCOMPARE(citation(service, 1), expected);
    QCOMPARE(citation(service, 2), goodCitation);
    QCOMPARE(citation(service, 3), outOfRange);
}

void BatchAnswerTest::countMismatch_data()
{
    QTest::addColumn<int>("submitted");
    QTest::addColumn<int>("received");
    QTest::addColumn<QByteArray>("warning");

    QTest::newRow("fewer") << 3 << 2
                           << QByteArray("Citation count mismatch.  Submitted 3 citations but only "
                                         "received 2 formatted citations.");
    QTest::newRow("more") << 1 << 2
                          << QByteArray("Citation count mismatch.  Submitted 1 citations but only "
                                        "received 2 formatted citations.");
    QTest::newRow("none back") << 1 << 0
                               << QByteArray("Citation count mismatch.  Submitted 1 citations but "
                                             "only received 0 formatted citations.");
    QTest::newRow("none sent") << 0 << 1
                               << QByteArray("Citation count mismatch.  Submitted 0 citations but "
                                             "only received 1 formatted citations.");
    QTest::newRow("many") << 2000 << 1999
                          << QByteArray("Citation count mismatch.  Submitted 2000 citations but "
                                        "only received 1999 formatted citations.");
}

void BatchAnswerTest::countMismatch()
{
    QFETCH(int, submitted);
    QFETCH(int, received);
    QFETCH(QByteArray, warning);
    QByteArrayList entries;
    for (int i = 0; i < received; ++i) {
        entries << goodEntry;
    }
    PluginComServer service;
    QTest::ignoreMessage(QtWarningMsg, warning.constData());
    QVERIFY(!format(
        fixture, service, submitted, ScriptedReply::json(answer('[' + entries.join(',') + ']'))));

    // What came is stored all the same.
    for (int i = 0; i < received; ++i) {
        QCOMPARE(citation(service, i), goodCitation);
    }
    QCOMPARE(citation(service, received), outOfRange);
    QCOMPARE(service.getFormattedBibliography(), QStringLiteral("bib"));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("style"));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.lastError(), QString());
}

void BatchAnswerTest::styleAndBibliography_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("style");
    QTest::addColumn<QString>("bibliography");

    const auto row = [](const char* name, const QByteArray& members, const char* style,
                         const char* bibliography) {
        QTest::newRow(name) << "{\"citationClusters\":[" + goodEntry + ']' + members + '}'
                            << QString::fromUtf8(style) << QString::fromUtf8(bibliography);
    };
    row("both", R"(,"citationStyleUrl":"s","bibliography":"b")", "s", "b");
    row("numbers", R"(,"citationStyleUrl":1,"bibliography":2)", "1", "2");
    row("blank", R"(,"citationStyleUrl":" ","bibliography":" ")", " ", " ");
    row("no style", R"(,"bibliography":"b")", "", "b");
    row("style null", R"(,"citationStyleUrl":null,"bibliography":"b")", "", "b");
    row("style an object", R"(,"citationStyleUrl":{"url":"s"},"bibliography":"b")", "", "b");
    row("style in another case", R"(,"citationStyleURL":"s","bibliography":"b")", "", "b");

    row("no bibliography", R"(,"citationStyleUrl":"s")", "s", "");
    row("bibliography empty", R"(,"citationStyleUrl":"s","bibliography":"")", "s", "");
    row("bibliography null", R"(,"citationStyleUrl":"s","bibliography":null)", "s", "");
    row("bibliography a list", R"(,"citationStyleUrl":"s","bibliography":["b"])", "s", "");
    row("bibliography an object", R"(,"citationStyleUrl":"s","bibliography":{"b":1})", "s", "");
    row("neither", "", "", "");
}

void BatchAnswerTest::styleAndBibliography()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, style);
    QFETCH(QString, bibliography);
    PluginComServer service;
    service.setCitationStyle(QStringLiteral("former style"));
    QVERIFY(format(fixture, service, 1,
        ScriptedReply::json(R"({"citationStyleUrl":"former","bibliography":"former",)"
                            R"("citationClusters":[{}]})")));
    if (bibliography.isEmpty()) {
        QTest::ignoreMessage(QtWarningMsg, "No formatted bibliography returned");
    }
    QCOMPARE(format(fixture, service, 1, ScriptedReply::json(reply)), !bibliography.isEmpty());
    QCOMPARE(service.getCitationStyleId(), style);
    QCOMPARE(service.getFormattedBibliography(), bibliography);
    QCOMPARE(citation(service, 0), goodCitation);
    QCOMPARE(service.lastErrorCitationIndex(), -1);

    // The next request goes out with the style as it now stands.
    fixture.server.expect("POST", batchPath, ScriptedReply::json("", 404));
    service.formatCitationsAndBibliography();
    QCOMPARE(fixture.server.requests().last().json().value(QStringLiteral("citationStyleUrl")),
        QVariant(style));
}

void BatchAnswerTest::uselessAnswer_data()
{
    QTest::addColumn<QByteArray>("reply");
    const auto row = [](const char* name, const QByteArray& reply) {
        QTest::newRow(name) << reply;
    };
    row("empty body", "");
    row("empty object", "{}");
    row("not JSON", "<html></html>");
    row("cut off", answer('[' + goodEntry + ']').chopped(1));
    row("array", '[' + answer('[' + goodEntry + ']') + ']');
    row("scalar", "200");
    row("clusters null", R"({"citationClusters":null})");
    row("clusters an object", R"({"citationClusters":)" + goodEntry + '}');
    row("clusters a text", R"({"citationClusters":"[{}]"})");
    row("clusters a number", R"({"citationClusters":1})");
    row("clusters in another case", R"({"CitationClusters":[)" + goodEntry + "]}");
    row("nested too deep", answer(QByteArray(200000, '[')));
}

void BatchAnswerTest::uselessAnswer()
{
    QFETCH(QByteArray, reply);
    PluginComServer service;
    QVERIFY(format(fixture, service, 1, ScriptedReply::json(answer('[' + goodEntry + ']'))));
    QTest::ignoreMessage(QtWarningMsg,
        "Citation count mismatch.  Submitted 1 citations but only received 0 formatted "
        "citations.");
    QVERIFY(!format(fixture, service, 1, ScriptedReply::json(reply)));
    QCOMPARE(citation(service, 0), outOfRange);
    QCOMPARE(service.getCitationStyleId(), QString());
    QCOMPARE(service.getFormattedBibliography(), QString());
    QCOMPARE(service.lastErrorCitationIndex(), -1);

    // With nothing submitted the count is right, and the bibliography is what is missing.
    QTest::ignoreMessage(QtWarningMsg, "No formatted bibliography returned");
    QVERIFY(!format(fixture, service, 0, ScriptedReply::json(reply)));
}

void BatchAnswerTest::badIndex_data()
{
    QTest::addColumn<int>("index");
    QTest::newRow("one before") << -1;
    QTest::newRow("one behind") << 2;
    QTest::newRow("far behind") << 1000;
    QTest::newRow("smallest") << -2147483647 - 1;
    QTest::newRow("largest") << 2147483647;
}

void BatchAnswerTest::badIndex()
{
    QFETCH(int, index);
    PluginComServer service;
    QCOMPARE(citation(service, index), outOfRange);
    QVERIFY(format(
        fixture, service, 2, ScriptedReply::json(answer('[' + goodEntry + ',' + goodEntry + ']'))));
    QCOMPARE(citation(service, index), outOfRange);
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(citation(service, 1), goodCitation);
}

void BatchAnswerTest::indexInASuccessIsNotRead()
{
    PluginComServer service;
    QVERIFY(format(fixture, service, 0,
        ScriptedReply::json(
            R"({"citationClusters":[],"bibliography":"b","citationIndex":2,"error":"x"})")));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.lastError(), QString());
}

QTEST_GUILESS_MAIN(BatchAnswerTest)
#include "tst_plugincomserver_batchanswer.moc"

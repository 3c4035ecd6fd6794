#include "tests/service/BatchSupport.h"

#include <QtTest>

/// Replies to a batch with status 200.
class tst_PluginComServer_BatchReply : public ServiceTest {
    Q_OBJECT

private Q_SLOTS:
    void storesStyleBibliographyAndCitations();
    void takesLastOfRepeatedLists();
    void sharesUnchangedFieldCodes();
    void readsEachCitation_data();
    void readsEachCitation();
    void rejectsWrongCount_data();
    void rejectsWrongCount();
    void replacesStyleAndBibliography_data();
    void replacesStyleAndBibliography();
    void clearsStyleIfReplyHasNoStyle_data();
    void clearsStyleIfReplyHasNoStyle();
    void rejectsReplyWithoutCitations_data();
    void rejectsReplyWithoutCitations();
    void returnsFixedTextsOutOfRange_data();
    void returnsFixedTextsOutOfRange();
    void ignoresRejectedIndexInSuccess();
};

void tst_PluginComServer_BatchReply::storesStyleBibliographyAndCitations()
{
    const QByteArray reply = R"({"citationStyleUrl":"http://example.org/b",)"
                             R"("bibliography":"<b>%1</b>\n%2","citationClusters":[)"
                             R"({"formattedText":"1. %1","citationCluster":{"id":"x","tessaron":)"
                             R"({"previouslyFormattedCitation":"0.",)"
                             R"("plainTextFormattedCitation":"1"}}},)"
        + goodEntry + "]}";
    PluginComServer service;
    service.setCitationStyle(QStringLiteral("http://example.org/a"));
    QVERIFY(format(server, service, 2, ScriptedReply::json(reply)));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("http://example.org/b"));
    QCOMPARE(service.getFormattedBibliography(), QStringLiteral("<b>%1</b>\n%2"));
    QCOMPARE(result(service, 0),
        (QStringList{QStringLiteral("0."), QStringLiteral("1. %1"), QStringLiteral("1"),
            QStringLiteral("ADDIN CSL_CITATION {\"id\":\"x\",\"tessaron\":"
                           "{\"plainTextFormattedCitation\":\"1\","
                           "\"previouslyFormattedCitation\":\"0.\"}}")}));
    QCOMPARE(result(service, 1), goodResult);
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.lastError(), QString());
}

void tst_PluginComServer_BatchReply::takesLastOfRepeatedLists()
{
    PluginComServer service;
    QVERIFY(format(server, service, 1,
        ScriptedReply::json(R"({"bibliography":"b","citationClusters":[{"formattedText":"1"},{}],)"
                            R"("citationClusters":[)"
            + goodEntry + "]}")));
    QCOMPARE(result(service, 0), goodResult);
    QCOMPARE(result(service, 1), noResult);
}

void tst_PluginComServer_BatchReply::sharesUnchangedFieldCodes()
{
    // A long document would otherwise have each field code in memory twice.
    const QString sent = goodResult.last();
    PluginComServer service;
    for (const QString& fieldCode : {sent, QStringLiteral("changed"), sent}) {
        service.addCitation(fieldCode, QString());
    }
    server.expect("POST", batchPath, batchReply({goodEntry, goodEntry, "{}"}));
    QVERIFY(service.formatCitationsAndBibliography());
    QCOMPARE(result(service, 0), goodResult);
    QCOMPARE(result(service, 1), goodResult);
    QCOMPARE(service.getFieldCode(2), QStringLiteral("ADDIN CSL_CITATION null"));
    QCOMPARE(service.getFieldCode(0).constData(), sent.constData()); // the addresses
}

void tst_PluginComServer_BatchReply::readsEachCitation_data()
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
    row("plain text only", R"({"citationCluster":{"tessaron":{"plainTextFormattedCitation":"p"}}})",
        "", "", "p", R"({"tessaron":{"plainTextFormattedCitation":"p"}})");
    row("numbers and booleans",
        R"({"formattedText":1,"citationCluster":{"tessaron":)"
        R"({"previouslyFormattedCitation":true,"plainTextFormattedCitation":-2}}})",
        "true", "1", "-2",
        R"({"tessaron":{"plainTextFormattedCitation":-2,"previouslyFormattedCitation":true}})");
    row("empty entry", "{}", "", "", "", "null");
    row("entry is a string", R"("new")", "", "", "", "null");
    row("entry is a list", R"([{"formattedText":"x"}])", "", "", "", "null");
    row("text is an object", R"({"formattedText":{"a":"x"}})", "", "", "", "null");
    row("tessaron is a string", R"({"citationCluster":{"tessaron":"x"}})", "", "", "",
        R"({"tessaron":"x"})");
    row("texts at the wrong level",
        R"({"plainTextFormattedCitation":"p","tessaron":{"plainTextFormattedCitation":"p"},)"
        R"("citationCluster":{"formattedText":"f","plainTextFormattedCitation":"p"}})",
        "", "", "", R"({"formattedText":"f","plainTextFormattedCitation":"p"})");
}

void tst_PluginComServer_BatchReply::readsEachCitation()
{
    QFETCH(QByteArray, entry);
    QFETCH(QStringList, expected);
    PluginComServer service;
    QVERIFY(format(server, service, 3, batchReply({goodEntry, entry, goodEntry})));
    QCOMPARE(result(service, 0), goodResult);
    QCOMPARE(result(service, 1), expected);
    QCOMPARE(result(service, 2), goodResult);
    QCOMPARE(result(service, 3), noResult);
}

void tst_PluginComServer_BatchReply::rejectsWrongCount_data()
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
    QTest::newRow("empty batch") << 0 << 1
                                 << QByteArray("Citation count mismatch.  Submitted 0 citations "
                                               "but only received 1 formatted citations.");
}

void tst_PluginComServer_BatchReply::rejectsWrongCount()
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
    QVERIFY(!format(server, service, submitted, batchReply(entries)));

    // The results are stored nevertheless.
    for (int i = 0; i < received; ++i) {
        QCOMPARE(result(service, i), goodResult);
    }
    QCOMPARE(result(service, received), noResult);
    QCOMPARE(service.getFormattedBibliography(), QStringLiteral("bib"));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("style"));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.lastError(), QString());
}

void tst_PluginComServer_BatchReply::replacesStyleAndBibliography_data()
{
    QTest::addColumn<QByteArray>("members"); // of the reply, besides its citation
    QTest::addColumn<QString>("style");
    QTest::addColumn<QString>("bibliography");

    const auto row = [](const char* name, const char* members, const char* style,
                         const char* bibliography) {
        QTest::newRow(name) << QByteArray(members) << QString::fromUtf8(style)
                            << QString::fromUtf8(bibliography);
    };
    row("strings", R"("citationStyleUrl":"s","bibliography":"b",)", "s", "b");
    row("numbers", R"("citationStyleUrl":1,"bibliography":2,)", "1", "2");
    row("spaces", R"("citationStyleUrl":" ","bibliography":" ",)", " ", " ");
    row("no bibliography", R"("citationStyleUrl":"s",)", "s", "");
    row("bibliography is empty", R"("citationStyleUrl":"s","bibliography":"",)", "s", "");
    row("bibliography is null", R"("citationStyleUrl":"s","bibliography":null,)", "s", "");
    row("bibliography is a list", R"("citationStyleUrl":"s","bibliography":["b"],)", "s", "");
    row("neither", "", "", "");
}

void tst_PluginComServer_BatchReply::replacesStyleAndBibliography()
{
    QFETCH(QByteArray, members);
    QFETCH(QString, style);
    QFETCH(QString, bibliography);
    PluginComServer service;
    QVERIFY(format(server, service, 1, batchReply({"{}"})));
    if (bibliography.isEmpty()) {
        QTest::ignoreMessage(QtWarningMsg, "No formatted bibliography returned");
    }
    const ScriptedReply reply =
        ScriptedReply::json('{' + members + "\"citationClusters\":[" + goodEntry + "]}");
    QCOMPARE(format(server, service, 1, reply), !bibliography.isEmpty());
    QCOMPARE(service.getCitationStyleId(), style);
    QCOMPARE(service.getFormattedBibliography(), bibliography);
    QCOMPARE(result(service, 0), goodResult);
    QCOMPARE(service.lastErrorCitationIndex(), -1);
}

void tst_PluginComServer_BatchReply::clearsStyleIfReplyHasNoStyle_data()
{
    QTest::addColumn<QByteArray>("style"); // the member of the reply
    QTest::newRow("empty string") << QByteArray(R"("citationStyleUrl":"",)");
    QTest::newRow("null") << QByteArray(R"("citationStyleUrl":null,)");
    QTest::newRow("object") << QByteArray(R"("citationStyleUrl":{"url":"s"},)");
    QTest::newRow("missing") << QByteArray();
    QTest::newRow("key in another case") << QByteArray(R"("citationStyleURL":"s",)");
}

void tst_PluginComServer_BatchReply::clearsStyleIfReplyHasNoStyle()
{
    QFETCH(QByteArray, style);
    PluginComServer service;
    QVERIFY(format(server, service, 0, batchReply({})));
    QCOMPARE(service.getCitationStyleId(), QStringLiteral("style"));
    QVERIFY(format(server, service, 0,
        ScriptedReply::json('{' + style + R"("bibliography":"b","citationClusters":[]})")));
    QCOMPARE(service.getCitationStyleId(), QString());

    // The next request has an empty string, not null.
    QVERIFY(format(server, service, 0, batchReply({})));
    QVERIFY(isSameJson(server.requests().last().body,
        R"({"citationStyleUrl":"","tempDirectory":"","citationClusters":[]})"));
}

void tst_PluginComServer_BatchReply::rejectsReplyWithoutCitations_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("empty body") << QByteArray();
    QTest::newRow("empty object") << QByteArray("{}");
    QTest::newRow("clusters are null") << QByteArray(R"({"citationClusters":null})");
    QTest::newRow("clusters are an object") << R"({"citationClusters":)" + goodEntry + '}';
    QTest::newRow("clusters are a string") << QByteArray(R"({"citationClusters":"[{}]"})");
    QTest::newRow("key in another case") << R"({"CitationClusters":[)" + goodEntry + "]}";
}

void tst_PluginComServer_BatchReply::rejectsReplyWithoutCitations()
{
    QFETCH(QByteArray, reply);
    PluginComServer service;
    QVERIFY(format(server, service, 1, batchReply({goodEntry})));
    QTest::ignoreMessage(QtWarningMsg,
        "Citation count mismatch.  Submitted 1 citations but only received 0 formatted "
        "citations.");
    QVERIFY(!format(server, service, 1, ScriptedReply::json(reply)));
    QCOMPARE(result(service, 0), noResult);
    QCOMPARE(service.getFormattedBibliography(), QString());

    // An empty batch has the right count, so the bibliography is what is missing.
    QTest::ignoreMessage(QtWarningMsg, "No formatted bibliography returned");
    QVERIFY(!format(server, service, 0, ScriptedReply::json(reply)));
}

void tst_PluginComServer_BatchReply::returnsFixedTextsOutOfRange_data()
{
    QTest::addColumn<int>("index");
    QTest::newRow("one before the first") << -1;
    QTest::newRow("one after the last") << 2;
    QTest::newRow("smallest integer") << -2147483647 - 1;
    QTest::newRow("largest integer") << 2147483647;
}

void tst_PluginComServer_BatchReply::returnsFixedTextsOutOfRange()
{
    QFETCH(int, index);
    PluginComServer service;
    QCOMPARE(result(service, index), noResult);
    QVERIFY(format(server, service, 2, batchReply({goodEntry, goodEntry})));
    QCOMPARE(result(service, index), noResult);
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(result(service, 1), goodResult);
}

void tst_PluginComServer_BatchReply::ignoresRejectedIndexInSuccess()
{
    PluginComServer service;
    QVERIFY(format(server, service, 0,
        ScriptedReply::json(
            R"({"citationClusters":[],"bibliography":"b","citationIndex":2,"error":"x"})")));
    QCOMPARE(service.lastErrorCitationIndex(), -1);
    QCOMPARE(service.lastError(), QString());
}

QTEST_GUILESS_MAIN(tst_PluginComServer_BatchReply)
#include "tst_plugincomserver_batchreply.moc"

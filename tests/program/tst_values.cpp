#include "service/PluginComServer.h"
#include "tests/support/Batch.h"
#include "tests/support/Scale.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"

#include <QtTest>

namespace {

constexpr char path[] = "/formattedCitationsAndBibliography/interactive";

QStringList resultsOf(PluginComServer& service, int count)
{
    QStringList results{
        QStringLiteral("true"), service.getCitationStyleId(), service.getFormattedBibliography()};
    for (int i = 0; i < count; ++i) {
        results << service.getFieldCode(i) << service.getFormattedCitation(i)
                << service.getPreviouslyFormattedCitation(i)
                << service.getPlainTextFormattedCitation(i);
    }
    return results;
}

JsonValue read(const char* utf8, bool* ok)
{
    return readJson(QString::fromUtf8(utf8), ok);
}

} // namespace

/// Random values pass through the service unchanged: as field codes to the application, as JSON
/// from it, and as field codes out of the service.
class tst_Values : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { home.writePort(server.port()); }
    void cleanup() { QCOMPARE(server.problem(), QString()); }
    void modelDistinguishesValues_data();
    void modelDistinguishesValues();
    void modelRejectsMalformedJson_data();
    void modelRejectsMalformedJson();
    void modelReadsWhatItWrites();
    void passesValuesUnchanged();

private:
    TemporaryHome home;
    ScriptedServer server;
    Generator generator = seededGenerator();
};

void tst_Values::modelDistinguishesValues_data()
{
    QTest::addColumn<QByteArray>("one");
    QTest::addColumn<QByteArray>("other");
    QTest::addColumn<bool>("same");
    const auto row = [](const char* one, const char* other, bool same) {
        QTest::newRow((QByteArray(one) + " and " + other).constData())
            << QByteArray(one) << QByteArray(other) << same;
    };
    row("1", "1.0", false);
    row("0.0", "-0.0", false);
    row("9223372036854775807", "9223372036854775808", false);
    row("9007199254740992", "9007199254740993", false);
    row("18446744073709551615", "18446744073709551614", false);
    row("-9223372036854775808", "-9223372036854775807", false);
    row("0.1", "0.10000000000000002", false);
    row("null", "false", false);
    row("\"1\"", "1", false);
    row("[]", "{}", false);
    row("[1,2]", "[2,1]", false);
    row(R"("\ufeffa")", R"("a")", false);
    row(R"("\ud83d")", R"("?")", false);
    row(R"("\u0000")", R"("")", false);
    row(R"({"a":1})", R"({"b":1})", false);
    row(R"({"a":1,"b":2})", R"( { "b" : 2 , "\u0061" : 1 } )", true);
    row("1e2", "100.0", true);
    row(R"("\ud83d\ude00")", "\"\xf0\x9f\x98\x80\"", true);
    row(R"("\/\n\u00E9")", "\"/\\u000a\xc3\xa9\"", true);
}

void tst_Values::modelDistinguishesValues()
{
    QFETCH(QByteArray, one);
    QFETCH(QByteArray, other);
    bool ok = false;
    bool otherOk = false;
    QTEST(read(one.constData(), &ok) == read(other.constData(), &otherOk), "same");
    QVERIFY(ok && otherOk);
}

void tst_Values::modelRejectsMalformedJson_data()
{
    QTest::addColumn<QByteArray>("json");
    for (const char* const json :
        {"", " ", "{", "[1", "[1,]", "{\"a\"}", "{\"a\":1,}", "\"a", "a", "nul", "1 2", "\"\\x\"",
            "\"\\u00g0\"", "18446744073709551616", "{\"a\":1,\"a\":1}", "--1", "1.5.5"}) {
        QTest::newRow((QByteArray("<") + json + '>').constData()) << QByteArray(json);
    }
}

void tst_Values::modelRejectsMalformedJson()
{
    QFETCH(QByteArray, json);
    bool ok = true;
    read(json.constData(), &ok);
    QVERIFY(!ok);
}

void tst_Values::modelReadsWhatItWrites()
{
    for (int i = 0; i < 200; ++i) {
        const JsonValue cluster = randomCluster(&generator, 50, i % 100 == 0 ? 1000 : 1);
        for (const Encoding encoding : {Encoding::Utf16, Encoding::Utf8}) {
            bool ok = false;
            QVERIFY(readJson(writeRandomForm(cluster, &generator, encoding), &ok) == cluster);
            QVERIFY(ok);
        }
    }
}

void tst_Values::passesValuesUnchanged()
{
    const int wanted = rounds(100000, 1000000);
    PluginComServer service;
    int values = 0;
    int clusters = 0;
    while (values < wanted) {
        const Batch batch = Batch::random(&generator, 200, 60);
        server.reset();
        server.expect("POST", path, ScriptedReply::json(batch.reply(&generator)));
        service.resetCitations();
        service.setCitationStyle(batch.style);
        for (int i = 0; i < batch.fieldCodes.size(); ++i) {
            service.addCitation(batch.fieldCodes.at(i), batch.texts.at(i));
        }
        QVERIFY(service.formatCitationsAndBibliography());
        QCOMPARE(batch.requestProblem(server.requests().first().body, QString()), QString());
        QCOMPARE(batch.resultsProblem(resultsOf(service, batch.fieldCodes.size())), QString());
        values += batch.valueCount();
        clusters += batch.fieldCodes.size();
    }
    qInfo("%d values in %d clusters", values, clusters);
}

QTEST_GUILESS_MAIN(tst_Values)
#include "tst_values.moc"

#include "apiclient/PluginApiClient.h"
#include "apiclient/json/JsonUtils.h"
#include "service/FieldCode.h"
#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/Memory.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"
#include "tests/support/Texts.h"

#include <QtTest>

namespace {

constexpr int mebi = 1024 * 1024;
// Takes six bytes as JSON.
constexpr QChar controlCharacter(0x02);

} // namespace

/// Values at the size limits of Qt's containers, which abort the process beyond them.
class tst_Largest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void serializesLargestText();
    void reportsTooLargeText_data();
    void reportsTooLargeText();
    void doesNotSendTooLargeRequest();
    void sendsLargestArgumentFile();
};

void tst_Largest::init()
{
    if (availableGigabytes() < 8) {
        QSKIP("needs 8 GB of memory");
    }
}

void tst_Largest::serializesLargestText()
{
    constexpr int length = 256 * mebi;
    const QByteArray json = JsonUtils::serialize(QString(length, controlCharacter));
    QCOMPARE(json.size(), 6 * length + 2);
    QCOMPARE(json.left(8), QByteArray("\"\\u0002\\"));
    QCOMPARE(json.right(8), QByteArray("2\\u0002\""));
}

void tst_Largest::reportsTooLargeText_data()
{
    QTest::addColumn<QVariant>("value");
    const QString half(200 * mebi, controlCharacter);
    QTest::newRow("one string") << QVariant(half + half);
    QTest::newRow("key and value") << QVariant(QVariantMap{{half, half}});
}

void tst_Largest::reportsTooLargeText()
{
    QFETCH(QVariant, value);
    QVERIFY(JsonUtils::serialize(value).isNull());
    QVERIFY(JsonUtils::serializeToText(value, QStringLiteral("ADDIN CSL_CITATION ")).isNull());
    QCOMPARE(clusterToFieldCode({{QStringLiteral("citationCluster"), value}}),
        QStringLiteral("ADDIN CSL_CITATION null"));
}

void tst_Largest::doesNotSendTooLargeRequest()
{
    ScriptedServer server;
    PluginApiClient client(server.port());
    QVariantMap result{{QStringLiteral("from"), QStringLiteral("before")}};
    const QString half(200 * mebi, controlCharacter);
    QCOMPARE(client.postRequest(QStringLiteral("/citations/merge"),
                 {{QStringLiteral("a"), half}, {QStringLiteral("b"), half}}, &result),
        0);
    QCOMPARE(result, QVariantMap());
    QCOMPARE(client.lastError(), QStringLiteral("The request is larger than 2 GB"));
    QCOMPARE(server.connectionCount(), 0);
}

void tst_Largest::sendsLargestArgumentFile()
{
    constexpr int length = 256 * mebi; // units of two bytes: 512 MB
    TemporaryHome home;
    ScriptedServer server;
    home.writePort(server.port());
    server.expect("POST", "/citationStyle/choose/interactive",
        ScriptedReply::json("{\"citationStyleUrl\":\"chosen\"}"));
    const ExchangeFolder folder;
    folder.putArguments({QString(length, controlCharacter)});
    BridgeStart start;
    start.longestRunMs = 120000;
    const BridgeOutcome run = runCommand("getCitationStyleFromDialog", folder, start);
    QCOMPARE(problem(run, folder), QByteArray());
    QCOMPARE(folder.results(), utf16le(text("chosen")));
    QCOMPARE(server.problem(), QString());
    QCOMPARE(server.requests().size(), 1);
    const QByteArray& body = server.requests().at(0).body;
    QCOMPARE(body.left(30), QByteArray("{\"currentStyleUrl\":\"\\u0002\\u00"));
    QCOMPARE(body.right(10), QByteArray("02\\u0002\"}"));
    QCOMPARE(body.count("\\u0002"), length);
}

QTEST_GUILESS_MAIN(tst_Largest)
#include "tst_largest.moc"

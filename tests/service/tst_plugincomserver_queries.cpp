#include "service/PluginComServer.h"

#include "tests/service/Outcomes.h"
#include "tests/service/ServiceFixture.h"

#include <QtTest>

namespace {

/// A query whose answer is one text.
struct Query {
    const char* name;
    QString (PluginComServer::*run)();
    const char* path;
    const char* key;
    const char* failure; ///< the message as far as the status
};

const Query queries[] = {
    {"style", &PluginComServer::getDesktopCitationStyleId, "/citationStyle/selected",
        "citationStyleId", "Can't get selected citation style id - error: "},
    {"account", &PluginComServer::getUserAccount, "/userAccount", "account",
        "Unable to retrieve account - error: "},
    {"uuid", &PluginComServer::getUserUuid, "/userUuid", "uuid",
        "Unable to retrieve uuid - error: "},
};

QString failureMessage(const Query& query, int status, const QString& error)
{
    return QString::fromUtf8(query.failure) + QString::number(status)
        + QStringLiteral(". Server error '") + error + QStringLiteral("'");
}

int statusOf(const ScriptedReply& reply)
{
    return reply.bytes.split(' ').value(1).toInt();
}

} // namespace

class QueriesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void text_data();
    void text();
    void failedText_data();
    void failedText();
    void placeholdersInTheError();
    void textWithoutServer_data();
    void textWithoutServer();
    void formerErrorIsNotUsed();

    void recentStyles_data();
    void recentStyles();
    void failedRecentStyles_data();
    void failedRecentStyles();
    void recentStylesWithoutServer();
    void recentStylesIntoOneList();

private:
    ServiceFixture fixture;
};

void QueriesTest::init()
{
    fixture.server.reset();
}

void QueriesTest::cleanup()
{
    QCOMPARE(fixture.server.problem(), QString());
}

// One text

void QueriesTest::text_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("expected");
    struct Answer {
        const char* name;
        const char* reply; ///< with KEY where the query's key stands
        const char* expected;
    };
    const Answer answers[] = {
        {"text", R"({"KEY":"value"})", "value"},
        {"other scripts", R"({"KEY":"Ünï 東京"})", "Ünï 東京"},
        {"placeholders", R"({"KEY":"%1 %2"})", "%1 %2"},
        {"with other keys", R"({"a":1,"KEY":"value","z":2})", "value"},
        {"with an error", R"({"KEY":"value","error":"x"})", "value"},
        {"integer", R"({"KEY":42})", "42"},
        {"true", R"({"KEY":true})", "true"},
        {"empty text", R"({"KEY":""})", ""},
        {"null", R"({"KEY":null})", ""},
        {"object", R"({"KEY":{"KEY":"value"}})", ""},
        {"list", R"({"KEY":["value"]})", ""},
        {"missing", R"({"error":"x"})", ""},
        {"key in another case", R"({"xKEY":"value"})", ""},
        {"one level deeper", R"({"result":{"KEY":"value"}})", ""},
        {"empty object", "{}", ""},
        {"empty body", "", ""},
        {"not JSON", "value", ""},
        {"cut off", R"({"KEY":"value")", ""},
        {"array", R"([{"KEY":"value"}])", ""},
        {"scalar", R"("KEY")", ""},
    };
    for (int i = 0; i < 3; ++i) {
        for (const Answer& answer : answers) {
            QTest::addRow("%s: %s", queries[i].name, answer.name)
                << i << QByteArray(answer.reply).replace("KEY", queries[i].key)
                << QString::fromUtf8(answer.expected);
        }
    }
}

void QueriesTest::text()
{
    QFETCH(int, index);
    QFETCH(QByteArray, reply);
    QFETCH(QString, expected);
    const Query& query = queries[index];
    fixture.server.expect("GET", query.path, ScriptedReply::json(reply));
    PluginComServer service;
    QCOMPARE((service.*query.run)(), expected);
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(fixture.server.requests().size(), 1);
    QCOMPARE(fixture.server.requests().first().body, QByteArray());
    QVERIFY(!fixture.server.requests().first().headers.contains("content-type"));
}

void QueriesTest::failedText_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<Outcome>("outcome");
    for (int i = 0; i < 3; ++i) {
        const QByteArray answer = QByteArray("{\"") + queries[i].key + "\":\"value\"}";
        for (const Outcome& outcome : failures(answer)) {
            QTest::addRow("%s: %s", queries[i].name, outcome.name) << i << outcome;
        }
    }
}

void QueriesTest::failedText()
{
    QFETCH(int, index);
    QFETCH(Outcome, outcome);
    const Query& query = queries[index];
    fixture.server.expect("GET", query.path, outcome.reply);
    PluginComServer service;
    const QString result = (service.*query.run)();
    const QString error = service.lastError();
    QVERIFY2(outcome.explains(error), qPrintable(error));
    QCOMPARE(result, failureMessage(query, statusOf(outcome.reply), error));
}

void QueriesTest::placeholdersInTheError()
{
    fixture.server.expect(
        "GET", "/userAccount", ScriptedReply::json(R"({"error":"%2 %1 %3"})", 500));
    PluginComServer service;
    QCOMPARE(service.getUserAccount(),
        QStringLiteral("Unable to retrieve account - error: 500. Server error '%2 %1 %3'"));
    fixture.server.expect(
        "GET", "/citationStyle/selected", ScriptedReply::json(R"({"error":"no style"})", 404));
    QCOMPARE(service.getDesktopCitationStyleId(),
        QStringLiteral(
            "Can't get selected citation style id - error: 404. Server error 'no style'"));
    QCOMPARE(service.getCitationStyleId(), QString());
    QCOMPARE(service.lastError(), QStringLiteral("no style"));
}

void QueriesTest::textWithoutServer_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < 3; ++i) {
        QTest::newRow(queries[i].name) << i;
    }
}

void QueriesTest::textWithoutServer()
{
    QFETCH(int, index);
    fixture.useNoServer();
    PluginComServer service;
    fixture.useScriptedServer();
    const Query& query = queries[index];
    const QString result = (service.*query.run)();
    QVERIFY(isRefusal(service.lastError()));
    QCOMPARE(result, failureMessage(query, 0, service.lastError()));
}

void QueriesTest::formerErrorIsNotUsed()
{
    fixture.server.expect("GET", "/userUuid", ScriptedReply::json(R"({"error":"former"})", 500));
    fixture.server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    fixture.server.expect("GET", "/userUuid", ScriptedReply::json(R"({"error":"new"})", 404));
    PluginComServer service;
    service.getUserUuid();
    QCOMPARE(service.getUserUuid(), QStringLiteral("u"));
    QCOMPARE(service.lastError(), QStringLiteral("former"));
    QCOMPARE(service.getUserUuid(),
        QStringLiteral("Unable to retrieve uuid - error: 404. Server error 'new'"));
}

// Recent styles

void QueriesTest::recentStyles_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QStringList>("ids");
    QTest::addColumn<QStringList>("names");

    const auto row = [](const char* name, const char* reply, const char* ids, const char* names) {
        const auto list = [](const char* joined) {
            return *joined == '\0' ? QStringList()
                                   : QString::fromUtf8(joined).split(QLatin1Char('|'));
        };
        QTest::newRow(name) << QByteArray(reply) << list(ids) << list(names);
    };
    row("two styles", R"({"citationStyles":[{"url":"u2","title":"t2"},{"url":"u1","title":"t1"}]})",
        "u2|u1", "t2|t1");
    row("the same style twice",
        R"({"citationStyles":[{"url":"u","title":"t"},{"url":"u","title":"t"}]})", "u|u", "t|t");
    row("placeholders", R"({"citationStyles":[{"url":"%1","title":"%2 ü"},{"title":"%1"}]})", "%1|",
        "%2 ü|%1");
    row("other keys", R"({"x":1,"citationStyles":[{"id":"i","url":"u","title":"t"}]})", "u", "t");

    row("no title", R"({"citationStyles":[{"url":"u1","title":"t1"},{"url":"u2"}]})", "u1|u2",
        "t1|");
    row("no URL", R"({"citationStyles":[{"title":"t1"},{"url":"u2","title":"t2"}]})", "|u2",
        "t1|t2");
    row("entry of another type", R"({"citationStyles":[null,"u",3,["u"],{"url":"u","title":"t"}]})",
        "||||u", "||||t");
    row("empty entry", R"({"citationStyles":[{},{}]})", "|", "|");
    row("numbers", R"({"citationStyles":[{"url":1,"title":true}]})", "1", "true");
    row("objects", R"({"citationStyles":[{"url":{"u":1},"title":["t"]},{}]})", "|", "|");
    row("keys in another case", R"({"citationStyles":[{"URL":"u","Title":"t"},{}]})", "|", "|");
    row("no styles", R"({"citationStyles":[]})", "", "");
    row("styles null", R"({"citationStyles":null})", "", "");
    row("styles an object", R"({"citationStyles":{"url":"u","title":"t"}})", "", "");
    row("styles a text", R"({"citationStyles":"u"})", "", "");
    row("styles a number", R"({"citationStyles":2})", "", "");
    row("styles missing", R"({"styles":[{"url":"u","title":"t"}]})", "", "");
    row("empty object", "{}", "", "");
    row("empty body", "", "", "");
    row("not JSON", "<styles/>", "", "");
    row("cut off", R"({"citationStyles":[{"url":"u","title":"t"}])", "", "");
    row("array", R"([{"url":"u","title":"t"}])", "", "");
}

void QueriesTest::recentStyles()
{
    QFETCH(QByteArray, reply);
    QFETCH(QStringList, ids);
    QFETCH(QStringList, names);
    fixture.server.expect("GET", "/citationStyles/default", ScriptedReply::json(reply));
    PluginComServer service;
    QStringList styleIds{QStringLiteral("former"), QStringLiteral("former too")};
    QStringList styleNames{QStringLiteral("former")};
    QCOMPARE(service.getRecentStyles(styleIds, styleNames), ids.size());
    QCOMPARE(styleIds, ids);
    QCOMPARE(styleNames, names);
    QCOMPARE(service.lastError(), QString());
    QCOMPARE(fixture.server.requests().first().body, QByteArray());
}

void QueriesTest::failedRecentStyles_data()
{
    QTest::addColumn<Outcome>("outcome");
    for (const Outcome& outcome : failures(R"({"citationStyles":[{"url":"u","title":"t"}]})")) {
        QTest::newRow(outcome.name) << outcome;
    }
}

void QueriesTest::failedRecentStyles()
{
    QFETCH(Outcome, outcome);
    fixture.server.expect("GET", "/citationStyles/default", outcome.reply);
    PluginComServer service;
    QStringList styleIds{QStringLiteral("former")};
    QStringList styleNames{QStringLiteral("former"), QStringLiteral("former too")};
    QCOMPARE(service.getRecentStyles(styleIds, styleNames), 0);
    QCOMPARE(styleIds, QStringList());
    QCOMPARE(styleNames, QStringList());
    QVERIFY2(outcome.explains(service.lastError()), qPrintable(service.lastError()));
}

void QueriesTest::recentStylesWithoutServer()
{
    fixture.useNoServer();
    PluginComServer service;
    fixture.useScriptedServer();
    QStringList styleIds{QStringLiteral("former")};
    QStringList styleNames{QStringLiteral("former")};
    QCOMPARE(service.getRecentStyles(styleIds, styleNames), 0);
    QCOMPARE(styleIds, QStringList());
    QCOMPARE(styleNames, QStringList());
    QVERIFY(isRefusal(service.lastError()));
}

void QueriesTest::recentStylesIntoOneList()
{
    // Both lists may be the same one; then it holds id and title of each style in turn.
    fixture.server.expect("GET", "/citationStyles/default",
        ScriptedReply::json(R"({"citationStyles":[{"url":"u","title":"t"}]})"));
    PluginComServer service;
    QStringList both;
    QCOMPARE(service.getRecentStyles(both, both), 2);
    QCOMPARE(both, (QStringList{QStringLiteral("u"), QStringLiteral("t")}));
}

QTEST_GUILESS_MAIN(QueriesTest)
#include "tst_plugincomserver_queries.moc"

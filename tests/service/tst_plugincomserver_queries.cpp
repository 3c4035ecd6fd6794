#include "tests/service/ServiceTest.h"

#include <QtTest>

namespace {

/// A query that returns one text.
struct Query {
    const char* name;
    QString (PluginComServer::*run)();
    const char* path;
    const char* key;
    const char* failure; ///< the beginning of the message, up to the status
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

} // namespace

/// The queries for styles and for the account.
class tst_PluginComServer_Queries : public ServiceTest {
    Q_OBJECT

private Q_SLOTS:
    void returnsTextOfReply_data();
    void returnsTextOfReply();
    void returnsMessageOnFailure_data();
    void returnsMessageOnFailure();
    void returnsMessageWithoutApplication();
    void keepsLastErrorAfterSuccess();

    void listsRecentStyles_data();
    void listsRecentStyles();
    void listsNoStylesOnFailure_data();
    void listsNoStylesOnFailure();
    void acceptsSameListForIdsAndTitles();
};

// Queries that return one text

void tst_PluginComServer_Queries::returnsTextOfReply_data()
{
    QTest::addColumn<QByteArray>("reply"); // with KEY for the query's key
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, const char* reply, const char* expected) {
        QTest::newRow(name) << QByteArray(reply) << QString::fromUtf8(expected);
    };
    row("text", R"({"KEY":"Ünï %1 %2","error":"x"})", "Ünï %1 %2");
    row("number", R"({"KEY":42})", "42");
    row("true", R"({"KEY":true})", "true");
    row("null", R"({"KEY":null})", "");
    row("object", R"({"KEY":{"KEY":"value"}})", "");
    row("list", R"({"KEY":["value"]})", "");
    row("another key", R"({"xKEY":"value"})", "");
    row("empty body", "", "");
}

void tst_PluginComServer_Queries::returnsTextOfReply()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, expected);
    PluginComServer service;
    for (const Query& query : queries) {
        server.expect(
            "GET", query.path, ScriptedReply::json(QByteArray(reply).replace("KEY", query.key)));
        QCOMPARE((service.*query.run)(), expected);
        QCOMPARE(service.lastError(), QString());
        QCOMPARE(server.requests().last().body, QByteArray());
    }
}

void tst_PluginComServer_Queries::returnsMessageOnFailure_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("reply"); // with KEY for the query's key
    QTest::addColumn<QString>("error");
    QTest::newRow("201 with the value")
        << 201 << QByteArray(R"({"KEY":"value","error":"no"})") << QStringLiteral("no");
    QTest::newRow("404 with placeholders in the error")
        << 404 << QByteArray(R"({"error":"%2 %1 %3"})") << QStringLiteral("%2 %1 %3");
    QTest::newRow("500 with an error object")
        << 500 << QByteArray(R"({"error":{"text":"x"}})") << QString();
}

void tst_PluginComServer_Queries::returnsMessageOnFailure()
{
    QFETCH(int, status);
    QFETCH(QByteArray, reply);
    QFETCH(QString, error);
    PluginComServer service;
    for (const Query& query : queries) {
        server.expect("GET", query.path,
            ScriptedReply::json(QByteArray(reply).replace("KEY", query.key), status));
        QCOMPARE((service.*query.run)(), failureMessage(query, status, error));
        QCOMPARE(service.lastError(), error);
    }
    QCOMPARE(service.getCitationStyleId(), QString());
}

void tst_PluginComServer_Queries::returnsMessageWithoutApplication()
{
    const auto service = serviceWithoutApplication();
    for (const Query& query : queries) {
        QCOMPARE((service.get()->*query.run)(),
            failureMessage(query, 0, QStringLiteral("Connection refused")));
    }
}

void tst_PluginComServer_Queries::keepsLastErrorAfterSuccess()
{
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"error":"former"})", 500));
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u"})"));
    PluginComServer service;
    service.getUserUuid();
    QCOMPARE(service.getUserUuid(), QStringLiteral("u"));
    QCOMPARE(service.lastError(), QStringLiteral("former"));
}

// Recent styles

void tst_PluginComServer_Queries::listsRecentStyles_data()
{
    QTest::addColumn<QByteArray>("styles");
    QTest::addColumn<QStringList>("ids");
    QTest::addColumn<QStringList>("titles");

    // An empty text for an empty list; other lists are joined with "|".
    const auto row = [](const char* name, const char* styles, const char* ids, const char* titles) {
        const auto list = [](const char* joined) {
            return *joined == '\0' ? QStringList()
                                   : QString::fromUtf8(joined).split(QLatin1Char('|'));
        };
        QTest::newRow(name) << QByteArray(styles) << list(ids) << list(titles);
    };
    row("two styles in order", R"([{"url":"u2","title":"t2"},{"url":"%1","title":"%2 ü"}])",
        "u2|%1", "t2|%2 ü");
    row("same style twice", R"([{"url":"u","title":"t"},{"url":"u","title":"t"}])", "u|u", "t|t");
    row("no title", R"([{"url":"u1","title":"t1"},{"url":"u2"}])", "u1|u2", "t1|");
    row("no URL", R"([{"title":"t1"},{"url":"u2","title":"t2"}])", "|u2", "t1|t2");
    row("entries of other types", R"([null,"u",["u"],{},{"url":"u","title":"t"}])", "||||u",
        "||||t");
    row("values of other types", R"([{"url":1,"title":true},{"url":{"u":1},"title":["t"]}])", "1|",
        "true|");
    row("fractions", R"([{"url":0.1,"title":-1e300}])", "0.1", "-1e+300");
    row("empty list", "[]", "", "");
    row("object in place of the list", R"({"url":"u","title":"t"})", "", "");
    row("string in place of the list", R"("u")", "", "");
}

void tst_PluginComServer_Queries::listsRecentStyles()
{
    QFETCH(QByteArray, styles);
    QFETCH(QStringList, ids);
    QFETCH(QStringList, titles);
    server.expect("GET", "/citationStyles/default",
        ScriptedReply::json("{\"citationStyles\":" + styles + '}'));
    PluginComServer service;
    QStringList styleIds{QStringLiteral("former"), QStringLiteral("former too")};
    QStringList styleNames{QStringLiteral("former")};
    QCOMPARE(service.getRecentStyles(styleIds, styleNames), ids.size());
    QCOMPARE(styleIds, ids);
    QCOMPARE(styleNames, titles);
    QCOMPARE(service.lastError(), QString());
}

void tst_PluginComServer_Queries::listsNoStylesOnFailure_data()
{
    addFailedReplies(R"({"citationStyles":[{"url":"u","title":"t"}]})");
}

void tst_PluginComServer_Queries::listsNoStylesOnFailure()
{
    QFETCH(FailedReply, failure);
    server.expect("GET", "/citationStyles/default", failure.reply);
    PluginComServer service;
    QStringList styleIds{QStringLiteral("former")};
    QStringList styleNames{QStringLiteral("former"), QStringLiteral("former too")};
    QCOMPARE(service.getRecentStyles(styleIds, styleNames), 0);
    QCOMPARE(styleIds, QStringList());
    QCOMPARE(styleNames, QStringList());
    QCOMPARE(service.lastError(), failure.error);
}

void tst_PluginComServer_Queries::acceptsSameListForIdsAndTitles()
{
    server.expect("GET", "/citationStyles/default",
        ScriptedReply::json(R"({"citationStyles":[{"url":"u","title":"t"}]})"));
    PluginComServer service;
    QStringList both;
    QCOMPARE(service.getRecentStyles(both, both), 2);
    QCOMPARE(both, (QStringList{QStringLiteral("u"), QStringLiteral("t")}));
}

QTEST_GUILESS_MAIN(tst_PluginComServer_Queries)
#include "tst_plugincomserver_queries.moc"

#include "apiclient/PluginApiClient.h"
#include "tests/apiclient/json/Described.h"
#include "tests/support/Texts.h"

#include <QtTest>

// PluginApiClient::parseResponse: the map and the error text of a reply.
class tst_PluginApiClientParseResponse : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void returnsObject_data();
    void returnsObject();
    void setsErrorText_data();
    void setsErrorText();
    void failsForStatusOtherThan200_data();
    void failsForStatusOtherThan200();
};

void tst_PluginApiClientParseResponse::returnsObject_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QVariantMap>("expected");
    const auto row = [](const char* name, const QByteArray& body,
                         const QVariantMap& expected = {}) {
        QTest::newRow(name) << body << expected;
    };
    row("object", R"({"a":1})", {{text("a"), 1LL}});
    row("object after a byte order mark", "\xEF\xBB\xBF{\"a\":1}", {{text("a"), 1LL}});
    row("values of each kind", R"({"a":null,"b":true,"c":18446744073709551615,"d":["x",{}]})",
        {{text("a"), QVariant::fromValue(nullptr)}, {text("b"), true},
            {text("c"), 18446744073709551615ULL},
            {text("d"), QVariantList{text("x"), QVariantMap()}}});

    row("empty body", "");
    row("empty object", "{}");
    row("array of objects", R"([{"a":1}])");
    // QVariant could convert these to a map or a list.
    row("array of pairs", R"([["a",1]])");
    row("text", R"("{\"a\":1}")");
    row("null", "null");
    row("not JSON", "Not found");
    row("incomplete object", R"({"a":1)");
    row("invalid UTF-8", "{\"a\":\"\xE9\"}");
    row("200,000 brackets", "{\"a\":" + QByteArray(200000, '[') + QByteArray(200000, ']') + '}');
}

void tst_PluginApiClientParseResponse::returnsObject()
{
    QFETCH(QByteArray, body);
    QFETCH(QVariantMap, expected);
    PluginApiClient client(1);
    client.setLastError(text("former error"));
    QCOMPARE(described(client.parseResponse(200, body)), described(expected));
    QCOMPARE(client.lastError(), text("former error"));
    for (const int status : {0, 201, 404, 500}) {
        QCOMPARE(described(client.parseResponse(status, body)), described(expected));
    }
}

void tst_PluginApiClientParseResponse::setsErrorText_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("error");
    const auto row = [](const char* name, const QByteArray& body, const QString& error) {
        QTest::newRow(name) << body << error;
    };
    const auto wholeBody = [](const char* name, const char* body) {
        QTest::newRow(name) << QByteArray(body) << text(body);
    };
    row("text", R"({"error":"No such style."})", text("No such style."));
    row("among other keys", R"({"a":1,"error":"why","z":2})", text("why"));
    row("key twice", R"({"error":"first","error":"second"})", text("second"));
    row("empty text", R"({"error":""})", QString());
    row("non-ASCII text", R"({"error":"caf\u00e9 𝄞"})", text("café 𝄞"));
    row("text with U+0000", R"({"error":"a\u0000b"})", text("a") + QChar(0) + text("b"));
    row("text with U+FEFF", R"({"error":"\ufeffa"})", QChar(0xFEFF) + text("a"));
    row("text with line ends", R"({"error":"a\r\nb"})", text("a\r\nb"));
    row("number", R"({"error":42})", text("42"));
    row("negative number", R"({"error":-42})", text("-42"));
    row("zero", R"({"error":0})", text("0"));
    row("number with a fraction", R"({"error":1.5})", text("1.5"));
    row("number of 64 bits", R"({"error":18446744073709551615})", text("18446744073709551615"));
    row("true", R"({"error":true})", text("true"));
    row("false", R"({"error":false})", text("false"));
    row("null", R"({"error":null})", QString());
    row("object", R"({"error":{"message":"why"}})", QString());
    row("empty object", R"({"error":{}})", QString());
    row("array", R"({"error":["why"]})", QString());
    row("empty array", R"({"error":[]})", QString());

    wholeBody("no keys", "{}");
    wholeBody("no error key", R"({"message":"why"})");
    wholeBody("key in another case", R"({"Error":"why"})");
    wholeBody("key in an inner object", R"({"reply":{"error":"why"}})");
    wholeBody("object in an array", R"([{"error":"why"}])");
    wholeBody("array", "[1, 2]");
    wholeBody("JSON text", R"("why")");
    wholeBody("JSON number", "42");
    wholeBody("JSON null", "null");
    wholeBody("plain text", "Internal server error");
    wholeBody("plain text with line ends", "Internal\r\nerror\r\n");
    wholeBody("HTML", "<h1>502 Bad Gateway</h1>");
    wholeBody("one space", " ");
    wholeBody("non-ASCII plain text", "café 𝄞");
    wholeBody("incomplete object", R"({"error":"why)");
    wholeBody("object with an extra comma", R"({"error":"why",})");
    wholeBody("object before other text", R"({"error":"why"} and more)");
    row("invalid UTF-8", "caf\xE9!", text("caf\uFFFD!"));
    row("invalid UTF-8 in an object", "{\"error\":\"caf\xE9\"}", text("{\"error\":\"caf\uFFFD\"}"));
    row("text with U+0000, not JSON", QByteArray("a\0b", 3), text("a") + QChar(0) + text("b"));
    row("only U+0000", QByteArray(1, '\0'), QString(QChar(0)));
}

void tst_PluginApiClientParseResponse::setsErrorText()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, error);
    PluginApiClient client(1);
    for (const int status : {500, 404, 204, 0}) {
        client.setLastError(text("former error"));
        client.parseResponse(status, body);
        QCOMPARE(described(client.lastError()), described(error));
    }
}

void tst_PluginApiClientParseResponse::failsForStatusOtherThan200_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {-200, -1, 0, 100, 199, 201, 204, 206, 299, 302, 304, 400, 401, 404,
             500, 503, 599, 999, 2000, 65736}) {
        QTest::newRow(QByteArray::number(status).constData()) << status;
    }
}

void tst_PluginApiClientParseResponse::failsForStatusOtherThan200()
{
    QFETCH(int, status);
    PluginApiClient client(1);
    const QVariantMap map = client.parseResponse(status, R"({"error":"why","a":1})");
    QCOMPARE(
        described(map), described(QVariantMap{{text("error"), text("why")}, {text("a"), 1LL}}));
    QCOMPARE(client.lastError(), text("why"));
    QVERIFY(client.parseResponse(status, QByteArray()).isEmpty());
    // The transport has not made a request yet.
    QCOMPARE(client.lastError(), QString());
}

QTEST_GUILESS_MAIN(tst_PluginApiClientParseResponse)
#include "tst_pluginapiclient_parseresponse.moc"

#include "apiclient/PluginApiClient.h"
#include "tests/apiclient/Described.h"

#include <QtTest>

// PluginApiClient::parseResponse: what a reply becomes, and what its error text.
class tst_PluginApiClientParseResponse : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parseResponse_data();
    void parseResponse();
    void errorTexts_data();
    void errorTexts();
    void everyStatusBut200Fails_data();
    void everyStatusBut200Fails();
};

namespace {

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

void tst_PluginApiClientParseResponse::parseResponse_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QVariantMap>("expected");
    const auto row = [](const char* name, const QByteArray& body,
                         const QVariantMap& expected = {}) {
        QTest::newRow(name) << body << expected;
    };
    const QVariantMap one{{text("a"), 1LL}};
    row("object", R"({"a":1})", one);
    row("object between blanks", " \r\n\t{ \"a\" : 1 } \n", one);
    row("object behind a byte-order mark", "\xEF\xBB\xBF{\"a\":1}", one);
    row("error", R"({"error":"why"})", {{text("error"), text("why")}});
    row("error that is an object", R"({"error":{"code":5}})",
        {{text("error"), QVariantMap{{text("code"), 5LL}}}});
    row("every type", R"({"a":null,"b":true,"c":1,"d":1.5,"e":"x","f":[],"g":{}})",
        {{text("a"), QVariant::fromValue(nullptr)}, {text("b"), true}, {text("c"), 1LL},
            {text("d"), 1.5}, {text("e"), text("x")}, {text("f"), QVariantList()},
            {text("g"), QVariantMap()}});
    row("integer of 64 bits", R"({"a":18446744073709551615})",
        {{text("a"), 18446744073709551615ULL}});

    row("nothing", "");
    row("blanks", " \r\n");
    row("empty object", "{}");
    row("array", "[]");
    row("array of objects", R"([{"a":1}])");
    row("array of pairs", R"([["a",1]])");
    row("text", R"("{\"a\":1}")");
    row("number", "42");
    row("true", "true");
    row("null", "null");
    row("plain text", "Not found");
    row("HTML", "<html><body>{\"a\":1}</body></html>");
    row("cut off", R"({"a":1)");
    row("cut off in a text", R"({"a":"x)");
    row("a bracket too many", R"({"a":1}})");
    row("two objects", R"({"a":1}{"a":1})");
    row("single quotes", "{'a':1}");
    row("a comma too many", R"({"a":1,})");
    row("Latin-1", "{\"a\":\"\xE9\"}");
    row("UTF-16", QByteArray("{\0}\0", 4));
    row("U+0000 behind", QByteArray("{\"a\":1}\0", 8));
    row("form", "a=1&error=why");
    row("200,000 brackets", "{\"a\":" + QByteArray(200000, '[') + QByteArray(200000, ']') + '}');
    row("1025 levels", "{\"a\":" + QByteArray(1024, '[') + QByteArray(1024, ']') + '}');
}

void tst_PluginApiClientParseResponse::parseResponse()
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

void tst_PluginApiClientParseResponse::errorTexts_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("error");
    const auto row = [](const char* name, const QByteArray& body, const QString& error) {
        QTest::newRow(name) << body << error;
    };
    const auto whole = [](const char* name, const char* body) {
        QTest::newRow(name) << QByteArray(body) << text(body);
    };
    row("text", R"({"error":"No such style."})", text("No such style."));
    row("beside other keys", R"({"a":1,"error":"why","z":2})", text("why"));
    row("the last of two", R"({"error":"first","error":"second"})", text("second"));
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

    whole("empty object, no error", "{}");
    whole("object without an error", R"({"message":"why"})");
    whole("error in another case", R"({"Error":"why"})");
    whole("error further in", R"({"reply":{"error":"why"}})");
    whole("error in an array", R"([{"error":"why"}])");
    whole("array", "[1, 2]");
    whole("text of JSON", R"("why")");
    whole("number as the whole", "42");
    whole("null as the whole", "null");
    whole("plain text", "Internal server error");
    whole("plain text with line ends", "Internal\r\nerror\r\n");
    whole("HTML", "<h1>502 Bad Gateway</h1>");
    whole("one blank", " ");
    whole("UTF-8", "café 𝄞");
    whole("cut-off object", R"({"error":"why)");
    whole("object with a comma too many", R"({"error":"why",})");
    whole("object with text behind it", R"({"error":"why"} and more)");
    row("invalid UTF-8", "caf\xE9!", text("caf\uFFFD!"));
    row("invalid UTF-8 in an object", "{\"error\":\"caf\xE9\"}", text("{\"error\":\"caf\uFFFD\"}"));
    row("U+0000 within", QByteArray("a\0b", 3), text("a") + QChar(0) + text("b"));
    row("U+0000 alone", QByteArray(1, '\0'), QString(QChar(0)));
}

void tst_PluginApiClientParseResponse::errorTexts()
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

void tst_PluginApiClientParseResponse::everyStatusBut200Fails_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {-200, -1, 0, 1, 99, 100, 102, 199, 201, 202, 203, 204, 206, 226, 299,
             300, 301, 302, 304, 307, 400, 401, 403, 404, 409, 418, 429, 500, 501, 502, 503, 599,
             600, 999, 2000, 65736}) {
        QTest::newRow(QByteArray::number(status).constData()) << status;
    }
}

void tst_PluginApiClientParseResponse::everyStatusBut200Fails()
{
    QFETCH(int, status);
    PluginApiClient client(1);
    const QVariantMap map = client.parseResponse(status, R"({"error":"why","a":1})");
    QCOMPARE(
        described(map), described(QVariantMap{{text("error"), text("why")}, {text("a"), 1LL}}));
    QCOMPARE(client.lastError(), text("why"));
    QVERIFY(client.parseResponse(status, QByteArray()).isEmpty());
    // The transport has not made a request yet, so it has nothing to say.
    QCOMPARE(client.lastError(), QString());
}

QTEST_GUILESS_MAIN(tst_PluginApiClientParseResponse)
#include "tst_pluginapiclient_parseresponse.moc"

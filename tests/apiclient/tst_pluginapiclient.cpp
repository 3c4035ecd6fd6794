#include "apiclient/PluginApiClient.h"
#include "tests/apiclient/Described.h"
#include "tests/support/ScriptedServer.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QtTest>

// The envelope of the local API: maps out as JSON, replies in as maps, and the last error.
class tst_PluginApiClient : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void metaObject();
    void construction();
    void portsLowSixteenBits_data();
    void portsLowSixteenBits();
    void emptyBodyTakesTheTransportsError();
    void requestsAsReceived();
    void postedJson_data();
    void postedJson();
    void replies_data();
    void replies();
    void resultIsAlwaysOverwritten_data();
    void resultIsAlwaysOverwritten();
    void resultMayBeTheRequest();
    void noServer();
    void serverHangsUp();
    void lastErrorsLife();
    void largeDocuments();
};

namespace {

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

int portWithoutServer()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

QVariantMap formerResult()
{
    return {{text("former"), text("result")}};
}

} // namespace

void tst_PluginApiClient::metaObject()
{
    const QMetaObject& meta = PluginApiClient::staticMetaObject;
    const QMetaObject& base = QObject::staticMetaObject;
    QCOMPARE(meta.className(), "PluginApiClient");
    QCOMPARE(meta.superClass(), &base);
    QCOMPARE(meta.methodCount(), base.methodCount());
    QCOMPARE(meta.propertyCount(), base.propertyCount());
    QCOMPARE(meta.enumeratorCount(), base.enumeratorCount());
    QCOMPARE(meta.classInfoCount(), 0);
    QCOMPARE(meta.constructorCount(), 0);
    const PluginApiClient client(1);
    QCOMPARE(client.metaObject()->className(), "PluginApiClient");
}

void tst_PluginApiClient::construction()
{
    ScriptedServer server;
    const PluginApiClient alone(server.port());
    QCOMPARE(alone.lastError(), QString());
    QCOMPARE(alone.parent(), nullptr);

    QScopedPointer<QObject> parent(new QObject);
    const QPointer<PluginApiClient> child = new PluginApiClient(server.port(), parent.data());
    QCOMPARE(child->parent(), parent.data());
    parent.reset();
    QVERIFY(child.isNull());

    QCOMPARE(server.connectionCount(), 0);
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::portsLowSixteenBits_data()
{
    QTest::addColumn<int>("added");
    QTest::newRow("nothing added") << 0;
    QTest::newRow("2^16") << 65536;
    QTest::newRow("-2^16") << -65536;
    QTest::newRow("2^30") << (1 << 30);
    QTest::newRow("-2^31") << std::numeric_limits<int>::min();
}

void tst_PluginApiClient::portsLowSixteenBits()
{
    QFETCH(int, added);
    ScriptedServer server;
    server.expect("GET", "/userUuid", ScriptedReply::json("{}"));
    PluginApiClient client(server.port() + added);
    QVariantMap result;
    QCOMPARE(client.getRequest(text("/userUuid"), &result), 200);
    QCOMPARE(server.requests().first().headers.value("host"),
        "127.0.0.1:" + QByteArray::number(server.port()));
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::emptyBodyTakesTheTransportsError()
{
    ScriptedServer server;
    PluginApiClient client(server.port());
    QVariantMap result;
    server.expect("GET", "/missing", ScriptedReply::json("", 404));
    QCOMPARE(client.getRequest(text("/missing"), &result), 404);
    const QString notFound = client.lastError();
    QVERIFY2(notFound.contains(text("/missing")), qPrintable(notFound));

    // The transport's words are of its last request, whatever error came between.
    client.setLastError(text("another error"));
    client.parseResponse(500, QByteArray());
    QCOMPARE(client.lastError(), notFound);

    for (const int status : {201, 204}) {
        client.setLastError(text("another error"));
        server.expect("POST", "/a", ScriptedReply::json("", status));
        QCOMPARE(client.postRequest(text("/a"), {}, &result), status);
        QCOMPARE(result, QVariantMap());
        // What Qt's reply says when nothing went wrong.
        QCOMPARE(client.lastError(), text("Unknown error"));
    }
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::requestsAsReceived()
{
    ScriptedServer server;
    PluginApiClient client(server.port());
    server.expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u-1"})"));
    server.expect("POST", "/citation/edit/interactive", ScriptedReply::json(R"({"a":1})"));
    QVariantMap result;
    QCOMPARE(client.getRequest(text("/userUuid"), &result), 200);
    QCOMPARE(described(result), described(QVariantMap{{text("uuid"), text("u-1")}}));
    const QVariantMap body{{text("fieldCode"), text("x")}};
    QCOMPARE(client.postRequest(text("/citation/edit/interactive"), body, &result), 200);
    QCOMPARE(described(result), described(QVariantMap{{text("a"), 1LL}}));

    const ReceivedRequest& get = server.requests().at(0);
    QCOMPARE(get.body, QByteArray());
    QVERIFY(!get.headers.contains("content-type"));
    const ReceivedRequest& post = server.requests().at(1);
    QCOMPARE(post.headers.value("content-type"), QByteArray("application/json"));
    QCOMPARE(post.headers.value("content-length"), QByteArray::number(post.body.size()));
    QCOMPARE(post.json(), body);
    for (const ReceivedRequest& request : server.requests()) {
        QCOMPARE(request.headers.value("host"), "127.0.0.1:" + QByteArray::number(server.port()));
    }
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::postedJson_data()
{
    QTest::addColumn<QVariantMap>("body");
    QTest::addColumn<QByteArray>("json");
    const auto row = [](const char* name, const QVariantMap& body, const char* json) {
        QTest::newRow(name) << body << QByteArray(json);
    };
    row("empty map", {}, "{}");
    row("text", {{text("a"), text("x")}}, R"({"a":"x"})");
    row("null text", {{text("a"), QString()}}, R"({"a":""})");
    row("invalid value", {{text("a"), QVariant()}}, R"({"a":null})");
    row("numbers and booleans", {{text("a"), 1}, {text("b"), 2.5}, {text("c"), true}},
        R"({"a":1,"b":2.5,"c":true})");
    row("list of maps", {{text("a"), QVariantList{QVariantMap{{text("b"), 1}}, QVariantMap()}}},
        R"({"a":[{"b":1},{}]})");
    row("list of texts", {{text("a"), QStringList{text("x"), text("y")}}}, R"({"a":["x","y"]})");
    row("quotes, line ends, U+0000", {{text("a\""), QString(text("\r\n\\")) + QChar(0)}},
        R"({"a\"":"\r\n\\\u0000"})");
    row("other scripts", {{text("Ж"), text("中𝄞")}}, R"({"Ж":"中𝄞"})");
    row("half a surrogate pair", {{text("a"), QString(QChar(0xD83D))}}, R"({"a":"\ud83d"})");
}

void tst_PluginApiClient::postedJson()
{
    QFETCH(QVariantMap, body);
    QFETCH(QByteArray, json);
    ScriptedServer server;
    PluginApiClient client(server.port());
    server.expect("POST", "/a", ScriptedReply::json("{}"));
    QVariantMap result;
    QCOMPARE(client.postRequest(text("/a"), body, &result), 200);
    const QByteArray received = server.requests().first().body;
    QVERIFY2(QJsonDocument::fromJson(received).isObject(), received.constData());
    QCOMPARE(QJsonDocument::fromJson(received), QJsonDocument::fromJson(json));
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::replies_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QVariantMap>("result");
    QTest::addColumn<QString>("error");
    const auto row = [](const char* name, int status, const char* body, const QVariantMap& result,
                         const char* error) {
        QTest::newRow(name) << status << QByteArray(body) << result << text(error);
    };
    const QVariantMap why{{text("error"), text("why")}};
    row("200, object", 200, R"({"a":1})", {{text("a"), 1LL}}, "former error");
    row("200 with an error is a success", 200, R"({"error":"why"})", why, "former error");
    row("200, empty body", 200, "", {}, "former error");
    row("200, array", 200, R"([{"a":1}])", {}, "former error");
    row("200, text", 200, R"("text")", {}, "former error");
    row("200, not JSON", 200, "OK", {}, "former error");
    row("200, cut off", 200, R"({"a":)", {}, "former error");
    row("201, object", 201, R"({"a":1})", {{text("a"), 1LL}}, R"({"a":1})");
    row("201, error", 201, R"({"error":"why"})", why, "why");
    row("201, text", 201, "created", {}, "created");
    row("202, object with an error", 202, R"({"error":"why"})", why, "why");
    row("302, text", 302, "moved", {}, "moved");
    row("400, error", 400, R"({"error":"why"})", why, "why");
    row("401, error", 401, R"({"error":"why"})", why, "why");
    row("403, HTML", 403, "<h1>no</h1>", {}, "<h1>no</h1>");
    row("404, error", 404, R"({"error":"why"})", why, "why");
    row("404, text", 404, "Not found", {}, "Not found");
    row("409, empty error", 409, R"({"error":""})", {{text("error"), text("")}}, "");
    row("500, number", 500, R"({"error":42})", {{text("error"), 42LL}}, "42");
    row("500, error that is an object", 500, R"({"error":{"code":5}})",
        {{text("error"), QVariantMap{{text("code"), 5LL}}}}, "");
    row("500, no error", 500, R"({"message":"why"})", {{text("message"), text("why")}},
        R"({"message":"why"})");
    row("503, array", 503, "[1]", {}, "[1]");
}

void tst_PluginApiClient::replies()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QVariantMap, result);
    QFETCH(QString, error);
    ScriptedServer server;
    PluginApiClient client(server.port());
    server.expect("GET", "/a", ScriptedReply::json(body, status));
    server.expect("POST", "/a", ScriptedReply::json(body, status));

    client.setLastError(text("former error"));
    QVariantMap received = formerResult();
    QCOMPARE(client.getRequest(text("/a"), &received), status);
    QCOMPARE(described(received), described(result));
    QCOMPARE(client.lastError(), error);

    client.setLastError(text("former error"));
    received = formerResult();
    QCOMPARE(client.postRequest(text("/a"), formerResult(), &received), status);
    QCOMPARE(described(received), described(result));
    QCOMPARE(client.lastError(), error);
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::resultIsAlwaysOverwritten_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("200 without a body") << ScriptedReply::json("").bytes;
    QTest::newRow("200, empty object") << ScriptedReply::json("{}").bytes;
    QTest::newRow("200, array") << ScriptedReply::json("[]").bytes;
    QTest::newRow("200, rubbish") << ScriptedReply::json("\xFF").bytes;
    QTest::newRow("200, nested too deeply")
        << ScriptedReply::json(QByteArray(200000, '[') + QByteArray(200000, ']')).bytes;
    QTest::newRow("201 without a body") << ScriptedReply::json("", 201).bytes;
    QTest::newRow("204") << QByteArray("HTTP/1.1 204 No Content\r\n\r\n");
    QTest::newRow("404, text") << ScriptedReply::json("Not found", 404).bytes;
    QTest::newRow("500 without a body") << ScriptedReply::json("", 500).bytes;
    QTest::newRow("cut body") << QByteArray(
        "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"a\":1,\"b\":");
    QTest::newRow("no HTTP") << QByteArray("{\"a\":1}");
    QTest::newRow("nothing") << QByteArray();
}

void tst_PluginApiClient::resultIsAlwaysOverwritten()
{
    QFETCH(QByteArray, reply);
    ScriptedServer server;
    PluginApiClient client(server.port());
    server.expect("POST", "/a", {reply, ScriptedReply::Close});
    QVariantMap result = formerResult();
    client.postRequest(text("/a"), formerResult(), &result);
    QCOMPARE(result, QVariantMap());
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::resultMayBeTheRequest()
{
    ScriptedServer server;
    PluginApiClient client(server.port());
    server.expect("POST", "/a", ScriptedReply::json(R"({"b":2})"));
    QVariantMap map{{text("a"), 1}};
    QCOMPARE(client.postRequest(text("/a"), map, &map), 200);
    QCOMPARE(server.requests().first().json(), (QVariantMap{{text("a"), 1}}));
    QCOMPARE(described(map), described(QVariantMap{{text("b"), 2LL}}));
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::noServer()
{
    PluginApiClient client(portWithoutServer());
    QVariantMap result = formerResult();
    QCOMPARE(client.getRequest(text("/userUuid"), &result), 0);
    QCOMPARE(result, QVariantMap());
    QCOMPARE(client.lastError(), text("Connection refused"));

    client.setLastError(QString());
    result = formerResult();
    QCOMPARE(client.postRequest(text("/a"), formerResult(), &result), 0);
    QCOMPARE(result, QVariantMap());
    QCOMPARE(client.lastError(), text("Connection refused"));
}

void tst_PluginApiClient::serverHangsUp()
{
    ScriptedServer server;
    PluginApiClient client(server.port());
    for (const auto ending : {ScriptedReply::Close, ScriptedReply::Reset}) {
        server.expect("POST", "/a/interactive", {QByteArray(), ending});
        QVariantMap result = formerResult();
        client.setLastError(QString());
        QCOMPARE(client.postRequest(text("/a/interactive"), formerResult(), &result), 0);
        QCOMPARE(result, QVariantMap());
        QVERIFY(!client.lastError().isEmpty());
    }
    // One dialog each.
    QCOMPARE(server.requests().size(), 2);
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::lastErrorsLife()
{
    ScriptedServer server;
    PluginApiClient client(server.port());
    const auto ask = [&](const QByteArray& body, int status) {
        QVariantMap result;
        server.expect("GET", "/a", ScriptedReply::json(body, status));
        client.getRequest(text("/a"), &result);
        return client.lastError();
    };
    QCOMPARE(client.lastError(), QString());
    QCOMPARE(ask("{}", 200), QString());
    QCOMPARE(ask(R"({"error":"first"})", 500), text("first"));
    QCOMPARE(ask("{}", 200), text("first"));
    QCOMPARE(ask(R"({"error":"in a success"})", 200), text("first"));
    QCOMPARE(ask("second", 404), text("second"));
    QCOMPARE(ask(R"({"error":{}})", 500), QString());
    client.setLastError(text("third"));
    QCOMPARE(client.lastError(), text("third"));
    QCOMPARE(ask("{}", 200), text("third"));
    client.setLastError(QString());
    QCOMPARE(client.lastError(), QString());

    // What was handed out is a copy.
    client.setLastError(text("fourth"));
    const QString copy = client.lastError();
    client.setLastError(text("fifth"));
    QCOMPARE(copy, text("fourth"));
    QCOMPARE(server.problem(), QString());
}

void tst_PluginApiClient::largeDocuments()
{
    const QString citation = text("Ж \"quoted\" ").repeated(100);
    QVariantList citations;
    QByteArray expected = "[";
    const QByteArray quoted = "\"" + text("Ж \\\"quoted\\\" ").repeated(100).toUtf8() + "\"";
    for (int i = 0; i < 10000; ++i) {
        citations << citation;
        expected += (i > 0 ? "," : "") + quoted;
    }
    expected = "{\"citations\":" + expected + "]}";

    ScriptedServer server;
    PluginApiClient client(server.port());
    server.expect("POST", "/a", ScriptedReply::json(expected));
    const QVariantMap body{{text("citations"), citations}};
    QVariantMap result;
    QCOMPARE(client.postRequest(text("/a"), body, &result), 200);
    // Compared as conditions: the documents are too long to print.
    QVERIFY(server.requests().first().body == expected);
    QVERIFY(result == body);
    QCOMPARE(server.problem(), QString());
}

QTEST_GUILESS_MAIN(tst_PluginApiClient)
#include "tst_pluginapiclient.moc"

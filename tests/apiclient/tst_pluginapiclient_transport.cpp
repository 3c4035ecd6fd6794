#include "apiclient/PluginApiClient.h"
#include "tests/apiclient/json/Described.h"
#include "tests/support/Memory.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <limits>

namespace {

/// What a FakeTransport returns, and the calls that it received.
struct Exchange {
    NetworkResponse response;
    bool acceptsHost = true;
    QStringList calls;
};

class FakeTransport : public NetworkClient {
public:
    explicit FakeTransport(Exchange* state)
        : exchange(state)
    {
    }

    ~FakeTransport() override { exchange->calls << QStringLiteral("deleted"); }

    bool connect(const QString& host, quint16 port) override
    {
        exchange->calls << QStringLiteral("connect %1 %2").arg(host).arg(port);
        return exchange->acceptsHost;
    }

    void disconnect() override { exchange->calls << QStringLiteral("disconnect"); }

    void setSendReceiveTimeout(int timeoutMs) override
    {
        exchange->calls << QStringLiteral("timeout %1").arg(timeoutMs);
    }

    NetworkResponse get(const QString& path) override
    {
        exchange->calls << QStringLiteral("get ") + path;
        return exchange->response;
    }

    NetworkResponse post(const QString& path, const QByteArray& body) override
    {
        exchange->calls << QStringLiteral("post ") + path + QLatin1Char(' ')
                + QString::fromUtf8(body);
        return exchange->response;
    }

    QString lastError() const override { return QStringLiteral("the transport's error"); }

private:
    Exchange* const exchange;
};

QVariantMap formerResult()
{
    return {{text("former"), text("result")}};
}

} // namespace

// PluginApiClient with a fake transport: it sends maps as JSON, returns replies as maps, and keeps
// the last error.
class tst_PluginApiClientTransport : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void callsItsTransportInOrder();
    void takesLowSixteenBitsOfPort_data();
    void takesLowSixteenBitsOfPort();
    void sendsMapAsJson_data();
    void sendsMapAsJson();
    void returnsReply_data();
    void returnsReply();
    void revivesElementsOfReply();
    void acceptsSameMapForRequestAndResult();
    void keepsLastErrorUntilNextFailure();
    void doesNotSendTooLargeRequest();

private:
    Exchange exchange;
    QScopedPointer<PluginApiClient> client;
};

void tst_PluginApiClientTransport::init()
{
    exchange = {};
    client.reset(new PluginApiClient(50002, std::make_unique<FakeTransport>(&exchange)));
    exchange.calls.clear();
    client->setLastError(text("former error"));
}

void tst_PluginApiClientTransport::callsItsTransportInOrder()
{
    Exchange refusing;
    refusing.acceptsHost = false;
    QTest::ignoreMessage(QtWarningMsg, R"(unable to connect to "127.0.0.1" using wininet)");
    {
        PluginApiClient refused(50002, std::make_unique<FakeTransport>(&refusing));
        QCOMPARE(refused.lastError(), QString());
        QVariantMap reply;
        QCOMPARE(refused.getRequest(text("/a"), &reply), 0);
        QCOMPARE(refused.postRequest(text("/b"), {}, &reply), 0);
    }
    const QStringList expected{text("timeout 1800000"), text("connect 127.0.0.1 50002"),
        text("get /a"), text("post /b {}"), text("deleted")};
    QCOMPARE(refusing.calls, expected);
}

void tst_PluginApiClientTransport::takesLowSixteenBitsOfPort_data()
{
    QTest::addColumn<int>("added");
    QTest::newRow("2^16") << 65536;
    QTest::newRow("-2^16") << -65536;
    QTest::newRow("-2^31") << std::numeric_limits<int>::min();
}

void tst_PluginApiClientTransport::takesLowSixteenBitsOfPort()
{
    QFETCH(int, added);
    const PluginApiClient other(50002 + added, std::make_unique<FakeTransport>(&exchange));
    QCOMPARE(exchange.calls.last(), text("connect 127.0.0.1 50002"));
}

void tst_PluginApiClientTransport::sendsMapAsJson_data()
{
    QTest::addColumn<QVariantMap>("body");
    QTest::addColumn<QString>("json");
    QTest::newRow("empty map") << QVariantMap() << text("{}");
    QTest::newRow("values of each kind") << QVariantMap{{text("a"), 1}, {text("b"), 2.5},
        {text("c"), QVariant()}, {text("d"), QVariantList{QVariantMap{{text("Ж"), text("中𝄞\n")}}}}}
                                         << text(R"({"a":1,"b":2.5,"c":null,"d":[{"Ж":"中𝄞\n"}]})");
    QTest::newRow("unpaired surrogate")
        << QVariantMap{{text("a"), QString(QChar(0xD83D))}} << text(R"({"a":"\ud83d"})");
}

void tst_PluginApiClientTransport::sendsMapAsJson()
{
    QFETCH(QVariantMap, body);
    QFETCH(QString, json);
    QVariantMap result;
    client->postRequest(text("/a"), body, &result);
    QCOMPARE(exchange.calls, QStringList(text("post /a ") + json));
}

void tst_PluginApiClientTransport::returnsReply_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QVariantMap>("result");
    QTest::addColumn<QString>("error");
    const auto row = [](const char* name, int status, const char* body, const QVariantMap& result,
                         const char* error) {
        QTest::newRow(name) << status << QByteArray(body) << result << text(error);
    };
    row("200, object", 200, R"({"a":1})", {{text("a"), 1LL}}, "former error");
    row("200, object with an error", 200, R"({"error":"why"})", {{text("error"), text("why")}},
        "former error");
    row("200, array", 200, "[1]", {}, "former error");
    row("200, malformed JSON", 200, R"({"a":)", {}, "former error");
    row("200, empty", 200, "", {}, "former error");
    row("201, object", 201, R"({"a":1})", {{text("a"), 1LL}}, R"({"a":1})");
    row("201, empty", 201, "", {}, "the transport's error");
    row("404, error", 404, R"({"error":"why"})", {{text("error"), text("why")}}, "why");
    row("404, text", 404, "Not found", {}, "Not found");
    row("404, empty", 404, "", {}, "the transport's error");
    row("no reply", 0, "", {}, "the transport's error");
}

void tst_PluginApiClientTransport::returnsReply()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QVariantMap, result);
    QFETCH(QString, error);
    exchange.response = {status, body};

    QVariantMap received = formerResult();
    QCOMPARE(client->getRequest(text("/a"), &received), status);
    QCOMPARE(described(received), described(result));
    QCOMPARE(client->lastError(), error);

    client->setLastError(text("former error"));
    received = formerResult();
    QCOMPARE(client->postRequest(text("/a"), {}, &received), status);
    QCOMPARE(described(received), described(result));
    QCOMPARE(client->lastError(), error);
}

void tst_PluginApiClientTransport::revivesElementsOfReply()
{
    const auto revive = [](const QVariant& element) { return element.toInt() + 10; };
    const QVariantMap expected{{text("a"), QVariantList{11, 12}}};
    for (int status : {200, 500}) {
        exchange.response = {status, R"({"a":[1,2]})"};
        QVariantMap result;
        QCOMPARE(client->postRequest(text("/a"), {}, &result, {text("a"), revive}), status);
        QCOMPARE(described(result), described(expected));
    }
}

void tst_PluginApiClientTransport::acceptsSameMapForRequestAndResult()
{
    exchange.response = {200, R"({"b":2})"};
    QVariantMap map{{text("a"), 1}};
    QCOMPARE(client->postRequest(text("/a"), map, &map), 200);
    QCOMPARE(exchange.calls, QStringList(text(R"(post /a {"a":1})")));
    QCOMPARE(described(map), described(QVariantMap{{text("b"), 2LL}}));
}

void tst_PluginApiClientTransport::keepsLastErrorUntilNextFailure()
{
    const auto errorAfter = [this](int status, const QByteArray& body) {
        exchange.response = {status, body};
        QVariantMap result;
        client->getRequest(text("/a"), &result);
        return client->lastError();
    };
    QCOMPARE(errorAfter(500, R"({"error":"first"})"), text("first"));
    QCOMPARE(errorAfter(200, R"({"error":"of a success"})"), text("first"));
    QCOMPARE(errorAfter(404, "second"), text("second"));
    QCOMPARE(errorAfter(500, R"({"error":{}})"), QString());
    client->setLastError(text("third"));
    QCOMPARE(errorAfter(200, "{}"), text("third"));
}

void tst_PluginApiClientTransport::doesNotSendTooLargeRequest()
{
    if (availableGigabytes() < 4) {
        QSKIP("Needs 4 GB of memory.");
    }
    // Each control character takes six bytes as JSON. The elements share the text's memory.
    const QString million(1000 * 1000, QChar(0x02));
    const QStringList texts = QVector<QString>(400, million).toList();
    QVariantMap result = formerResult();
    QCOMPARE(client->postRequest(text("/a"), {{text("a"), texts}}, &result), 0);
    QCOMPARE(result, QVariantMap());
    QCOMPARE(client->lastError(), text("The request is larger than 2 GB"));
    QCOMPARE(exchange.calls, QStringList());
}

QTEST_GUILESS_MAIN(tst_PluginApiClientTransport)
#include "tst_pluginapiclient_transport.moc"

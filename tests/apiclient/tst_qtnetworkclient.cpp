#include "apiclient/QtNetworkClient.h"
#include "tests/apiclient/NetworkFixture.h"

#include <QDir>
#include <QLibraryInfo>
#include <QNetworkProxyFactory>
#include <QTimer>
#include <QtTest>

#include <limits>
#include <type_traits>

// The transport and its requests, as the server receives them.
class tst_QtNetworkClient : public QObject, private NetworkFixture {
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { QCOMPARE(tearDown(), QString()); }

    void interface();
    void unconnected();
    void connectAndDisconnect();
    void plugInsAreNotLoaded();
    void getAsReceived();
    void postAsReceived_data();
    void postAsReceived();
    void emptyPostIsAGet();
    void paths_data();
    void paths();
    void proxiesAreNotAsked_data();
    void proxiesAreNotAsked();
    void noTimeout_data();
    void noTimeout();
    void eventsGoOnWhileWaiting();
    void lastErrorOfEachRequest();
    void manyRequests();
    void largeBodies();
};

namespace {

/// A proxy factory that is never asked.
class CountingProxyFactory : public QNetworkProxyFactory {
public:
    explicit CountingProxyFactory(int* queryCount)
        : count(queryCount)
    {
    }

    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery&) override
    {
        ++*count;
        return {QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), 9)};
    }

private:
    int* count;
};

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

void tst_QtNetworkClient::interface()
{
    static_assert(std::is_abstract_v<NetworkClient>);
    static_assert(std::has_virtual_destructor_v<NetworkClient>);
    static_assert(std::is_base_of_v<NetworkClient, QtNetworkClient>);
    static_assert(!std::is_base_of_v<QObject, QtNetworkClient>);

    const NetworkResponse nothing;
    QCOMPARE(nothing.status, 0);
    QCOMPARE(nothing.body, QByteArray());
    const NetworkResponse inOrder{404, "body"};
    QCOMPARE(inOrder.status, 404);
    QCOMPARE(inOrder.body, QByteArray("body"));
}

void tst_QtNetworkClient::unconnected()
{
    QtNetworkClient fresh;
    QCOMPARE(fresh.lastError(), QString());
    const NetworkResponse response = fresh.get(text("/a"));
    QCOMPARE(response.status, 0);
    QCOMPARE(response.body, QByteArray());
    QVERIFY(!fresh.lastError().isEmpty());
    QCOMPARE(fresh.post(text("/a"), "{}").status, 0);
    QVERIFY(!fresh.lastError().isEmpty());
}

void tst_QtNetworkClient::connectAndDisconnect()
{
    QVERIFY(client->connect(QString(), 0));
    QVERIFY(client->connect(QString(), server->port()));
    QVERIFY(client->connect(text("no such host"), 1));
    QVERIFY(client->connect(text("127.0.0.1"), portWithoutServer()));
    QVERIFY(client->connect(text("127.0.0.1"), server->port()));
    QCOMPARE(server->connectionCount(), 0);

    client->disconnect();
    QCOMPARE(client->get(text("/a")).status, 0);
    QVERIFY(!client->lastError().isEmpty());
    client->disconnect();
    QCOMPARE(server->connectionCount(), 0);

    QVERIFY(client->connect(text("127.0.0.1"), server->port()));
    server->expect("GET", "/a", ScriptedReply::json("{}"));
    QCOMPARE(client->get(text("/a")).status, 200);
}

void tst_QtNetworkClient::plugInsAreNotLoaded()
{
    server->expect("GET", "/a", ScriptedReply::json("{}"));
    QCOMPARE(client->get(text("/a")).status, 200);
    QCOMPARE(QCoreApplication::libraryPaths(), QStringList());
    QVERIFY(!bus->hasVisitor());
    const QString plugIns = QLibraryInfo::location(QLibraryInfo::PluginsPath) + text("/bearer");
    if (QDir(plugIns).entryList(QDir::Files).isEmpty()) {
        QSKIP("Qt has no connection-management plug-ins here that could be loaded.");
    }
    QFile maps(text("/proc/self/maps"));
    if (maps.open(QIODevice::ReadOnly)) {
        QVERIFY(!maps.readAll().contains("/bearer/"));
    }
}

void tst_QtNetworkClient::getAsReceived()
{
    server->expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u-1"})"));
    const NetworkResponse response = client->get(text("/userUuid"));
    QCOMPARE(response.status, 200);
    QCOMPARE(response.body, QByteArray(R"({"uuid":"u-1"})"));
    QCOMPARE(server->requests().size(), 1);
    const ReceivedRequest& request = server->requests().first();
    QCOMPARE(request.headers.value("host"), "127.0.0.1:" + QByteArray::number(server->port()));
    QVERIFY(!request.headers.contains("content-type"));
    QVERIFY(!request.headers.contains("content-length"));
    QVERIFY(!request.headers.contains("authorization"));
    QVERIFY(!request.headers.contains("cookie"));
    QCOMPARE(request.body, QByteArray());
}

void tst_QtNetworkClient::postAsReceived_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("object") << QByteArray(R"({"a":1})");
    QTest::newRow("one byte") << QByteArray("x");
    QTest::newRow("U+0000 alone") << QByteArray(1, '\0');
    QTest::newRow("every byte") << pattern(4096);
    QTest::newRow("line ends") << QByteArray("\r\n\r\nPOST / HTTP/1.1\r\n\r\n");
    QTest::newRow("UTF-8") << QByteArray("{\"\xF0\x9D\x84\x9E\":\"\xC3\xA9\"}");
    QTest::newRow("16 KB") << pattern(16384);
    QTest::newRow("16 KB and a byte") << pattern(16385);
    QTest::newRow("100 KB") << pattern(100000);
}

void tst_QtNetworkClient::postAsReceived()
{
    QFETCH(QByteArray, body);
    server->expect("POST", "/citation/edit/interactive", ScriptedReply::json("{}"));
    const NetworkResponse response = client->post(text("/citation/edit/interactive"), body);
    QCOMPARE(response.status, 200);
    QCOMPARE(server->requests().size(), 1);
    const ReceivedRequest& request = server->requests().first();
    QCOMPARE(request.headers.value("host"), "127.0.0.1:" + QByteArray::number(server->port()));
    QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
    QCOMPARE(request.headers.value("content-length"), QByteArray::number(body.size()));
    QVERIFY(!request.headers.contains("transfer-encoding"));
    QVERIFY(!request.headers.contains("expect"));
    QVERIFY(request.body == body);
}

void tst_QtNetworkClient::emptyPostIsAGet()
{
    server->expect("GET", "/a", ScriptedReply::json("{}"));
    server->expect("GET", "/a", ScriptedReply::json("{}", 404));
    QCOMPARE(client->post(text("/a"), QByteArray()).status, 200);
    QCOMPARE(client->post(text("/a"), QByteArray("")).status, 404);
    for (const ReceivedRequest& request : server->requests()) {
        QVERIFY(!request.headers.contains("content-type"));
        QCOMPARE(request.body, QByteArray());
    }
}

void tst_QtNetworkClient::paths_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("received");
    const auto row = [](const char* name, const char* path, const char* received) {
        QTest::newRow(name) << text(path) << QByteArray(received);
    };
    row("root", "/", "/");
    row("one word", "/userUuid", "/userUuid");
    row("several words", "/citationStyle/choose/interactive", "/citationStyle/choose/interactive");
    row("blank", "/a b", "/a%20b");
    row("question mark is no query", "/a?b=c", "/a%3Fb=c");
    row("number sign is no fragment", "/a#b", "/a%23b");
    row("percent sign is no escape", "/a%2Fb", "/a%252Fb");
    row("non-ASCII", "/\u00E9\U0001D11E", "/%C3%A9%F0%9D%84%9E");
    row("line end adds no header", "/a\r\nX-Header: b", "/a%0D%0AX-Header:%20b");
    row("colon and at sign", "/a:1@b", "/a:1@b");
}

void tst_QtNetworkClient::paths()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, received);
    server->expect("GET", received, ScriptedReply::json("{}"));
    server->expect("POST", received, ScriptedReply::json("{}"));
    QCOMPARE(client->get(path).status, 200);
    QCOMPARE(client->post(path, "{}").status, 200);
    QVERIFY(!server->requests().first().headers.contains("x-header"));
}

void tst_QtNetworkClient::proxiesAreNotAsked_data()
{
    QTest::addColumn<QString>("host");
    QTest::newRow("loopback") << text("127.0.0.1");
    // Qt itself passes over the application's proxies for 127.0.0.1; this address reaches the
    // same server and is not one that it recognises.
    QTest::newRow("another name for this machine") << text("0.0.0.0");
}

void tst_QtNetworkClient::proxiesAreNotAsked()
{
    QFETCH(QString, host);
    const char* const variables[] = {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"};
    ScriptedServer proxy;
    int queries = 0;
    for (const char* variable : variables) {
        qputenv(variable, "http://127.0.0.1:" + QByteArray::number(proxy.port()));
    }
    const auto ask = [&] {
        server->expect("GET", "/a", ScriptedReply::json("{}"));
        server->expect("POST", "/a", ScriptedReply::json("{}"));
        QtNetworkClient fresh;
        fresh.connect(host, server->port());
        return fresh.get(text("/a")).status + fresh.post(text("/a"), "{}").status;
    };
    const int withVariables = ask();
    QNetworkProxyFactory::setUseSystemConfiguration(true);
    const int withSystemProxies = ask();
    QNetworkProxyFactory::setApplicationProxyFactory(new CountingProxyFactory(&queries));
    const int withFactory = ask();
    QNetworkProxy::setApplicationProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, text("127.0.0.1"), proxy.port()));
    const int withProxy = ask();

    QNetworkProxy::setApplicationProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    for (const char* variable : variables) {
        qunsetenv(variable);
    }
    QCOMPARE(withVariables, 400);
    QCOMPARE(withSystemProxies, 400);
    QCOMPARE(withFactory, 400);
    QCOMPARE(withProxy, 400);
    QCOMPARE(queries, 0);
    QCOMPARE(proxy.connectionCount(), 0);
}

void tst_QtNetworkClient::noTimeout_data()
{
    QTest::addColumn<int>("timeoutMs");
    for (const int timeoutMs :
        {1, 0, -1, 1800000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        QTest::newRow(QByteArray::number(timeoutMs).constData()) << timeoutMs;
    }
}

void tst_QtNetworkClient::noTimeout()
{
    QFETCH(int, timeoutMs);
    QTcpServer slow;
    QVERIFY(slow.listen(QHostAddress::LocalHost));
    connect(&slow, &QTcpServer::newConnection, &slow, [&slow] {
        QTcpSocket* const socket = slow.nextPendingConnection();
        QTimer::singleShot(
            100, socket, [socket] { socket->write(ScriptedReply::json("{}").bytes); });
    });
    client->connect(text("127.0.0.1"), slow.serverPort());
    client->setSendReceiveTimeout(timeoutMs);
    const NetworkResponse response = client->post(text("/a/interactive"), "{}");
    QCOMPARE(response.status, 200);
    QCOMPARE(response.body, QByteArray("{}"));
}

void tst_QtNetworkClient::eventsGoOnWhileWaiting()
{
    server->expect("GET", "/a", ScriptedReply::json("{}"));
    bool delivered = false;
    QMetaObject::invokeMethod(
        this, [&delivered] { delivered = true; }, Qt::QueuedConnection);
    QCOMPARE(client->get(text("/a")).status, 200);
    QVERIFY(delivered);
}

void tst_QtNetworkClient::lastErrorOfEachRequest()
{
    QCOMPARE(client->lastError(), QString());
    server->expect("GET", "/missing", ScriptedReply::json("{}", 404));
    QCOMPARE(client->get(text("/missing")).status, 404);
    const QString notFound = client->lastError();
    QVERIFY2(notFound.contains(text("/missing")), qPrintable(notFound));

    // What the reply reports for no error, and nothing of the request before.
    server->expect("GET", "/a", ScriptedReply::json("{}"));
    QCOMPARE(client->get(text("/a")).status, 200);
    QCOMPARE(client->lastError(), text("Unknown error"));

    client->connect(text("127.0.0.1"), portWithoutServer());
    QCOMPARE(client->get(text("/a")).status, 0);
    QCOMPARE(client->lastError(), text("Connection refused"));
    client->connect(text("127.0.0.1"), server->port());
    QCOMPARE(client->lastError(), text("Connection refused"));
}

void tst_QtNetworkClient::manyRequests()
{
    for (int i = 0; i < 50; ++i) {
        const QByteArray number = QByteArray::number(i);
        server->expect("POST", '/' + number, ScriptedReply::json(number));
        const NetworkResponse response = client->post(QLatin1Char('/') + QString::number(i), "{}");
        QCOMPARE(response.status, 200);
        QCOMPARE(response.body, number);
    }
    QCOMPARE(server->requests().size(), 50);
}

void tst_QtNetworkClient::largeBodies()
{
    const QByteArray sent = pattern(18000000);
    const QByteArray replied = pattern(18700000);
    server->expect("POST", "/a", ScriptedReply::json(replied));
    const NetworkResponse response = client->post(text("/a"), sent);
    QCOMPARE(response.status, 200);
    // Compared as conditions: the bodies are too long to print.
    QVERIFY(response.body == replied);
    QVERIFY(server->requests().first().body == sent);
}

QTEST_GUILESS_MAIN(tst_QtNetworkClient)
#include "tst_qtnetworkclient.moc"

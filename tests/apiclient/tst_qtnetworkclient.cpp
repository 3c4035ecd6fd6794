#include "apiclient/QtNetworkClient.h"
#include "tests/apiclient/NetworkFixture.h"
#include "tests/support/Texts.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QLoggingCategory>
#include <QNetworkProxyFactory>
#include <QTimer>
#include <QtTest>

#include <limits>

// The transport: its requests as the server receives them, and its last error.
class tst_QtNetworkClient : public QObject, private NetworkFixture {
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { QCOMPARE(tearDown(), QString()); }

    void failsBeforeConnect();
    void sendsToLastDestination();
    void loadsNoPlugins();
    void sendsGet();
    void sendsPost_data();
    void sendsPost();
    void sendsEmptyPostAsGet();
    void encodesPath_data();
    void encodesPath();
    void ignoresProxies_data();
    void ignoresProxies();
    void ignoresTimeout_data();
    void ignoresTimeout();
    void letsTwoClientsWaitAtOnce();
    void reportsErrorOfLastRequest();
    void tracesNumberAndFailureOfRequest();
    void transfersLargeBodies();
};

namespace {

/// A proxy factory that counts its queries.
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

} // namespace

void tst_QtNetworkClient::failsBeforeConnect()
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

void tst_QtNetworkClient::sendsToLastDestination()
{
    QVERIFY(client->connect(QString(), 0));
    QVERIFY(client->connect(QString(), server->port()));
    QVERIFY(client->connect(text("no such host"), 1));
    QVERIFY(client->connect(text("127.0.0.1"), closedPort.number()));
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

void tst_QtNetworkClient::loadsNoPlugins()
{
    server->expect("GET", "/a", ScriptedReply::json("{}"));
    QCOMPARE(client->get(text("/a")).status, 200);
    QCOMPARE(QCoreApplication::libraryPaths(), QStringList());
    QVERIFY(!bus->hasConnection());
    const QString plugIns = QLibraryInfo::location(QLibraryInfo::PluginsPath) + text("/bearer");
    if (QDir(plugIns).entryList(QDir::Files).isEmpty()) {
        QSKIP("This Qt has no connection-management plug-ins.");
    }
    QFile maps(text("/proc/self/maps"));
    if (maps.open(QIODevice::ReadOnly)) {
        QVERIFY(!maps.readAll().contains("/bearer/"));
    }
}

void tst_QtNetworkClient::sendsGet()
{
    server->expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u-1"})"));
    const NetworkResponse response = client->get(text("/userUuid"));
    QCOMPARE(response.status, 200);
    QCOMPARE(response.body, QByteArray(R"({"uuid":"u-1"})"));
    QCOMPARE(server->requests().size(), 1);
    const ReceivedRequest& request = server->requests().first();
    QCOMPARE(request.headers.value("host"), "127.0.0.1:" + QByteArray::number(server->port()));
    for (const char* name : {"content-type", "content-length", "authorization", "cookie"}) {
        QVERIFY2(!request.headers.contains(name), name);
    }
    QCOMPARE(request.body, QByteArray());
}

void tst_QtNetworkClient::sendsPost_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("object") << QByteArray(R"({"a":1})");
    QTest::newRow("one byte") << QByteArray("x");
    QTest::newRow("only U+0000") << QByteArray(1, '\0');
    QTest::newRow("every byte") << pattern(4096);
    QTest::newRow("line ends") << QByteArray("\r\n\r\nPOST / HTTP/1.1\r\n\r\n");
    QTest::newRow("16 KB") << pattern(16384);
    QTest::newRow("16 KB and a byte") << pattern(16385);
    QTest::newRow("100 KB") << pattern(100000);
}

void tst_QtNetworkClient::sendsPost()
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

void tst_QtNetworkClient::sendsEmptyPostAsGet()
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

void tst_QtNetworkClient::encodesPath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("received");
    const auto row = [](const char* name, const char* path, const char* received) {
        QTest::newRow(name) << text(path) << QByteArray(received);
    };
    row("root", "/", "/");
    row("several segments", "/citationStyle/choose/interactive",
        "/citationStyle/choose/interactive");
    row("space", "/a b", "/a%20b");
    row("question mark starts no query", "/a?b=c", "/a%3Fb=c");
    row("number sign starts no fragment", "/a#b", "/a%23b");
    row("percent sign starts no escape", "/a%2Fb", "/a%252Fb");
    row("non-ASCII", "/\u00E9\U0001D11E", "/%C3%A9%F0%9D%84%9E");
    row("line end adds no header", "/a\r\nX-Header: b", "/a%0D%0AX-Header:%20b");
    row("colon and at sign", "/a:1@b", "/a:1@b");
}

void tst_QtNetworkClient::encodesPath()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, received);
    server->expect("GET", received, ScriptedReply::json("{}"));
    server->expect("POST", received, ScriptedReply::json("{}"));
    QCOMPARE(client->get(path).status, 200);
    QCOMPARE(client->post(path, "{}").status, 200);
    QVERIFY(!server->requests().first().headers.contains("x-header"));
}

void tst_QtNetworkClient::ignoresProxies_data()
{
    QTest::addColumn<QString>("host");
    QTest::newRow("loopback") << text("127.0.0.1");
    // Qt itself bypasses the application's proxies for 127.0.0.1. This address reaches the same
    // server, and Qt does not recognise it.
    QTest::newRow("another address of this machine") << text("0.0.0.0");
}

void tst_QtNetworkClient::ignoresProxies()
{
    QFETCH(QString, host);
    const char* const variables[] = {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"};
    ScriptedServer proxy;
    int queries = 0;
    for (const char* variable : variables) {
        qputenv(variable, "http://127.0.0.1:" + QByteArray::number(proxy.port()));
    }
    const auto statuses = [&]() -> QList<int> {
        server->expect("GET", "/a", ScriptedReply::json("{}"));
        server->expect("POST", "/a", ScriptedReply::json("{}"));
        QtNetworkClient fresh;
        fresh.connect(host, server->port());
        return {fresh.get(text("/a")).status, fresh.post(text("/a"), "{}").status};
    };
    const QList<int> withVariables = statuses();
    QNetworkProxyFactory::setUseSystemConfiguration(true);
    const QList<int> withSystemProxies = statuses();
    QNetworkProxyFactory::setApplicationProxyFactory(new CountingProxyFactory(&queries));
    const QList<int> withFactory = statuses();
    QNetworkProxy::setApplicationProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, text("127.0.0.1"), proxy.port()));
    const QList<int> withProxy = statuses();

    QNetworkProxy::setApplicationProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    for (const char* variable : variables) {
        qunsetenv(variable);
    }
    const QList<int> bothSucceed{200, 200};
    QCOMPARE(withVariables, bothSucceed);
    QCOMPARE(withSystemProxies, bothSucceed);
    QCOMPARE(withFactory, bothSucceed);
    QCOMPARE(withProxy, bothSucceed);
    QCOMPARE(queries, 0);
    QCOMPARE(proxy.connectionCount(), 0);
}

void tst_QtNetworkClient::ignoresTimeout_data()
{
    QTest::addColumn<int>("timeoutMs");
    for (const int timeoutMs : {1, 0, std::numeric_limits<int>::min()}) {
        QTest::newRow(QByteArray::number(timeoutMs).constData()) << timeoutMs;
    }
}

void tst_QtNetworkClient::ignoresTimeout()
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

void tst_QtNetworkClient::letsTwoClientsWaitAtOnce()
{
    server->expect("POST", "/second", ScriptedReply::json(R"({"reply":2})"));
    QTcpServer holding;
    QVERIFY(holding.listen(QHostAddress::LocalHost));
    QByteArray received;
    NetworkResponse second;
    // The first request is answered only after the second client has been made, used and deleted.
    connect(&holding, &QTcpServer::newConnection, this, [&] {
        QTcpSocket* const socket = holding.nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, this, [&, socket] {
            received += socket->readAll();
            if (!received.endsWith("{\"request\":1}")) {
                return;
            }
            {
                QtNetworkClient other;
                other.connect(text("127.0.0.1"), server->port());
                second = other.post(text("/second"), R"({"request":2})");
            }
            socket->write(ScriptedReply::json(R"({"reply":1})").bytes);
        });
    });
    client->connect(text("127.0.0.1"), holding.serverPort());
    const NetworkResponse first = client->post(text("/first"), R"({"request":1})");
    QCOMPARE(second.status, 200);
    QCOMPARE(second.body, QByteArray(R"({"reply":2})"));
    QCOMPARE(first.status, 200);
    QCOMPARE(first.body, QByteArray(R"({"reply":1})"));
    QVERIFY(received.startsWith("POST /first "));
    QCOMPARE(received.count("POST "), 1);
}

void tst_QtNetworkClient::reportsErrorOfLastRequest()
{
    QCOMPARE(client->lastError(), QString());
    server->expect("GET", "/missing", ScriptedReply::json("{}", 404));
    QCOMPARE(client->get(text("/missing")).status, 404);
    const QString notFound = client->lastError();
    QVERIFY2(notFound.contains(text("/missing")), qPrintable(notFound));

    // Qt's error text for a reply without an error.
    server->expect("GET", "/a", ScriptedReply::json("{}"));
    QCOMPARE(client->get(text("/a")).status, 200);
    QCOMPARE(client->lastError(), text("Unknown error"));

    client->connect(text("127.0.0.1"), closedPort.number());
    QCOMPARE(client->get(text("/a")).status, 0);
    QCOMPARE(client->lastError(), text("Connection refused"));
    client->connect(text("127.0.0.1"), server->port());
    QCOMPARE(client->lastError(), text("Connection refused"));
}

void tst_QtNetworkClient::tracesNumberAndFailureOfRequest()
{
    server->expect("GET", "/a", ScriptedReply::json("{}"));
    server->expect("POST", "/a", ScriptedReply::json("{}", 404));
    const QByteArray formerRules = qgetenv("QT_LOGGING_RULES");
    qputenv("QT_LOGGING_RULES", "tessaron.http.body=true");
    QLoggingCategory::setFilterRules(text("tessaron.http.body.debug=true"));
    client->get(text("/a"));
    client->post(text("/a"), "{}");
    QLoggingCategory::setFilterRules({});
    qputenv("QT_LOGGING_RULES", formerRules);

    QList<int> numbers;
    QList<bool> failures;
    for (const QString& line : messages()) {
        const QJsonObject event = QJsonDocument::fromJson(line.toUtf8()).object();
        numbers << event.value(text("exchange")).toInt();
        failures << event.contains(text("error"));
    }
    messages().clear();
    QCOMPARE(numbers, (QList<int>{1, 1, 2, 2}));
    QCOMPARE(failures, (QList<bool>{false, false, false, true}));
}

void tst_QtNetworkClient::transfersLargeBodies()
{
    const QByteArray sent = pattern(18000000);
    const QByteArray replied = pattern(18700000);
    server->expect("POST", "/a", ScriptedReply::json(replied));
    const NetworkResponse response = client->post(text("/a"), sent);
    QCOMPARE(response.status, 200);
    // QVERIFY, because the bodies are too long to print.
    QVERIFY(response.body == replied);
    QVERIFY(server->requests().first().body == sent);
}

QTEST_GUILESS_MAIN(tst_QtNetworkClient)
#include "tst_qtnetworkclient.moc"

#include "apiclient/PluginApiClient.h"
#include "tests/apiclient/json/Described.h"
#include "tests/support/ClosedPort.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Texts.h"

#include <QPointer>
#include <QtTest>

// The client of the local API with its real transport.
class tst_PluginApiClient : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { server.reset(new ScriptedServer); }
    void cleanup() { QCOMPARE(server->problem(), QString()); }

    void addsNoMetaObjectMembers();
    void sendsNoRequestWhenConstructed();
    void sendsGetAndPost();
    void reportsMissingServer();
    void reportsClosedConnection_data();
    void reportsClosedConnection();
    void takesTransportErrorOfLastRequest();

private:
    QScopedPointer<ScriptedServer> server;
};

void tst_PluginApiClient::addsNoMetaObjectMembers()
{
    const QMetaObject& meta = PluginApiClient::staticMetaObject;
    QCOMPARE(meta.className(), "PluginApiClient");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta.methodCount(), QObject::staticMetaObject.methodCount());
    QCOMPARE(meta.propertyCount(), QObject::staticMetaObject.propertyCount());
}

void tst_PluginApiClient::sendsNoRequestWhenConstructed()
{
    QScopedPointer<QObject> parent(new QObject);
    const QPointer<PluginApiClient> child = new PluginApiClient(server->port(), parent.data());
    QCOMPARE(child->parent(), parent.data());
    QCOMPARE(child->lastError(), QString());
    parent.reset();
    QVERIFY(child.isNull());
    QCOMPARE(server->connectionCount(), 0);
}

void tst_PluginApiClient::sendsGetAndPost()
{
    PluginApiClient client(server->port());
    server->expect("GET", "/userUuid", ScriptedReply::json(R"({"uuid":"u-1"})"));
    server->expect("POST", "/citation/edit/interactive", ScriptedReply::json(R"({"a":1})"));
    QVariantMap result;
    QCOMPARE(client.getRequest(text("/userUuid"), &result), 200);
    QCOMPARE(described(result), described(QVariantMap{{text("uuid"), text("u-1")}}));
    const QVariantMap body{{text("fieldCode"), text("x")}};
    QCOMPARE(client.postRequest(text("/citation/edit/interactive"), body, &result), 200);
    QCOMPARE(described(result), described(QVariantMap{{text("a"), 1LL}}));

    QCOMPARE(server->requests().at(0).body, QByteArray());
    QCOMPARE(server->requests().at(1).json(), body);
    for (const ReceivedRequest& request : server->requests()) {
        QCOMPARE(request.headers.value("host"), "127.0.0.1:" + QByteArray::number(server->port()));
    }
}

void tst_PluginApiClient::reportsMissingServer()
{
    const ClosedPort port;
    PluginApiClient client(port.number());
    QVariantMap result{{text("former"), text("result")}};
    QCOMPARE(client.getRequest(text("/userUuid"), &result), 0);
    QCOMPARE(result, QVariantMap());
    QCOMPARE(client.lastError(), text("Connection refused"));
}

void tst_PluginApiClient::reportsClosedConnection_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("ending");
    QTest::newRow("closed before the reply") << QByteArray() << int(ScriptedReply::Close);
    QTest::newRow("reset before the reply") << QByteArray() << int(ScriptedReply::Reset);
    QTest::newRow("closed after JSON without HTTP")
        << QByteArray("{\"a\":1}") << int(ScriptedReply::Close);
}

void tst_PluginApiClient::reportsClosedConnection()
{
    QFETCH(QByteArray, reply);
    QFETCH(int, ending);
    PluginApiClient client(server->port());
    server->expect("POST", "/a/interactive", {reply, ScriptedReply::Ending(ending)});
    QVariantMap result{{text("former"), text("result")}};
    QCOMPARE(client.postRequest(text("/a/interactive"), {{text("a"), 1}}, &result), 0);
    QCOMPARE(result, QVariantMap());
    QVERIFY(!client.lastError().isEmpty());
    QCOMPARE(server->requests().size(), 1);
}

void tst_PluginApiClient::takesTransportErrorOfLastRequest()
{
    PluginApiClient client(server->port());
    QVariantMap result;
    server->expect("GET", "/missing", ScriptedReply::json("", 404));
    QCOMPARE(client.getRequest(text("/missing"), &result), 404);
    const QString notFound = client.lastError();
    QVERIFY2(notFound.contains(text("/missing")), qPrintable(notFound));

    // Qt's error text for a reply without an error.
    server->expect("POST", "/a", ScriptedReply::json("", 201));
    QCOMPARE(client.postRequest(text("/a"), {}, &result), 201);
    QCOMPARE(client.lastError(), text("Unknown error"));
}

QTEST_GUILESS_MAIN(tst_PluginApiClient)
#include "tst_pluginapiclient.moc"

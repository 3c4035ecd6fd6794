// What the API client asks of its transport. This program brings a QtNetworkClient of its own,
// which takes the place of the library's: it records, and refuses every host.

#include "apiclient/PluginApiClient.h"
#include "apiclient/QtNetworkClient.h"

#include <QNetworkAccessManager>
#include <QStringList>
#include <QtTest>

namespace {

QStringList& calls()
{
    static QStringList recorded;
    return recorded;
}

} // namespace

QtNetworkClient::QtNetworkClient() = default;

QtNetworkClient::~QtNetworkClient()
{
    calls() << QStringLiteral("deleted");
}

bool QtNetworkClient::connect(const QString& newHost, quint16 newPort)
{
    calls() << QStringLiteral("connect %1 %2").arg(newHost).arg(newPort);
    return false;
}

void QtNetworkClient::disconnect()
{
    calls() << QStringLiteral("disconnect");
}

void QtNetworkClient::setSendReceiveTimeout(int timeoutMs)
{
    calls() << QStringLiteral("timeout %1").arg(timeoutMs);
}

NetworkResponse QtNetworkClient::get(const QString& path)
{
    calls() << QStringLiteral("get ") + path;
    return {};
}

NetworkResponse QtNetworkClient::post(const QString& path, const QByteArray& body)
{
    calls() << QStringLiteral("post ") + path + QLatin1Char(' ') + QString::fromUtf8(body);
    return {};
}

QString QtNetworkClient::lastError() const
{
    return QStringLiteral("the transport's words");
}

class tst_PluginApiClientTransport : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void asksInThisOrder();
};

void tst_PluginApiClientTransport::asksInThisOrder()
{
    QTest::ignoreMessage(QtWarningMsg, R"(unable to connect to "127.0.0.1" using wininet)");
    {
        PluginApiClient client(0x10000 + 50002);
        QVariantMap reply;
        QCOMPARE(client.getRequest(QStringLiteral("/a"), &reply), 0);
        QCOMPARE(client.lastError(), QStringLiteral("the transport's words"));
        QCOMPARE(client.postRequest(QStringLiteral("/b"), {}, &reply), 0);
    }
    const QStringList expected{QStringLiteral("timeout 1800000"),
        QStringLiteral("connect 127.0.0.1 50002"), QStringLiteral("get /a"),
        QStringLiteral("post /b {}"), QStringLiteral("deleted")};
    QCOMPARE(calls(), expected);
}

QTEST_GUILESS_MAIN(tst_PluginApiClientTransport)
#include "tst_pluginapiclient_transport.moc"

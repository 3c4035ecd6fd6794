#include "apiclient/PluginApiClient.h"

#include <QStringList>
#include <QtTest>

namespace {

/// Records every call, refuses every host and answers with status 0.
class RefusingTransport : public NetworkClient {
public:
    explicit RefusingTransport(QStringList* record)
        : calls(record)
    {
    }

    ~RefusingTransport() override { *calls << QStringLiteral("deleted"); }

    bool connect(const QString& host, quint16 port) override
    {
        *calls << QStringLiteral("connect %1 %2").arg(host).arg(port);
        return false;
    }

    void disconnect() override { *calls << QStringLiteral("disconnect"); }

    void setSendReceiveTimeout(int timeoutMs) override
    {
        *calls << QStringLiteral("timeout %1").arg(timeoutMs);
    }

    NetworkResponse get(const QString& path) override
    {
        *calls << QStringLiteral("get ") + path;
        return {};
    }

    NetworkResponse post(const QString& path, const QByteArray& body) override
    {
        *calls << QStringLiteral("post ") + path + QLatin1Char(' ') + QString::fromUtf8(body);
        return {};
    }

    QString lastError() const override { return QStringLiteral("the transport's error"); }

private:
    QStringList* const calls;
};

} // namespace

class tst_PluginApiClientTransport : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void callsItsTransportInOrder();
};

void tst_PluginApiClientTransport::callsItsTransportInOrder()
{
    QStringList calls;
    QTest::ignoreMessage(QtWarningMsg, R"(unable to connect to "127.0.0.1" using wininet)");
    {
        PluginApiClient client(0x10000 + 50002, std::make_unique<RefusingTransport>(&calls));
        QVariantMap reply;
        QCOMPARE(client.getRequest(QStringLiteral("/a"), &reply), 0);
        QCOMPARE(client.lastError(), QStringLiteral("the transport's error"));
        QCOMPARE(client.postRequest(QStringLiteral("/b"), {}, &reply), 0);
    }
    const QStringList expected{QStringLiteral("timeout 1800000"),
        QStringLiteral("connect 127.0.0.1 50002"), QStringLiteral("get /a"),
        QStringLiteral("post /b {}"), QStringLiteral("deleted")};
    QCOMPARE(calls, expected);
}

QTEST_GUILESS_MAIN(tst_PluginApiClientTransport)
#include "tst_pluginapiclient_transport.moc"

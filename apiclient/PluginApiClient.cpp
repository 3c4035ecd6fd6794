#include "apiclient/PluginApiClient.h"

#include "apiclient/QtNetworkClient.h"
#include "apiclient/json/JsonUtils.h"

#include <QDebug>

PluginApiClient::PluginApiClient(int port, QObject* parent)
    : PluginApiClient(port, std::make_unique<QtNetworkClient>(), parent)
{
}

PluginApiClient::PluginApiClient(
    int port, std::unique_ptr<NetworkClient> transport, QObject* parent)
    : QObject(parent)
    , host(QStringLiteral("127.0.0.1"))
    , networkClient(transport.release())
{
    // QtNetworkClient ignores this timeout.
    constexpr int thirtyMinutesMs = 1800000;
    networkClient->setSendReceiveTimeout(thirtyMinutesMs);
    // Fixed by the interface: the port is truncated to 16 bits, and the warning has these words. It
    // never appears with QtNetworkClient, which accepts every host.
    if (!networkClient->connect(host, quint16(port))) {
        qWarning() << "unable to connect to" << host << "using wininet";
    }
}

PluginApiClient::~PluginApiClient() = default;

int PluginApiClient::getRequest(const QString& path, QVariantMap* result)
{
    const NetworkResponse response = networkClient->get(path);
    *result = parseResponse(response.status, response.body);
    return response.status;
}

int PluginApiClient::postRequest(const QString& path, QVariantMap body, QVariantMap* result,
    const JsonUtils::ElementReviver& reviver)
{
    NetworkResponse response;
    {
        // Both forms of the request are released before the reply is parsed: tens of megabytes for
        // a long document.
        const QByteArray json = JsonUtils::serialize(body);
        body.clear();
        if (json.isNull()) {
            result->clear();
            errorMessage = QStringLiteral("The request is larger than 2 GB");
            return 0;
        }
        response = networkClient->post(path, json);
    }
    *result = parseResponse(response.status, response.body, reviver);
    return response.status;
}

QVariantMap PluginApiClient::parseResponse(
    int status, const QByteArray& body, const JsonUtils::ElementReviver& reviver)
{
    const QVariantMap map = JsonUtils::parse(body, reviver).toMap();
    if (status == 200) {
        return map;
    }
    const auto error = map.constFind(QStringLiteral("error"));
    if (error != map.constEnd()) {
        errorMessage = error->toString();
    } else if (!body.isEmpty()) {
        // Passes the size, because the text would otherwise end at U+0000 in Qt 5.
        errorMessage = QString::fromUtf8(body.constData(), body.size());
    } else {
        errorMessage = networkClient->lastError();
    }
    return map;
}

void PluginApiClient::setLastError(const QString& message)
{
    errorMessage = message;
}

QString PluginApiClient::lastError() const
{
    return errorMessage;
}

#pragma once

#include "apiclient/NetworkClient.h"

#include <QObject>
#include <QScopedPointer>
#include <QVariantMap>

/// The gateway to the application's local API on 127.0.0.1: maps out as JSON, replies back in as
/// maps, and the text of the last error.
///
/// A request is successful when, and only when, the returned status is exactly 200. Every call
/// blocks until the reply is complete; there is no time-out.
class PluginApiClient : public QObject {
    Q_OBJECT

public:
    /// Sends nothing. Of `port` the low 16 bits count.
    explicit PluginApiClient(int port, QObject* parent = nullptr);
    ~PluginApiClient() override;

    /// Sends a GET for `path` and returns the HTTP status, 0 when no server answered. `*result`
    /// (not null) is always overwritten with the reply's JSON object, by an empty map when the
    /// reply is anything else. On every status but 200 the reason is in lastError() afterwards.
    int getRequest(const QString& path, QVariantMap* result);

    /// Sends `body` as a JSON object in a POST for `path`; otherwise like getRequest(). The
    /// application gets it at most once. More than 2 GB of JSON are not sent: status 0.
    int postRequest(const QString& path, const QVariantMap& body, QVariantMap* result);

    /// Turns a reply into a map (empty for anything but a JSON object). For every status but 200
    /// the error text becomes the first of: the object's "error" as a text, the body, the
    /// transport's own error.
    QVariantMap parseResponse(int status, const QByteArray& body);

    /// Records a failure that is no request's, such as that of a start of the application.
    void setLastError(const QString& message);

    /// Why the last failed request failed. A success leaves it as it was, so it says something
    /// only after a failure.
    QString lastError() const;

private:
    int finishRequest(const NetworkResponse& response, QVariantMap* result);

    QString host;
    QString errorMessage;
    QScopedPointer<NetworkClient> networkClient;
};

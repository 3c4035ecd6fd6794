#pragma once

#include "apiclient/NetworkClient.h"
#include "apiclient/json/JsonUtils.h"

#include <QObject>
#include <QScopedPointer>
#include <QVariantMap>

#include <memory>

/// The client of the application's local API on 127.0.0.1. Writes request maps as JSON, reads
/// replies as maps, and keeps the text of the last error.
///
/// A request is successful only if the returned status is exactly 200. Every request blocks until
/// the reply is complete; there is no timeout.
class PluginApiClient : public QObject {
    Q_OBJECT

public:
    /// Sends nothing. Only the low 16 bits of `port` are used.
    explicit PluginApiClient(int port, QObject* parent = nullptr);

    /// The same with `transport`, which must not be null, in place of a QtNetworkClient.
    PluginApiClient(int port, std::unique_ptr<NetworkClient> transport, QObject* parent = nullptr);

    ~PluginApiClient() override;

    /// Sends a GET for `path` and returns the HTTP status, or 0 if no usable reply was received
    /// (see NetworkClient::get()). Always overwrites `*result` (not null) with the reply's JSON
    /// object, or with an empty map if the reply is anything else. After any status but 200,
    /// lastError() has the reason.
    int getRequest(const QString& path, QVariantMap* result);

    /// Sends `body` as a JSON object in a POST for `path`; otherwise like getRequest(). It reaches
    /// the application at most once. If the JSON is larger than 2 GB, sends nothing, clears
    /// `*result`, sets lastError() and returns 0. `reviver` is applied to the reply.
    int postRequest(const QString& path, QVariantMap body, QVariantMap* result,
        const JsonUtils::ElementReviver& reviver = {});

    /// Returns the JSON object in `body`, or an empty map if it is anything else. For any status
    /// but 200 the error text becomes the first of these that exists: the object's "error" as
    /// text, the body if it is not empty, the transport's error text. `reviver` is applied to the
    /// object.
    QVariantMap parseResponse(
        int status, const QByteArray& body, const JsonUtils::ElementReviver& reviver = {});

    /// Replaces the error text, for an error that did not come from a request.
    void setLastError(const QString& message);

    /// The reason of the last failure. A successful request leaves it unchanged, so it is valid
    /// only after a failure.
    QString lastError() const;

private:
    QString host;
    QString errorMessage;
    QScopedPointer<NetworkClient> networkClient;
};

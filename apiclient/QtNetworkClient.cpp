#include "apiclient/QtNetworkClient.h"

#include "apiclient/HttpTrace.h"
#include "apiclient/ProcessorPin.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QIODevice>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QScopedPointer>
#include <QUrl>

#include <algorithm>
#include <cstring>

namespace {

/// A request body that can be read only once. QNetworkAccessManager repeats a POST by itself if the
/// connection closes before a status line, and a second POST would open a second dialog. It does
/// not repeat a request whose body cannot be rewound.
class OneTimeBody : public QIODevice {
public:
    explicit OneTimeBody(const QByteArray& content)
        : bytes(content)
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return bytes.size() - position; }
    bool reset() override { return false; }

protected:
    qint64 readData(char* data, qint64 maximumSize) override
    {
        const qint64 count = std::min(maximumSize, bytes.size() - position);
        if (count == 0 && maximumSize > 0) {
            return -1;
        }
        std::memcpy(data, bytes.constData() + position, size_t(count));
        position += count;
        return count;
    }

    qint64 writeData(const char*, qint64) override { return -1; }

private:
    const QByteArray bytes;
    qint64 position = 0;
};

QUrl requestUrl(const QString& host, quint16 port, const QString& path)
{
    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(host, QUrl::DecodedMode);
    url.setPort(port);
    url.setPath(path, QUrl::DecodedMode);
    return url;
}

QNetworkRequest postRequest(const QUrl& url, qint64 bodySize)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    // Without both settings Qt copies the body into a buffer that can be rewound.
    request.setHeader(QNetworkRequest::ContentLengthHeader, bodySize);
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    // By default Qt resends a request after a 401 and discards the reply's body.
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    return request;
}

// Larger than any real document. QByteArray itself is limited to 2 GB.
constexpr qint64 largestBody = qint64(512) * 1024 * 1024;

constexpr qint64 readAhead = qint64(512) * 1024;

/// Appends the received bytes of `reply` to `body`. Returns false if they exceed largestBody.
bool appendReceived(QNetworkReply* reply, QByteArray* body)
{
    if (body->size() + reply->bytesAvailable() > largestBody) {
        return false;
    }
    if (body->isEmpty()) {
        // Allocates once if the reply states its length.
        const qint64 length = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
        body->reserve(int(qBound<qint64>(0, length, largestBody)));
    }
    // readAll() would read 16 KB at a time and extend its result for each.
    const auto oldSize = int(body->size());
    const qint64 available = reply->bytesAvailable();
    body->resize(oldSize + int(available));
    const qint64 count = reply->read(body->data() + oldSize, available);
    body->resize(oldSize + int(std::max<qint64>(count, 0)));
    return true;
}

/// Reads the body of a request that has started, as it arrives, and blocks until the reply is
/// complete or has failed. Returns false, and aborts the reply, if the body exceeds largestBody.
bool receiveBody(QNetworkReply* reply, QByteArray* body)
{
    // Otherwise the network thread reads ahead, and a part of a long reply is in memory twice. Has
    // no effect before the request has started.
    reply->setReadBufferSize(readAhead);
    bool tooLarge = false;
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::readyRead, &loop, [&] {
        if (!tooLarge && !appendReceived(reply, body)) {
            tooLarge = true;
            reply->abort();
        }
    });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished()) {
        loop.exec();
    }
    return !tooLarge && appendReceived(reply, body);
}

// The count is a property of the application object, because it concerns the whole process and
// every client must see it.
constexpr char failedThreadStartsProperty[] = "tessaronFailedThreadStarts";

int failedThreadStarts()
{
    return QCoreApplication::instance()->property(failedThreadStartsProperty).toInt();
}

} // namespace

QtNetworkClient::QtNetworkClient()
{
    // By default Qt loads its connection-management plug-ins for the first manager. They start
    // threads and connect to the system bus, which blocks if the bus never replies. Nothing here
    // needs them.
    QCoreApplication::setLibraryPaths({});
    manager.reset(new QNetworkAccessManager);
    // The application runs on this machine: never use a system proxy.
    manager->setProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
}

QtNetworkClient::~QtNetworkClient() = default;

void QtNetworkClient::countFailedThreadStart()
{
    if (QCoreApplication* const application = QCoreApplication::instance()) {
        application->setProperty(failedThreadStartsProperty, failedThreadStarts() + 1);
    }
}

bool QtNetworkClient::connect(const QString& newHost, quint16 newPort)
{
    host = newHost;
    port = newPort;
    return true;
}

void QtNetworkClient::disconnect()
{
    host = QString();
    port = 0;
}

void QtNetworkClient::setSendReceiveTimeout(int) { }

NetworkResponse QtNetworkClient::get(const QString& path)
{
    return doRequest(path, {});
}

NetworkResponse QtNetworkClient::post(const QString& path, const QByteArray& body)
{
    return doRequest(path, body);
}

QString QtNetworkClient::lastError() const
{
    return errorText;
}

NetworkResponse QtNetworkClient::doRequest(const QString& path, const QByteArray& body)
{
    errorText = QString();
    // The application may have closed a keep-alive connection in the meantime; a POST sent on it
    // would be lost.
    manager->clearConnectionCache();
    const QUrl url = requestUrl(host, port, path);
    traceRequest(++exchange, path, body);
    QElapsedTimer duration;
    duration.start();

    // The manager's thread asks this one for every 16 KB of the body, and only one of them is busy
    // at a time.
    const ProcessorPin pin;
    OneTimeBody upload(body);
    const int failuresBefore = failedThreadStarts();
    const QScopedPointer<QNetworkReply> reply(body.isEmpty()
            ? manager->get(QNetworkRequest(url))
            : manager->post(postRequest(url, body.size()), &upload));
    // Qt queues the start of a POST. Start it now, so that a failed thread start can be attributed
    // to this request.
    QCoreApplication::sendPostedEvents(reply.data(), QEvent::MetaCall);
    if (failedThreadStarts() != failuresBefore) {
        // The request would never finish. The next one starts another thread, because it clears
        // the connection cache.
        errorText = QStringLiteral("Unable to start the network thread");
        return {};
    }

    NetworkResponse response;
    const bool complete = receiveBody(reply.data(), &response.body);
    if (complete) {
        response.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        errorText = reply->errorString();
    } else {
        response.body.clear();
        errorText = QStringLiteral("The reply is larger than 512 MB");
    }
    const bool failed = !complete || reply->error() != QNetworkReply::NoError;
    traceReply(exchange, response, duration.elapsed(), failed ? errorText : QString());
    return response;
}

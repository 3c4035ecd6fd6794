#include "apiclient/QtNetworkClient.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QIODevice>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QScopedPointer>
#include <QUrl>

#include <algorithm>
#include <cstring>

namespace {

// Silent unless the environment asks for them, for example with
// QT_LOGGING_RULES="tessaron.http*.debug=true". The bodies hold the document's text.
Q_LOGGING_CATEGORY(httpLog, "tessaron.http", QtWarningMsg)
Q_LOGGING_CATEGORY(httpBodyLog, "tessaron.http.body", QtWarningMsg)

/// A request body that can be read once. QNetworkAccessManager repeats a POST by itself when the
/// connection closes before a status line, and a second POST is a second dialog for the user. It
/// gives up where the body cannot be rewound, as here.
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
    // Without both, the body would be copied into a buffer first, and that one can be rewound.
    request.setHeader(QNetworkRequest::ContentLengthHeader, bodySize);
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    // Qt would answer a request for credentials by sending again, and lose the reply's own text.
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    return request;
}

// More than any document's; one byte array holds 2 GB.
constexpr qint64 largestBody = qint64(512) * 1024 * 1024;

/// Adds what has come in of `reply` to `body`. False when that is more than largestBody.
bool takeReceived(QNetworkReply* reply, QByteArray* body)
{
    // Reading from a reply that never opened prints a warning of Qt's.
    if (!reply->isReadable()) {
        return true;
    }
    if (body->size() + reply->bytesAvailable() > largestBody) {
        return false;
    }
    if (body->isEmpty()) {
        // Room for the whole body at once, where the reply says how long it will be.
        const qint64 length = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
        body->reserve(int(qBound<qint64>(0, length, largestBody)));
    }
    *body += reply->readAll();
    return true;
}

// Only a message tells that Qt could not start a thread, and a request without it never ends.
bool threadFailed = false;
QEventLoop* requestLoop = nullptr;
QtMessageHandler outerHandler = nullptr;

void noteThreadFailure(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (!message.startsWith(QLatin1String("QThread::start: "))) {
        outerHandler(type, context, message);
        return;
    }
    threadFailed = true;
    if (requestLoop != nullptr) {
        requestLoop->quit();
    }
}

/// Notes thread failures while it lives.
class ThreadWatch {
public:
    explicit ThreadWatch(QEventLoop* loop)
    {
        requestLoop = loop;
        outerHandler = qInstallMessageHandler(noteThreadFailure);
    }

    ~ThreadWatch()
    {
        qInstallMessageHandler(outerHandler);
        requestLoop = nullptr;
    }

    Q_DISABLE_COPY(ThreadWatch)
};

void traceRequest(const QString& path, const QByteArray& body)
{
    qCDebug(httpLog).noquote() << (body.isEmpty() ? "GET" : "POST") << path << body.size()
                               << "bytes";
    qCDebug(httpBodyLog).noquote() << QString::fromUtf8(body.constData(), body.size());
}

void traceReply(const QNetworkReply& reply, const NetworkResponse& response, qint64 elapsedMs)
{
    const QString failure = reply.error() == QNetworkReply::NoError
        ? QString()
        : QStringLiteral(", ") + reply.errorString();
    qCDebug(httpLog).noquote().nospace() << response.status << ' ' << response.body.size()
                                         << " bytes " << elapsedMs << " ms" << failure;
    qCDebug(httpBodyLog).noquote()
        << QString::fromUtf8(response.body.constData(), response.body.size());
}

} // namespace

QtNetworkClient::QtNetworkClient()
{
    // The first manager would load the connection-management plug-ins, which talk to the system
    // bus (and wait for ever when it does not answer) and start threads. Nothing here needs them.
    QCoreApplication::setLibraryPaths({});
    const ThreadWatch watch(nullptr);
    manager.reset(new QNetworkAccessManager);
    // The application is on this machine: no proxy of the system's may come between.
    manager->setProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
}

QtNetworkClient::~QtNetworkClient() = default;

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
    // A kept connection may have been closed by now, and a POST into it would be lost.
    manager->clearConnectionCache();
    const QUrl url = requestUrl(host, port, path);
    traceRequest(path, body);
    QElapsedTimer duration;
    duration.start();

    QEventLoop loop;
    OneTimeBody upload(body);
    const ThreadWatch watch(&loop);
    const QScopedPointer<QNetworkReply> reply(body.isEmpty()
            ? manager->get(QNetworkRequest(url))
            : manager->post(postRequest(url, body.size()), &upload));
    // Taken as it comes in: the body of a long document would else be in memory twice.
    NetworkResponse response;
    bool tooLarge = false;
    QObject::connect(reply.data(), &QNetworkReply::readyRead, [&] {
        if (!tooLarge && !takeReceived(reply.data(), &response.body)) {
            tooLarge = true;
            reply->abort();
        }
    });
    QObject::connect(reply.data(), SIGNAL(finished()), &loop, SLOT(quit()));
    if (!threadFailed) {
        loop.exec();
    }
    if (threadFailed) {
        errorText = QStringLiteral("Unable to start the network thread");
        return {};
    }

    errorText = reply->errorString();
    if (tooLarge || !takeReceived(reply.data(), &response.body)) {
        response = NetworkResponse();
        errorText = QStringLiteral("The reply is larger than 512 MB");
    } else {
        response.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    }
    traceReply(*reply, response, duration.elapsed());
    return response;
}

#include "apiclient/QtNetworkClient.h"
#include "tests/apiclient/NetworkFixture.h"
#include "tests/support/Texts.h"

#include <QLoggingCategory>
#include <QtTest>

#include <algorithm>

// Status and body of each kind of reply, and status 0 if there is no reply.
class tst_QtNetworkClientReplies : public QObject, private NetworkFixture {
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { QCOMPARE(tearDown(), QString()); }

    void returnsStatus_data();
    void returnsStatus();
    void returnsBody_data();
    void returnsBody();
    void returnsRedirect_data();
    void returnsRedirect();
    void returnsStatus0WithoutStatusLine_data();
    void returnsStatus0WithoutStatusLine();
    void returnsStatus0WithoutServer_data();
    void returnsStatus0WithoutServer();
    void limitsReplySize_data();
    void limitsReplySize();
};

namespace {

constexpr qint64 megabyte = 1024 * 1024;

/// Replies to a POST of "{}" with status 200 and `size` spaces, without holding them all in memory.
/// Without `statesLength`, the end of the connection ends the body.
class StreamingServer : public QTcpServer {
public:
    StreamingServer(qint64 size, bool statesLength)
        : unsent(size)
    {
        connect(this, &QTcpServer::newConnection, this, [this, statesLength] {
            QTcpSocket* const socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket, statesLength] {
                if (!socket->readAll().endsWith("{}")) {
                    return;
                }
                socket->write("HTTP/1.1 200 OK\r\n");
                if (statesLength) {
                    socket->write("Content-Length: " + QByteArray::number(unsent) + "\r\n");
                }
                socket->write("\r\n");
            });
            connect(socket, &QTcpSocket::bytesWritten, this, [this, socket] { send(socket); });
        });
    }

    qint64 unsent;

private:
    void send(QTcpSocket* socket)
    {
        static const QByteArray spaces(megabyte, ' ');
        while (unsent > 0 && socket->bytesToWrite() < 4 * megabyte) {
            const qint64 size = std::min<qint64>(unsent, spaces.size());
            socket->write(spaces.constData(), size);
            unsent -= size;
        }
        if (unsent == 0) {
            socket->disconnectFromHost();
        }
    }
};

} // namespace

void tst_QtNetworkClientReplies::returnsStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("headers");
    for (const int status : {200, 201, 202, 203, 206, 299, 300, 400, 401, 402, 403, 404, 405, 407,
             408, 409, 410, 418, 425, 429, 499, 500, 501, 502, 503, 504, 511, 599}) {
        QTest::newRow(QByteArray::number(status).constData()) << status << QByteArray();
    }
    const auto row = [](const char* name, int status, const char* header) {
        QTest::newRow(name) << status << QByteArray(header) + "\r\n";
    };
    row("401, basic", 401, "WWW-Authenticate: Basic realm=\"desktop\"");
    row("401, digest", 401, "WWW-Authenticate: Digest realm=\"d\", nonce=\"n\", qop=\"auth\"");
    row("401, negotiate", 401, "WWW-Authenticate: Negotiate");
    row("401, malformed challenge", 401, "WWW-Authenticate: rubbish \"");
    row("503, retry after", 503, "Retry-After: 0");
    row("426, upgrade", 426, "Upgrade: h2c");
    row("200, cookie", 200, "Set-Cookie: a=b");
    row("200, connection closed", 200, "Connection: close");
    row("200, HTML", 200, "Content-Type: text/html");
}

void tst_QtNetworkClientReplies::returnsStatus()
{
    QFETCH(int, status);
    QFETCH(QByteArray, headers);
    const QByteArray body = "{\"error\":\"caf\xC3\xA9\"}";
    const ScriptedReply reply{"HTTP/1.1 " + QByteArray::number(status) + " Scripted\r\n" + headers
        + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body};
    server->expect("GET", "/a", reply);
    server->expect("POST", "/a", reply);
    for (const QByteArray& sent : {QByteArray(), QByteArray("{}")}) {
        const NetworkResponse response = client->post(text("/a"), sent);
        QCOMPARE(response.status, status);
        QCOMPARE(response.body, body);
        QVERIFY(!client->lastError().isEmpty());
    }
    QCOMPARE(server->requests().size(), 2);
}

void tst_QtNetworkClientReplies::returnsBody_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("closes");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    const auto row = [](const char* name, const QByteArray& bytes, bool closes, int status,
                         const QByteArray& body) {
        QTest::newRow(name) << bytes << closes << status << body;
    };
    const QByteArray ok("HTTP/1.1 200 OK\r\n");
    const QByteArray gzipped("\x1F\x8B\x08\x00\x00\x00\x00\x00\x02\x03\xAB\x56\x2A\x48\x4C\xCE\x4E"
                             "\x4D\x51\xB2\x2A\x29\x2A\x4D\xAD\x05\x00\x89\xE0\xB5\xDC\x0F\x00\x00"
                             "\x00",
        35);
    const QByteArray unpacked(R"({"packed":true})");
    const auto withLength = [](const QByteArray& content) {
        return "Content-Length: " + QByteArray::number(content.size()) + "\r\n\r\n" + content;
    };
    row("no length", ok + "\r\nabc", true, 200, "abc");
    row("with a length", ok + withLength("abc"), false, 200, "abc");
    row("length 0", ok + withLength(""), false, 200, "");
    row("HTTP/1.0", "HTTP/1.0 200 OK\r\n\r\nabc", true, 200, "abc");
    row("no reason phrase", "HTTP/1.1 200\r\n" + withLength("abc"), false, 200, "abc");
    row("U+0000 and high bytes", ok + withLength(QByteArray("a\0\xFF", 3)), false, 200,
        QByteArray("a\0\xFF", 3));
    row("chunked", ok + "Transfer-Encoding: chunked\r\n\r\n1\r\na\r\n2;x=y\r\nbc\r\n0\r\n\r\n",
        false, 200, "abc");
    row("chunked, empty", ok + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", false, 200, "");
    row("gzip", ok + "Content-Encoding: gzip\r\n" + withLength(gzipped), false, 200, unpacked);
    row("deflate", ok + "Content-Encoding: deflate\r\n" + withLength(qCompress(unpacked).mid(4)),
        false, 200, unpacked);
    row("chunked gzip",
        ok + "Content-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n\r\n23\r\n" + gzipped
            + "\r\n0\r\n\r\n",
        false, 200, unpacked);
    row("interim 100", "HTTP/1.1 100 Continue\r\n\r\n" + ok + withLength("abc"), false, 200, "abc");
    row("interim 100, then 404",
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 404 Not Found\r\n" + withLength("abc"), false, 404,
        "abc");
    row("201 without a body", "HTTP/1.1 201 Created\r\n" + withLength(""), false, 201, "");
    row("204", "HTTP/1.1 204 No Content\r\n\r\n", false, 204, "");
    row("500 without a body", "HTTP/1.1 500 Oops\r\n" + withLength(""), false, 500, "");

    // By default Qt answers this challenge with a second request.
    row("401, NTLM", "HTTP/1.1 401 Who\r\nWWW-Authenticate: NTLM\r\n\r\nabc", true, 401, "abc");
    row("incomplete body", ok + "Content-Length: 100\r\n\r\nabc", true, 200, "abc");
    row("incomplete body, length of 2^63 - 1",
        ok + "Content-Length: 9223372036854775807\r\n\r\nabc", true, 200, "abc");
    row("incomplete body, length beyond 32 bits", ok + "Content-Length: 5000000000\r\n\r\nabc",
        true, 200, "abc");
    row("negative length", ok + "Content-Length: -5\r\n\r\nabc", true, 200, "abc");
    row("length that is not a number", ok + "Content-Length: many\r\n\r\nabc", true, 200, "abc");
    row("closed before the body", ok + "Content-Length: 100\r\n\r\n", true, 200, "");
    row("incomplete body of an error", "HTTP/1.1 500 Oops\r\nContent-Length: 100\r\n\r\nabc", true,
        500, "abc");
    row("closed between chunks", ok + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n", true, 200,
        "abc");
    row("closed within a chunk", ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nabc", true, 200,
        "abc");
}

void tst_QtNetworkClientReplies::returnsBody()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, closes);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    const ScriptedReply reply{bytes, closes ? ScriptedReply::Close : ScriptedReply::KeepOpen};
    QList<QByteArray> requestBodies{"{}"};
    if (!closes) {
        // Qt may repeat a GET if the connection closes after the reply.
        requestBodies.prepend(QByteArray());
    }
    for (const QByteArray& sent : qAsConst(requestBodies)) {
        server->expect(sent.isEmpty() ? "GET" : "POST", "/a", reply);
        const NetworkResponse response = client->post(text("/a"), sent);
        QCOMPARE(response.status, status);
        QCOMPARE(response.body, body);
        QVERIFY(!client->lastError().isEmpty());
    }
}

void tst_QtNetworkClientReplies::returnsRedirect_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {301, 302, 303, 304, 305, 307, 308}) {
        QTest::newRow(QByteArray::number(status).constData()) << status;
    }
}

void tst_QtNetworkClientReplies::returnsRedirect()
{
    QFETCH(int, status);
    const QByteArray body(status == 304 ? "" : "elsewhere");
    const ScriptedReply reply{"HTTP/1.1 " + QByteArray::number(status)
        + " Scripted\r\nLocation: http://127.0.0.1:" + QByteArray::number(server->port())
        + "/other\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body};
    server->expect("GET", "/a", reply);
    server->expect("POST", "/a", reply);
    for (const QByteArray& sent : {QByteArray(), QByteArray("{}")}) {
        const NetworkResponse response = client->post(text("/a"), sent);
        QCOMPARE(response.status, status);
        QCOMPARE(response.body, body);
    }
    QCOMPARE(server->requests().size(), 2);
}

void tst_QtNetworkClientReplies::returnsStatus0WithoutStatusLine_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("another protocol") << QByteArray("SSH-2.0-OpenSSH_9.2\r\n");
    QTest::newRow("JSON without HTTP") << QByteArray(R"({"uuid":"u-1"})");
    QTest::newRow("random bytes") << pattern(2000);
    QTest::newRow("U+0000") << QByteArray(2000, '\0');
    QTest::newRow("empty line") << QByteArray("\r\n");
    QTest::newRow("empty lines") << QByteArray("\r\n\r\n\r\n\r\n");
    QTest::newRow("incomplete protocol name") << QByteArray("HT");
    QTest::newRow("only a protocol name") << QByteArray("HTTP/1.1");
    QTest::newRow("incomplete status line") << QByteArray("HTTP/1.1 2");
    QTest::newRow("status that is not a number") << QByteArray("HTTP/1.1 abc Scripted\r\n\r\n");
    QTest::newRow("version that is not a number") << QByteArray("HTTP/x.y 200 OK\r\n\r\n");
    QTest::newRow("TLS alert") << QByteArray("\x15\x03\x01\x00\x02\x02\x28", 7);
}

void tst_QtNetworkClientReplies::returnsStatus0WithoutStatusLine()
{
    QFETCH(QByteArray, bytes);
    server->expect("POST", "/a", {bytes, ScriptedReply::Close});
    const NetworkResponse response = client->post(text("/a"), "{}");
    QCOMPARE(response.status, 0);
    QCOMPARE(response.body, QByteArray());
    QVERIFY(!client->lastError().isEmpty());
    QCOMPARE(server->requests().size(), 1);
}

void tst_QtNetworkClientReplies::returnsStatus0WithoutServer_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<quint16>("port");
    QTest::addColumn<QString>("path");
    const QString loopback = text("127.0.0.1");
    const quint16 closed = closedPort.number();
    QTest::newRow("closed port") << loopback << closed << text("/a");
    QTest::newRow("port 0") << loopback << quint16(0) << text("/a");
    QTest::newRow("empty host") << QString() << closed << text("/a");
    QTest::newRow("host name with a space") << text("no host") << closed << text("/a");
    QTest::newRow("host name of dots") << text("..") << closed << text("/a");
    QTest::newRow("incomplete IPv6 address") << text("[::1") << closed << text("/a");
    QTest::newRow("path without a slash") << loopback << closed << text("a");
    QTest::newRow("empty path") << loopback << closed << QString();
}

void tst_QtNetworkClientReplies::returnsStatus0WithoutServer()
{
    QFETCH(QString, host);
    QFETCH(quint16, port);
    QFETCH(QString, path);
    QVERIFY(client->connect(host, port));
    for (const QByteArray& sent : {QByteArray(), QByteArray("{}")}) {
        const NetworkResponse response = client->post(path, sent);
        QCOMPARE(response.status, 0);
        QCOMPARE(response.body, QByteArray());
        QVERIFY(!client->lastError().isEmpty());
    }
}

void tst_QtNetworkClientReplies::limitsReplySize_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("statesLength");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("512 MB") << 512 * megabyte << true << true;
    QTest::newRow("one byte more") << 512 * megabyte + 1 << true << false;
    QTest::newRow("endless") << 800 * megabyte << false << false;
}

void tst_QtNetworkClientReplies::limitsReplySize()
{
    QFETCH(qint64, size);
    QFETCH(bool, statesLength);
    QFETCH(bool, accepted);
    StreamingServer streaming(size, statesLength);
    QVERIFY(streaming.listen(QHostAddress::LocalHost));
    client->connect(text("127.0.0.1"), streaming.serverPort());
    QLoggingCategory::setFilterRules(text("tessaron.http.debug=true"));
    const NetworkResponse response = client->post(text("/a"), "{}");
    QLoggingCategory::setFilterRules({});
    const QString trace = messages().value(1);
    messages().clear();
    QCOMPARE(trace.endsWith(text(" ms, The reply is larger than 512 MB")), !accepted);
    QCOMPARE(response.status, accepted ? 200 : 0);
    QCOMPARE(qint64(response.body.size()), accepted ? size : 0);
    QCOMPARE(client->lastError(),
        accepted ? text("Unknown error") : text("The reply is larger than 512 MB"));
    // The client closes the connection instead of receiving the rest. A reply just above the limit
    // may already be in the buffers of the sockets.
    QCOMPARE(streaming.unsent > 0, size > 600 * megabyte);
}

QTEST_GUILESS_MAIN(tst_QtNetworkClientReplies)
#include "tst_qtnetworkclient_replies.moc"

#include "apiclient/QtNetworkClient.h"
#include "tests/apiclient/NetworkFixture.h"

#include <QtTest>

// What the transport makes of replies, good and bad, and that it never repeats a POST.
class tst_QtNetworkClientReplies : public QObject, private NetworkFixture {
    Q_OBJECT

private Q_SLOTS:
    void init() { setUp(); }
    void cleanup() { QCOMPARE(tearDown(), QString()); }

    void statuses_data();
    void statuses();
    void bodies_data();
    void bodies();
    void noStatus_data();
    void noStatus();
    void noServer_data();
    void noServer();
    void atMostOnePost_data();
    void atMostOnePost();
    void atMostOnePostWhenClosedAtOnce_data();
    void atMostOnePostWhenClosedAtOnce();
    void uploadCutInTheMiddle_data();
    void uploadCutInTheMiddle();
    void afterAFailureTheNextRequestWorks();
    void postAfterConnectionWasClosed();
    void aReplyBeyondTheLimitIsNone();
    void redirectsAreNotFollowed_data();
    void redirectsAreNotFollowed();
};

namespace {

/// A server below HTTP: it sends `greeting` and closes the first connection as soon as it is
/// there; later ones would be answered properly.
class HangingUpServer : public QTcpServer {
public:
    explicit HangingUpServer(const QByteArray& greetingBytes)
        : greeting(greetingBytes)
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* const socket = nextPendingConnection();
            ++connections;
            connect(socket, &QTcpSocket::readyRead, this,
                [this, socket] { received += socket->readAll(); });
            socket->write(connections == 1 ? greeting : ScriptedReply::json("{}").bytes);
            if (connections == 1) {
                socket->disconnectFromHost();
            }
        });
    }

    const QByteArray greeting;
    QByteArray received;
    int connections = 0;
};

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

void tst_QtNetworkClientReplies::statuses_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("headers");
    const auto row = [](int status, const char* headers = "") {
        QTest::newRow(QByteArray::number(status) + ' ' + QByteArray(headers).trimmed())
            << status << QByteArray(headers);
    };
    for (const int status : {200, 201, 202, 203, 206, 299, 300, 400, 402, 403, 404, 405, 408, 409,
             410, 418, 425, 429, 499, 500, 501, 502, 503, 504, 511, 599}) {
        row(status);
    }
    row(401);
    row(401, "WWW-Authenticate: Basic realm=\"desktop\"\r\n");
    row(401, "WWW-Authenticate: Digest realm=\"d\", nonce=\"n\", qop=\"auth\"\r\n");
    row(401, "WWW-Authenticate: Negotiate\r\n");
    row(401, "WWW-Authenticate: rubbish \"\r\n");
    row(407);
    row(503, "Retry-After: 0\r\n");
    row(426, "Upgrade: h2c\r\n");
    row(200, "Set-Cookie: a=b\r\n");
    row(200, "Connection: close\r\n");
    row(200, "Content-Type: text/html\r\n");
}

void tst_QtNetworkClientReplies::statuses()
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

void tst_QtNetworkClientReplies::bodies_data()
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
    row("no length, closed at the end", ok + "\r\nabc", true, 200, "abc");
    row("length", ok + withLength("abc"), false, 200, "abc");
    row("length 0", ok + withLength(""), false, 200, "");
    row("HTTP/1.0", "HTTP/1.0 200 OK\r\n\r\nabc", true, 200, "abc");
    row("no reason", "HTTP/1.1 200\r\n" + withLength("abc"), false, 200, "abc");
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

    row("cut body", ok + "Content-Length: 100\r\n\r\nabc", true, 200, "abc");
    row("cut body of an absurd length", ok + "Content-Length: 9223372036854775807\r\n\r\nabc", true,
        200, "abc");
    row("cut body of a length beyond an int", ok + "Content-Length: 5000000000\r\n\r\nabc", true,
        200, "abc");
    row("negative length", ok + "Content-Length: -5\r\n\r\nabc", true, 200, "abc");
    row("length that is no number", ok + "Content-Length: many\r\n\r\nabc", true, 200, "abc");
    row("cut before the body", ok + "Content-Length: 100\r\n\r\n", true, 200, "");
    row("cut body of an error", "HTTP/1.1 500 Oops\r\nContent-Length: 100\r\n\r\nabc", true, 500,
        "abc");
    row("cut between chunks", ok + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n", true, 200,
        "abc");
    row("cut within a chunk", ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nabc", true, 200, "abc");
}

void tst_QtNetworkClientReplies::bodies()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, closes);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    const ScriptedReply reply{bytes, closes ? ScriptedReply::Close : ScriptedReply::KeepOpen};
    QList<QByteArray> requestBodies{"{}"};
    if (!closes) {
        // Qt may repeat a GET by itself when the connection closes behind the reply.
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

void tst_QtNetworkClientReplies::noStatus_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("another protocol") << QByteArray("SSH-2.0-OpenSSH_9.2\r\n");
    QTest::newRow("JSON without HTTP") << QByteArray(R"({"uuid":"u-1"})");
    QTest::newRow("rubbish") << pattern(2000);
    QTest::newRow("U+0000") << QByteArray(2000, '\0');
    QTest::newRow("an empty line") << QByteArray("\r\n");
    QTest::newRow("empty lines") << QByteArray("\r\n\r\n\r\n\r\n");
    QTest::newRow("half a protocol name") << QByteArray("HT");
    QTest::newRow("a protocol name") << QByteArray("HTTP/1.1");
    QTest::newRow("half a status line") << QByteArray("HTTP/1.1 2");
    QTest::newRow("a status that is no number") << QByteArray("HTTP/1.1 abc Scripted\r\n\r\n");
    QTest::newRow("a version that is no number") << QByteArray("HTTP/x.y 200 OK\r\n\r\n");
    QTest::newRow("a TLS alert") << QByteArray("\x15\x03\x01\x00\x02\x02\x28", 7);
}

void tst_QtNetworkClientReplies::noStatus()
{
    QFETCH(QByteArray, bytes);
    server->expect("POST", "/a", {bytes, ScriptedReply::Close});
    const NetworkResponse response = client->post(text("/a"), "{}");
    QCOMPARE(response.status, 0);
    QCOMPARE(response.body, QByteArray());
    QVERIFY(!client->lastError().isEmpty());
    QCOMPARE(server->requests().size(), 1);
}

void tst_QtNetworkClientReplies::noServer_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<quint16>("port");
    QTest::addColumn<QString>("path");
    QTest::newRow("nobody on the port") << text("127.0.0.1") << portWithoutServer() << text("/a");
    QTest::newRow("port 0") << text("127.0.0.1") << quint16(0) << text("/a");
    QTest::newRow("empty host") << QString() << quint16(80) << text("/a");
    QTest::newRow("a host name with a blank") << text("no host") << quint16(80) << text("/a");
    QTest::newRow("a host name of dots") << text("..") << quint16(80) << text("/a");
    QTest::newRow("half an IPv6 address") << text("[::1") << quint16(80) << text("/a");
    QTest::newRow("a path without a slash")
        << text("127.0.0.1") << portWithoutServer() << text("a");
    QTest::newRow("an empty path") << text("127.0.0.1") << portWithoutServer() << QString();
}

void tst_QtNetworkClientReplies::noServer()
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

void tst_QtNetworkClientReplies::atMostOnePost_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("status");
    const auto row = [](const char* name, const QByteArray& bytes, int status) {
        QTest::newRow(name) << bytes << status;
    };
    const QByteArray ok("HTTP/1.1 200 OK\r\n");
    row("nothing", "", 0);
    row("in mid status line", "HTTP/1.1 20", 0);
    row("non-HTTP bytes", "hello, who is there?", 0);
    row("non-HTTP lines", "hello\r\nwho is there?\r\n\r\n", 0);
    row("a request instead of a reply", "GET / HTTP/1.1\r\n\r\n", 0);
    row("after an interim reply", "HTTP/1.1 100 Continue\r\n\r\n", 0);
    row("after the headers", ok + "Content-Length: 5\r\n\r\n", 200);
    row("in mid body", ok + "Content-Length: 5\r\n\r\nab", 200);
    row("in mid chunk", ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nab", 200);
    row("408", "HTTP/1.1 408 Request Timeout\r\nContent-Length: 0\r\n\r\n", 408);
    row("503", "HTTP/1.1 503 Busy\r\nRetry-After: 0\r\nContent-Length: 0\r\n\r\n", 503);
    row("401",
        "HTTP/1.1 401 Who\r\nWWW-Authenticate: Basic realm=\"d\"\r\nContent-Length: 0\r\n\r\n",
        401);
}

void tst_QtNetworkClientReplies::atMostOnePost()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, status);
    for (const auto ending : {ScriptedReply::Close, ScriptedReply::Reset}) {
        server->reset();
        connectAfresh();
        server->expect("POST", "/a/interactive", {bytes, ending});
        const NetworkResponse response = client->post(text("/a/interactive"), R"({"a":1})");
        if (ending == ScriptedReply::Close) {
            QCOMPARE(response.status, status);
        } else {
            // A reset may overtake what was sent before it.
            QVERIFY(response.status == status || response.status == 0);
        }
        QVERIFY(!client->lastError().isEmpty());
        // A second connection may have been opened, but nothing was sent on it.
        QCOMPARE(server->requests().size(), 1);
        QCOMPARE(server->strayBytes(), QByteArray());
        QCOMPARE(server->problem(), QString());
    }
}

void tst_QtNetworkClientReplies::atMostOnePostWhenClosedAtOnce_data()
{
    QTest::addColumn<QByteArray>("greeting");
    QTest::newRow("without a word") << QByteArray();
    QTest::newRow("with non-HTTP bytes") << QByteArray("220 mail ready\r\n");
    QTest::newRow("with half a status line") << QByteArray("HTTP/1.1 2");
    QTest::newRow("with a refusal") << QByteArray("HTTP/1.1 503 Busy\r\n\r\n");
}

void tst_QtNetworkClientReplies::atMostOnePostWhenClosedAtOnce()
{
    QFETCH(QByteArray, greeting);
    for (const int size : {10, 1000000}) {
        HangingUpServer hangingUp(greeting);
        QVERIFY(hangingUp.listen(QHostAddress::LocalHost));
        client->connect(text("127.0.0.1"), hangingUp.serverPort());
        const NetworkResponse response =
            client->post(text("/a/interactive"), QByteArray(size, 'x'));
        QVERIFY(response.status == 0 || response.status == 503);
        QVERIFY(!client->lastError().isEmpty());
        QVERIFY(hangingUp.received.count("POST ") <= 1);
    }
}

void tst_QtNetworkClientReplies::uploadCutInTheMiddle_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("ending");
    const QByteArray refusal("HTTP/1.1 413 Too large\r\nContent-Length: 0\r\n\r\n");
    QTest::newRow("closed") << QByteArray() << int(ScriptedReply::Close);
    QTest::newRow("reset") << QByteArray() << int(ScriptedReply::Reset);
    QTest::newRow("refused and closed") << refusal << int(ScriptedReply::Close);
    QTest::newRow("refused and reset") << refusal << int(ScriptedReply::Reset);
    QTest::newRow("non-HTTP bytes and closed") << QByteArray("no\r\n") << int(ScriptedReply::Close);
}

void tst_QtNetworkClientReplies::uploadCutInTheMiddle()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, ending);
    const QByteArray body(18000000, 'x');
    for (const qint64 received : {0, 100000, 9000000}) {
        server->reset();
        connectAfresh();
        server->expect("POST", "/a/interactive", {bytes, ScriptedReply::Ending(ending), received});
        const NetworkResponse response = client->post(text("/a/interactive"), body);
        QVERIFY(response.status == 0 || response.status == 413);
        QVERIFY(!client->lastError().isEmpty());
        // A second connection may have been opened, but nothing was sent on it.
        QCOMPARE(server->requests().size(), 1);
        QCOMPARE(server->strayBytes(), QByteArray());
        QCOMPARE(server->problem(), QString());
    }
}

void tst_QtNetworkClientReplies::afterAFailureTheNextRequestWorks()
{
    const ScriptedReply hangUp{QByteArray(), ScriptedReply::Close};
    for (int i = 0; i < 3; ++i) {
        server->expect("POST", "/a", hangUp);
        server->expect("POST", "/b", ScriptedReply::json(R"({"b":1})"));
        QCOMPARE(client->post(text("/a"), "{}").status, 0);
        const NetworkResponse response = client->post(text("/b"), "{}");
        QCOMPARE(response.status, 200);
        QCOMPARE(response.body, QByteArray(R"({"b":1})"));
    }
}

void tst_QtNetworkClientReplies::postAfterConnectionWasClosed()
{
    // The server closes without having said so. A POST on that connection would be lost, since it
    // is not repeated; often enough, because whether it is sent there is a matter of luck.
    for (int i = 0; i < 40; ++i) {
        server->expect("GET", "/a", {ScriptedReply::json("{}").bytes, ScriptedReply::Close});
        server->expect("POST", "/b", ScriptedReply::json("{}"));
        QCOMPARE(client->get(text("/a")).status, 200);
        QCOMPARE(client->post(text("/b"), "{}").status, 200);
    }
    QCOMPARE(server->requests().size(), 80);
}

void tst_QtNetworkClientReplies::aReplyBeyondTheLimitIsNone()
{
    const QByteArray body(512 * 1024 * 1024 + 1, ' ');
    server->expect("POST", "/path", ScriptedReply::json(body));
    const NetworkResponse response = client->post(QStringLiteral("/path"), "{}");
    QCOMPARE(response.status, 0);
    QCOMPARE(response.body, QByteArray());
    QCOMPARE(client->lastError(), QStringLiteral("The reply is larger than 512 MB"));
}

void tst_QtNetworkClientReplies::redirectsAreNotFollowed_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {301, 302, 303, 304, 305, 307, 308}) {
        QTest::newRow(QByteArray::number(status).constData()) << status;
    }
}

void tst_QtNetworkClientReplies::redirectsAreNotFollowed()
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

QTEST_GUILESS_MAIN(tst_QtNetworkClientReplies)
#include "tst_qtnetworkclient_replies.moc"

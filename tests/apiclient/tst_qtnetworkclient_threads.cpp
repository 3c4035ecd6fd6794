#include "apiclient/QtNetworkClient.h"
#include "tests/apiclient/NetworkFixture.h"
#include "tests/support/Texts.h"

#include <QtTest>

#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>

namespace {

/// Which thread start fails: 1 is the next one, 0 means none.
int& failingStart()
{
    static int count = 0;
    return count;
}

} // namespace

/// Replaces the C library's function in this program.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
    void* (*start)(void*), void* argument) noexcept
{
    static const auto original =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (failingStart() > 0 && --failingStart() == 0) {
        return EAGAIN;
    }
    return original(thread, attributes, start, argument);
}

// Requests whose thread cannot be started.
class tst_QtNetworkClientThreads : public QObject, private NetworkFixture {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { QCOMPARE(tearDown(), QString()); }

    void failsOnlyRequestWithoutThread_data();
    void failsOnlyRequestWithoutThread();
};

void tst_QtNetworkClientThreads::init()
{
    setUp();
    // Counts failed thread starts, as the program's message filter does.
    static QtMessageHandler recordMessage = nullptr;
    recordMessage = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext& context, const QString& message) {
            if (message.startsWith(QLatin1String("QThread::start: "))) {
                QtNetworkClient::countFailedThreadStart();
            } else {
                recordMessage(type, context, message);
            }
        });
}

void tst_QtNetworkClientThreads::failsOnlyRequestWithoutThread_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("GET") << QByteArray();
    QTest::newRow("POST") << QByteArray("{}");
}

void tst_QtNetworkClientThreads::failsOnlyRequestWithoutThread()
{
    QFETCH(QByteArray, body);
    bool failed = true;
    for (int nth = 1; failed; ++nth) {
        server->reset();
        replaceClient();
        failingStart() = nth;
        server->expect(body.isEmpty() ? "GET" : "POST", "/a", ScriptedReply::json("{}"));
        const int status = client->post(text("/a"), body).status;
        failed = failingStart() == 0;
        failingStart() = 0;
        if (failed) {
            QCOMPARE(status, 0);
            QCOMPARE(client->lastError(), text("Unable to start the network thread"));
            QCOMPARE(server->connectionCount(), 0);
            // The script still has the reply, for the next request.
            QCOMPARE(client->post(text("/a"), body).status, 200);
        } else {
            QCOMPARE(status, 200);
            QVERIFY(nth > 1);
        }
        QCOMPARE(server->problem(), QString());
    }
}

QTEST_GUILESS_MAIN(tst_QtNetworkClientThreads)
#include "tst_qtnetworkclient_threads.moc"

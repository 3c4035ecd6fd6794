#include "tests/service/ServiceTest.h"

#include "service/DesktopSettings.h"

#include <QJsonDocument>
#include <QSettings>
#include <QtTest>

namespace {

void setPortInSettings(int port)
{
    tessaronDesktopSettings()->setValue(QStringLiteral("General/httpServerPort"), port);
    // Later writing would fail: the home folder is deleted before QSettings is destroyed.
    tessaronDesktopSettings()->sync();
}

} // namespace

void addFailedReplies(const QByteArray& success)
{
    QTest::addColumn<FailedReply>("failure");
    const auto row = [](const char* name, int status, const QByteArray& body, const char* error) {
        QTest::newRow(name) << FailedReply{
            ScriptedReply::json(body, status), QString::fromUtf8(error)};
    };
    row("201 with the body of a success", 201, success, success);
    row("500 with an error text", 500, R"({"error":"no %1 %2"})", "no %1 %2");
    row("404 with a web page", 404, "<h1>Ünfug %2</h1>", "<h1>Ünfug %2</h1>");
}

bool isSameJson(const QByteArray& body, const QByteArray& expected)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    return document.isObject() && document == QJsonDocument::fromJson(expected);
}

ServiceTest::ServiceTest()
{
    setPortInSettings(server.port());
}

std::unique_ptr<PluginComServer> ServiceTest::serviceWithoutApplication()
{
    setPortInSettings(closedPort.number());
    auto service = std::make_unique<PluginComServer>();
    setPortInSettings(server.port());
    return service;
}

void ServiceTest::init()
{
    server.reset();
}

void ServiceTest::cleanup()
{
    QCOMPARE(server.problem(), QString());
}

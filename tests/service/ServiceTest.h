#pragma once

#include "service/PluginComServer.h"

#include "tests/support/ClosedPort.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"

#include <QMetaType>

#include <memory>

/// A reply whose status is not 200, and the text that lastError() returns after it.
struct FailedReply {
    ScriptedReply reply;
    QString error;
};

Q_DECLARE_METATYPE(FailedReply)

/// Adds the column "failure" and three rows that represent all failed replies. `success` is the
/// body of a successful reply; one row sends it with another status. The full table is in the tests
/// of PluginApiClient, which decides what is a failure and what its error text is.
void addFailedReplies(const QByteArray& success);

/// Returns whether `body` is one JSON object that equals the one in `expected`, types included.
bool isSameJson(const QByteArray& body, const QByteArray& expected);

/// Base of the tests of PluginComServer. Every service that is created talks to `server`, and every
/// test fails if a scripted reply was not requested or a request was not scripted.
class ServiceTest : public QObject {
    Q_OBJECT

protected:
    ServiceTest();

    /// Returns a service whose requests are refused because no application is running.
    std::unique_ptr<PluginComServer> serviceWithoutApplication();

    const TemporaryHome home;
    ScriptedServer server;

private Q_SLOTS:
    void init();
    void cleanup();

private:
    const ClosedPort closedPort;
};

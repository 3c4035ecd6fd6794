#pragma once

#include "frontend/CiteCommandHandler.h"
#include "service/PluginComServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"

#include <QScopedPointer>

/// A handler and its service, and the scripted server that the service talks to.
class HandlerFixture {
protected:
    HandlerFixture() { home.writePort(server.port()); }

    /// Creates a new service and handler, and empties the server's script.
    void renew()
    {
        server.reset();
        service.reset(new PluginComServer(nullptr));
        handler.reset(new CiteCommandHandler);
        handler->initWithPluginClient(service.data());
    }

    TemporaryHome home;
    ScriptedServer server;
    QScopedPointer<PluginComServer> service;
    QScopedPointer<CiteCommandHandler> handler;
};

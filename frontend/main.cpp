#include "frontend/ArgsFile.h"
#include "frontend/CiteCommandHandler.h"
#include "frontend/ExchangeFolder.h"
#include "frontend/ProcessSetup.h"
#include "service/PluginComServer.h"

#include <QCoreApplication>
#include <QDebug>

int main(int argc, char* argv[])
{
    const QByteArray formerLocale = startProcessSetup();
    if (argc < 3) {
        // The doubled spaces are part of the message.
        qWarning() << "usage: " << argv[0] << " tessaronCommand tempFolderPath";
        return 1;
    }
    // Copied before QCoreApplication is created, which removes the options it recognises from argv.
    const QString command = QString::fromUtf8(argv[1]);
    const QString folder = QString::fromUtf8(argv[2]);
    const QCoreApplication application(argc, argv);
    finishProcessSetup(formerLocale);

    auto* const service = new PluginComServer(nullptr);
    // Fixed by the interface: the handler is never released. Leak checkers accept an object that a
    // static pointer refers to.
    static CiteCommandHandler* const handler =
        (new CiteCommandHandler)->initWithPluginClient(service);
    const QString status = handler->handleCommand(command, folder);

    // Written last: the macro waits for this file before it reads the results. A write error is
    // ignored: the status also goes to standard output.
    bool success = false;
    writeFile(readyFilePath(folder), status, &success);
    printLine(status.toUtf8().constData());
    delete service;
    return 0; // Fixed by the interface: the exit status is 0 after a failure too.
}

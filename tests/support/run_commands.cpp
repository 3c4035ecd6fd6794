#include "frontend/CiteCommandHandler.h"
#include "frontend/ProcessSetup.h"
#include "service/PluginComServer.h"

#include <QCoreApplication>

/// Runs the commands named on the command line one after another in one process, each without
/// arguments. Sets the process up as the bridge does. Prints one line for each command: its
/// results, separated by "|".
int main(int argc, char* argv[])
{
    const QByteArray formerLocale = startProcessSetup();
    const QCoreApplication application(argc, argv);
    finishProcessSetup(formerLocale);
    PluginComServer service;
    CiteCommandHandler handler;
    handler.initWithPluginClient(&service);
    for (int i = 1; i < argc; ++i) {
        const QStringList results =
            handler.handleCommandInternal(QString::fromUtf8(argv[i]), {}, {});
        printLine(results.join(QLatin1Char('|')).toUtf8().constData());
    }
    return 0;
}

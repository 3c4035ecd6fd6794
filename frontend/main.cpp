#include "frontend/ArgsFile.h"
#include "frontend/CiteCommandHandler.h"
#include "frontend/StandardStreams.h"
#include "service/PluginComServer.h"

#include <QCoreApplication>
#include <QDebug>
#include <QTextCodec>

#include <memory>

namespace {

/// The Qt core application object. Qt would load the user's locale for the C library, from up to
/// thirty files; nothing here depends on it, and without it every run is the same for every user.
/// The environment is left as it was, for the desktop application inherits it.
std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv)
{
    const QByteArray locale = qgetenv("LC_ALL");
    qputenv("LC_ALL", "C");
    auto application = std::make_unique<QCoreApplication>(argc, argv);
    if (locale.isNull()) {
        qunsetenv("LC_ALL");
    } else {
        qputenv("LC_ALL", locale);
    }
    return application;
}

} // namespace

int main(int argc, char* argv[])
{
    secureStandardStreams();
    silenceOtherThreads();
    if (argc < 3) {
        qWarning() << "usage: " << argv[0] << " tessaronCommand tempFolderPath";
        return 1;
    }
    // Taken before Qt sees them: it removes what it takes for options of its own.
    const QString command = QString::fromUtf8(argv[1]);
    const QString directory = QString::fromUtf8(argv[2]);
    const auto application = makeApplication(argc, argv);
    // Folder names are UTF-8 whatever the locale says: a macro's environment may well have none,
    // and not every build of Qt takes UTF-8 then.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    auto* const service = new PluginComServer(nullptr);
    // Never released: one command, and the process ends.
    static CiteCommandHandler* const handler =
        (new CiteCommandHandler)->initWithPluginClient(service);
    const QString status = handler->handleCommand(command, directory);

    // Written last: its presence tells the macro that the results are complete.
    bool success = false;
    writeFile(directory + QStringLiteral("/mac-word-plugin-result-ready.txt"), status, &success);
    printLine(status.toUtf8().constData());
    delete service;
    return 0;
}

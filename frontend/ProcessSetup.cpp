#include "frontend/ProcessSetup.h"

#include "apiclient/QtNetworkClient.h"
#include "frontend/TextCodec.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <initializer_list>
#include <thread>
#include <unistd.h>

namespace {

void openClosedStreams()
{
    for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) {
            // open() returns the lowest free number, which is this stream's.
            (void)open("/dev/null", O_RDWR);
        }
    }
}

std::thread::id setupThread()
{
    static const std::thread::id id = std::this_thread::get_id();
    return id;
}

void filterMessage(QtMsgType type, const QMessageLogContext& context, const QString& message);

/// Installs the filter on the first call. Returns the handler that it replaced.
QtMessageHandler replacedHandler()
{
    static const QtMessageHandler handler = qInstallMessageHandler(filterMessage);
    return handler;
}

void filterMessage(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    const bool ownThread = std::this_thread::get_id() == setupThread();
    // Qt reports a failed thread start only by this message.
    if (ownThread && message.startsWith(QLatin1String("QThread::start: "))) {
        QtNetworkClient::countFailedThreadStart();
    } else if (ownThread || type == QtFatalMsg) {
        replacedHandler()(type, context, message);
    }
}

void setLocale(const QByteArray& locale)
{
    if (locale.isNull()) {
        qunsetenv("LC_ALL");
    } else {
        qputenv("LC_ALL", locale);
    }
}

} // namespace

QByteArray startProcessSetup()
{
    openClosedStreams();
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    setupThread();
    replacedHandler();
    QByteArray formerLocale = qgetenv("LC_ALL");
    setLocale("C");
    return formerLocale;
}

void finishProcessSetup(const QByteArray& formerLocale)
{
    setLocale(formerLocale);
    useUtf8FileNames();
}

void printLine(const char* text)
{
    std::puts(text);
    std::fflush(stdout);
}

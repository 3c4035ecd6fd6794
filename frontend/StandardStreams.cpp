#include "frontend/StandardStreams.h"

#include <QtGlobal>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <initializer_list>
#include <thread>
#include <unistd.h>

void secureStandardStreams()
{
    for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) {
            // The lowest free number is this stream's, because those below it are open.
            (void)open("/dev/null", O_RDWR);
        }
    }
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

void silenceOtherThreads()
{
    static const std::thread::id ownThread = std::this_thread::get_id();
    static QtMessageHandler formerHandler = nullptr;
    formerHandler = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext& context, const QString& message) {
            if (std::this_thread::get_id() == ownThread) {
                formerHandler(type, context, message);
            }
        });
}

void printLine(const char* text)
{
    std::puts(text);
    std::fflush(stdout);
}

#include "service/DesktopApplication.h"

#include "service/DesktopEntry.h"

#include <QFile>
#include <QStandardPaths>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <spawn.h>
#include <unistd.h>
#include <vector>

namespace {

// kLSApplicationNotFoundErr, as on macOS.
constexpr int applicationNotFound = -10814;

/// Returns this process's environment without the variables that would make the desktop bring the
/// application's window to the front. The pointers point into the environment itself.
std::vector<char*> environmentWithoutActivation()
{
    std::vector<char*> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const QByteArray text = QByteArray::fromRawData(*variable, int(std::strlen(*variable)));
        if (!text.startsWith("DESKTOP_STARTUP_ID=") && !text.startsWith("XDG_ACTIVATION_TOKEN=")) {
            variables.push_back(*variable);
        }
    }
    variables.push_back(nullptr);
    return variables;
}

struct SpawnAttributes {
    SpawnAttributes()
    {
        posix_spawnattr_init(&attributes);
        // Starts a new session, so that the application keeps running when the bridge or its
        // terminal ends. Resets all signals, because a child inherits ignored and blocked signals,
        // and the bridge ignores some.
        posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        sigset_t signalSet;
        sigfillset(&signalSet);
        posix_spawnattr_setsigdefault(&attributes, &signalSet);
        sigemptyset(&signalSet);
        posix_spawnattr_setsigmask(&attributes, &signalSet);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
    Q_DISABLE_COPY(SpawnAttributes)

    posix_spawnattr_t attributes{};
};

struct SpawnFileActions {
    explicit SpawnFileActions(const QByteArray& workingDirectory)
    {
        posix_spawn_file_actions_init(&actions);
        // The macro reads the bridge's output until it is closed, so the application must not
        // inherit it.
        for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
        }
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        if (!workingDirectory.isEmpty()) {
            posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.constData());
        }
    }
    ~SpawnFileActions() { posix_spawn_file_actions_destroy(&actions); }
    Q_DISABLE_COPY(SpawnFileActions)

    posix_spawn_file_actions_t actions{};
};

/// Starts the application that `entry` describes. Returns 0 or the errno of the failed start.
int start(const DesktopEntry& entry)
{
    std::vector<char*> arguments;
    for (const QByteArray& argument : entry.command) {
        arguments.push_back(const_cast<char*>(argument.constData()));
    }
    arguments.push_back(nullptr);
    const SpawnAttributes spawn;
    const SpawnFileActions files(entry.workingDirectory);
    // Nothing waits for the child, because this process ends soon. If the application exits
    // earlier, it remains a zombie until this process ends.
    pid_t processId = 0;
    return posix_spawnp(&processId, arguments.front(), &files.actions, &spawn.attributes,
        arguments.data(), environmentWithoutActivation().data());
}

} // namespace

int openDesktopApplication()
{
    const QString fixedPath = QStringLiteral("/opt/Tessaron Desktop/tessaron-desktop");
    if (QFile::exists(fixedPath)) {
        return start({{QFile::encodeName(fixedPath)}, {}});
    }
    // Only the first entry in the search order counts: a hidden or invalid one means "not
    // installed" and hides those in later folders.
    const QString entryPath = QStandardPaths::locate(
        QStandardPaths::ApplicationsLocation, QStringLiteral("com.tessaron.desktop.desktop"));
    const auto entry = entryPath.isEmpty() ? std::nullopt : readDesktopEntry(entryPath);
    return entry ? start(*entry) : applicationNotFound;
}

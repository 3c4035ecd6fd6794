#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <functional>

class ExchangeFolder;

/// How a bridge is started. The default is the executable in the test's own environment without the
/// QT_* variables, which change what Qt logs.
struct BridgeStart {
    /// Runs in the new process just before the bridge: sets limits, streams and users.
    std::function<void()> prepare;
    /// Variables to set in addition to that environment; may include QT_* variables.
    QMap<QString, QString> environment;
    /// The folder to start in; empty for the test's own.
    QString workingDirectory;
    /// A command that starts the bridge: "$0" with the arguments "$@" in a shell.
    QString shellCommand;
    /// Another program to start, such as a copy of the executable; empty for the executable.
    QString program;
    /// The bridge is killed if it runs longer.
    int longestRunMs = 30000;

    static BridgeStart prepared(const std::function<void()>& prepare);
    static BridgeStart withVariables(const QMap<QString, QString>& environment);
    static BridgeStart inFolder(const QString& workingDirectory);
    static BridgeStart inShell(const QString& shellCommand);
    /// Copies the executable into `folder`. Starts it as the ordinary user of becomeOrdinaryUser(),
    /// after running `prepare`.
    static BridgeStart asOrdinaryUser(
        const QString& folder, const std::function<void()>& prepare = {});
};

/// The outcome of a run.
struct BridgeOutcome {
    /// The exit status; -1 if it was ended by a signal or by the test, or did not start.
    int exitStatus = -1;
    QByteArray output;
    QByteArray errors;
};

/// The path of the bridge's executable.
QString bridgePath();

/// Runs the bridge with `arguments` until it ends. The test's event loop runs meanwhile, so that
/// the scripted server can reply.
BridgeOutcome runBridge(const QStringList& arguments, const BridgeStart& start = {});

/// Runs `command` on `folder`.
BridgeOutcome runCommand(
    const char* command, const ExchangeFolder& folder, const BridgeStart& start = {});

/// Checks that the run exited with status 0, printed `errors` to standard error, and wrote the size
/// of the results file to standard output and the ready file. Returns the first difference, or an
/// empty string.
QByteArray problem(const BridgeOutcome& run, const ExchangeFolder& folder,
    const QByteArray& errors = QByteArray());

#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <functional>

/// How a bridge is started, where it is not in the ordinary way.
struct BridgeStart {
    /// Runs in the new process just before the bridge does: for limits, streams and users.
    std::function<void()> prepare;
    /// Variables to set, on top of the test's own environment.
    QMap<QString, QString> environment;
    /// The folder to start in; empty for the test's own.
    QString workingDirectory;
    /// A command that starts the bridge: "$0" with the arguments "$@" in a shell.
    QString shellCommand;
    /// A copy of the executable to start; empty for the executable itself.
    QString program;

    static BridgeStart prepared(const std::function<void()>& prepare);
    static BridgeStart withVariables(const QMap<QString, QString>& environment);
    static BridgeStart inFolder(const QString& workingDirectory);
    static BridgeStart inShell(const QString& shellCommand);
    /// As the user that becomeOrdinaryUser() becomes, after `prepare`. What that user starts is a
    /// copy of the executable, which is put into `folder`.
    static BridgeStart asOrdinaryUser(
        const QString& folder, const std::function<void()>& prepare = {});
};

/// What a bridge that has ended left.
struct BridgeOutcome {
    /// The exit status; -1 when it was ended by a signal, by the test, or did not start.
    int exitStatus = -1;
    QByteArray output;
    QByteArray errors;
};

/// The path of the bridge's executable.
QString bridgePath();

/// Runs the bridge with `arguments` until it ends, while the test's event loop turns, so that
/// the scripted server answers. The bridge is ended when it takes more than two minutes.
BridgeOutcome runBridge(const QStringList& arguments, const BridgeStart& start = {});

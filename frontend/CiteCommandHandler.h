#pragma once

#include <QString>
#include <QStringList>

class PluginComServer;

/// Runs one command of the macro: reads its arguments, calls the service, writes its results.
class CiteCommandHandler {
public:
    /// Sets the service to use and returns this handler. Call it before the first command. Fixed by
    /// the interface: creation and initialisation are two steps. Does not take ownership: `service`
    /// must exist as long as commands run.
    CiteCommandHandler* initWithPluginClient(PluginComServer* service);

    /// Runs `command` on the argument file in `folder` (no trailing slash) and writes the results
    /// file there. Blocks as long as the command does. Returns the size of the results file in
    /// bytes as decimal text, or "-1" if it could not be written. If the argument file cannot be
    /// read, the command runs without arguments; an unknown command has no results.
    QString handleCommand(const QString& command, const QString& folder);

    /// Runs `command` and returns its results, or an empty list for an unknown command. Missing
    /// arguments are empty strings. Ignores surplus arguments and a trailing field code that has no
    /// text. Command names are case-sensitive.
    QStringList handleCommandInternal(
        const QString& command, const QString& folder, const QStringList& arguments);

private:
    PluginComServer* pluginClient = nullptr; // not owned
};

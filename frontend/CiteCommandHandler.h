#pragma once

#include <QString>
#include <QStringList>

class PluginComServer;

/// Turns one command of the macro into operations of the service, and their answers into the
/// results file.
class CiteCommandHandler {
public:
    /// Makes the handler ready to use `service`, which it does not own and which must outlive
    /// every command. Comes before any command. Returns the handler itself.
    CiteCommandHandler* initWithPluginClient(PluginComServer* service);

    /// Runs `command` on the argument file in `directory` (without a trailing slash), writes the
    /// results file there, and returns its size in bytes as decimal text, "-1" when it could not
    /// be written. An unknown command has
    /// no results; a missing argument file has no arguments.
    QString handleCommand(const QString& command, const QString& directory);

    /// Runs `command` and returns its results. Missing arguments are empty texts, additional ones
    /// are ignored, among them a field code without its text at the end of a batch; an unknown
    /// command returns an empty list.
    QStringList handleCommandInternal(
        const QString& command, const QString& directory, const QStringList& arguments);

private:
    PluginComServer* pluginClient = nullptr;
};

#include "frontend/CiteCommandHandler.h"

#include "frontend/ArgsFile.h"
#include "frontend/ProcessMemory.h"
#include "service/PluginComServer.h"

#include <QFileInfo>

#include <algorithm>

namespace {

using Operation = QStringList (*)(PluginComServer& service, const QStringList& arguments);

struct Command {
    const char* name;
    Operation run;
};

QString rendered(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QStringList formatCitationsAndBibliography(PluginComServer& service, const QStringList& arguments)
{
    service.setCitationStyle(arguments.value(0));
    service.resetCitations();
    int count = 0;
    for (int i = 1; i + 1 < arguments.size(); i += 2) {
        service.addCitation(arguments.at(i), arguments.at(i + 1));
        ++count;
    }
    const bool formatted = service.formatCitationsAndBibliography();
    QStringList results{rendered(formatted)};
    if (!formatted) {
        results << QString::number(service.lastErrorCitationIndex());
        return results;
    }
    results.reserve(3 + 4 * count);
    results << service.getCitationStyleId() << service.getFormattedBibliography();
    for (int i = 0; i < count; ++i) {
        results << service.getFieldCode(i) << service.getFormattedCitation(i)
                << service.getPreviouslyFormattedCitation(i)
                << service.getPlainTextFormattedCitation(i);
    }
    return results;
}

QStringList getRecentStyles(PluginComServer& service, const QStringList&)
{
    QStringList styleIds;
    QStringList styleNames;
    service.getRecentStyles(styleIds, styleNames);
    QStringList results{QString::number(styleIds.size())};
    results.reserve(1 + 2 * styleIds.size());
    for (int i = 0; i < styleIds.size(); ++i) {
        results << styleIds.at(i) << styleNames.at(i);
    }
    return results;
}

QStringList setWordProcessor(PluginComServer& service, const QStringList& arguments)
{
    service.setWordProcessor(arguments.value(0), arguments.value(1));
    return {};
}

// Every command that the macro knows.
constexpr Command commands[] = {
    {"setWordProcessor", setWordProcessor},
    {"getFieldCodeFromCitationEditor",
        [](PluginComServer& service, const QStringList& arguments) -> QStringList {
            return {service.getFieldCodeFromCitationEditor(arguments.value(0))};
        }},
    {"getFieldCodeFromUuid",
        [](PluginComServer& service, const QStringList& arguments) -> QStringList {
            return {service.getFieldCodeFromUuid(arguments.value(0))};
        }},
    {"getCitationStyleFromDialog",
        [](PluginComServer& service, const QStringList& arguments) -> QStringList {
            return {service.getCitationStyleFromDialog(arguments.value(0))};
        }},
    {"formatCitationsAndBibliography", formatCitationsAndBibliography},
    {"isTessaronRunning",
        [](PluginComServer& service, const QStringList&) -> QStringList {
            return {rendered(service.isTessaronRunning())};
        }},
    {"launchTessaron",
        [](PluginComServer& service, const QStringList&) -> QStringList {
            return {rendered(service.launchTessaron())};
        }},
    {"mergeFields",
        [](PluginComServer& service, const QStringList& arguments) -> QStringList {
            return {service.mergeFields(arguments)};
        }},
    {"checkManualFormatAndGetFieldCode",
        [](PluginComServer& service, const QStringList& arguments) -> QStringList {
            return {
                service.checkManualFormatAndGetFieldCode(arguments.value(0), arguments.value(1))};
        }},
    {"undoManualFormat",
        [](PluginComServer& service, const QStringList& arguments) -> QStringList {
            return {service.undoManualFormat(arguments.value(0))};
        }},
    {"hasManualEdit",
        [](PluginComServer& service, const QStringList& arguments) -> QStringList {
            return {rendered(service.hasManualEdit(arguments.value(0)))};
        }},
    {"getUserAccount",
        [](PluginComServer& service, const QStringList&) -> QStringList {
            return {service.getUserAccount()};
        }},
    {"getUserUuid",
        [](PluginComServer& service, const QStringList&) -> QStringList {
            return {service.getUserUuid()};
        }},
    {"getRecentStyles", getRecentStyles},
    {"tessaronProcessId",
        [](PluginComServer& service, const QStringList&) -> QStringList {
            return {QString::number(service.tessaronProcessId())};
        }},
    {"lastError",
        [](PluginComServer& service, const QStringList&) -> QStringList {
            return {service.lastError()};
        }},
    {"getDesktopCitationStyleId",
        [](PluginComServer& service, const QStringList&) -> QStringList {
            return {service.getDesktopCitationStyleId()};
        }},
};

} // namespace

CiteCommandHandler* CiteCommandHandler::initWithPluginClient(PluginComServer* service)
{
    pluginClient = service;
    return this;
}

QString CiteCommandHandler::handleCommand(const QString& command, const QString& directory)
{
    const QString argsPath = directory + QStringLiteral("/mac-word-plugin-args.txt");
    prepareProcessMemory(QFileInfo(argsPath).size());
    bool success = false;
    const QStringList arguments = readArgsFile(argsPath, &success);
    const QStringList results = handleCommandInternal(command, directory, arguments);
    return QString::number(writeArgsFile(
        directory + QStringLiteral("/mac-word-plugin-results.txt"), results, &success));
}

QStringList CiteCommandHandler::handleCommandInternal(
    const QString& command, const QString& directory, const QStringList& arguments)
{
    pluginClient->setTempDirectory(directory);
    const auto* const found = std::find_if(std::begin(commands), std::end(commands),
        [&command](const Command& known) { return command == QLatin1String(known.name); });
    return found == std::end(commands) ? QStringList() : found->run(*pluginClient, arguments);
}

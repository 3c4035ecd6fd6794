#include "frontend/CiteCommandHandler.h"

#include "frontend/ArgsFile.h"
#include "service/PluginComServer.h"

#include <algorithm>
#include <utility>

namespace {

using Operation = QStringList (*)(PluginComServer& service, const QStringList& arguments);

struct Command {
    const char* name;
    Operation run;
};

QString rendered(const QString& text)
{
    return text;
}

QString rendered(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString rendered(int number)
{
    return QString::number(number);
}

template <typename Result, typename... Texts, size_t... index>
QStringList call(Result (PluginComServer::*operation)(Texts...), PluginComServer& service,
    const QStringList& arguments, std::index_sequence<index...>)
{
    return {rendered((service.*operation)(arguments.value(int(index))...))};
}

template <typename Result, typename... Texts>
constexpr auto parameterIndices(Result (PluginComServer::*)(Texts...))
{
    return std::index_sequence_for<Texts...>();
}

/// A command that is one operation on as many texts as it has parameters, with one result.
template <auto operation> QStringList run(PluginComServer& service, const QStringList& arguments)
{
    return call(operation, service, arguments, parameterIndices(operation));
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
        results << rendered(service.lastErrorCitationIndex());
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
    QStringList results{rendered(styleIds.size())};
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

QStringList mergeFields(PluginComServer& service, const QStringList& arguments)
{
    return {service.mergeFields(arguments)};
}

// Every command that the macro knows.
constexpr Command commands[] = {
    {"setWordProcessor", setWordProcessor},
    {"getFieldCodeFromCitationEditor", run<&PluginComServer::getFieldCodeFromCitationEditor>},
    {"getFieldCodeFromUuid", run<&PluginComServer::getFieldCodeFromUuid>},
    {"getCitationStyleFromDialog", run<&PluginComServer::getCitationStyleFromDialog>},
    {"formatCitationsAndBibliography", formatCitationsAndBibliography},
    {"isTessaronRunning", run<&PluginComServer::isTessaronRunning>},
    {"launchTessaron", run<&PluginComServer::launchTessaron>},
    {"mergeFields", mergeFields},
    {"checkManualFormatAndGetFieldCode", run<&PluginComServer::checkManualFormatAndGetFieldCode>},
    {"undoManualFormat", run<&PluginComServer::undoManualFormat>},
    {"hasManualEdit", run<&PluginComServer::hasManualEdit>},
    {"getUserAccount", run<&PluginComServer::getUserAccount>},
    {"getUserUuid", run<&PluginComServer::getUserUuid>},
    {"getRecentStyles", getRecentStyles},
    {"tessaronProcessId", run<&PluginComServer::tessaronProcessId>},
    {"lastError", run<&PluginComServer::lastError>},
    {"getDesktopCitationStyleId", run<&PluginComServer::getDesktopCitationStyleId>},
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

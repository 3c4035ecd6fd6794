#include "frontend/CiteCommandHandler.h"

#include "frontend/ArgsFile.h"
#include "frontend/ExchangeFolder.h"
#include "service/PluginComServer.h"

#include <algorithm>

namespace {

using Service = PluginComServer;
using Results = QStringList;

/// A command's arguments by position. A missing argument is an empty string.
class Arguments {
public:
    explicit Arguments(const QStringList& texts)
        : all(texts)
    {
    }

    QString operator[](int position) const { return all.value(position); }

    const QStringList all;
};

QString toText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString toText(int number)
{
    return QString::number(number);
}

Results formatCitationsAndBibliography(Service& service, const Arguments& arguments)
{
    service.setCitationStyle(arguments[0]);
    service.resetCitations();
    int count = 0;
    // Ignores a trailing field code that has no text.
    for (int i = 1; i + 1 < arguments.all.size(); i += 2) {
        service.addCitation(arguments[i], arguments[i + 1]);
        ++count;
    }
    if (!service.formatCitationsAndBibliography()) {
        return {toText(false), toText(service.lastErrorCitationIndex())};
    }
    Results results{toText(true), service.getCitationStyleId(), service.getFormattedBibliography()};
    results.reserve(3 + 4 * count);
    for (int i = 0; i < count; ++i) {
        results << service.getFieldCode(i) << service.getFormattedCitation(i)
                << service.getPreviouslyFormattedCitation(i)
                << service.getPlainTextFormattedCitation(i);
    }
    return results;
}

Results getRecentStyles(Service& service)
{
    QStringList styleIds;
    QStringList styleNames;
    service.getRecentStyles(styleIds, styleNames);
    Results results{toText(int(styleIds.size()))};
    results.reserve(1 + 2 * styleIds.size());
    for (int i = 0; i < styleIds.size(); ++i) {
        results << styleIds.at(i) << styleNames.at(i);
    }
    return results;
}

struct Command {
    const char* name;
    Results (*run)(Service& service, const Arguments& arguments);
};

// Maps each command to its operation, its positional arguments and its results.
// clang-format off
constexpr Command commands[] = {
    {"setWordProcessor",
        [](Service& s, const Arguments& a) { s.setWordProcessor(a[0], a[1]); return Results(); }},
    {"getFieldCodeFromCitationEditor",
        [](Service& s, const Arguments& a) { return Results{s.getFieldCodeFromCitationEditor(a[0])}; }},
    {"getFieldCodeFromUuid",
        [](Service& s, const Arguments& a) { return Results{s.getFieldCodeFromUuid(a[0])}; }},
    {"getCitationStyleFromDialog",
        [](Service& s, const Arguments& a) { return Results{s.getCitationStyleFromDialog(a[0])}; }},
    {"formatCitationsAndBibliography",
        [](Service& s, const Arguments& a) { return formatCitationsAndBibliography(s, a); }},
    {"isTessaronRunning",
        [](Service& s, const Arguments&) { return Results{toText(s.isTessaronRunning())}; }},
    {"launchTessaron",
        [](Service& s, const Arguments&) { return Results{toText(s.launchTessaron())}; }},
    {"mergeFields",
        [](Service& s, const Arguments& a) { return Results{s.mergeFields(a.all)}; }},
    {"checkManualFormatAndGetFieldCode",
        [](Service& s, const Arguments& a) { return Results{s.checkManualFormatAndGetFieldCode(a[0], a[1])}; }},
    {"undoManualFormat",
        [](Service& s, const Arguments& a) { return Results{s.undoManualFormat(a[0])}; }},
    {"hasManualEdit",
        [](Service& s, const Arguments& a) { return Results{toText(s.hasManualEdit(a[0]))}; }},
    {"getUserAccount",
        [](Service& s, const Arguments&) { return Results{s.getUserAccount()}; }},
    {"getUserUuid",
        [](Service& s, const Arguments&) { return Results{s.getUserUuid()}; }},
    {"getRecentStyles",
        [](Service& s, const Arguments&) { return getRecentStyles(s); }},
    {"tessaronProcessId",
        [](Service& s, const Arguments&) { return Results{toText(s.tessaronProcessId())}; }},
    // Always empty: each command runs in a new process, in which no request has failed yet.
    {"lastError",
        [](Service& s, const Arguments&) { return Results{s.lastError()}; }},
    {"getDesktopCitationStyleId",
        [](Service& s, const Arguments&) { return Results{s.getDesktopCitationStyleId()}; }},
};
// clang-format on

} // namespace

CiteCommandHandler* CiteCommandHandler::initWithPluginClient(PluginComServer* service)
{
    pluginClient = service;
    return this;
}

QString CiteCommandHandler::handleCommand(const QString& command, const QString& folder)
{
    // `success` is ignored: without an argument file the command runs without arguments, and a
    // failed write returns the status "-1".
    bool success = false;
    const QStringList arguments = readArgsFile(argsFilePath(folder), &success);
    const QStringList results = handleCommandInternal(command, folder, arguments);
    return QString::number(writeArgsFile(resultsFilePath(folder), results, &success));
}

QStringList CiteCommandHandler::handleCommandInternal(
    const QString& command, const QString& folder, const QStringList& arguments)
{
    pluginClient->setTempDirectory(folder);
    const auto* const found = std::find_if(std::begin(commands), std::end(commands),
        [&command](const Command& known) { return command == QLatin1String(known.name); });
    return found == std::end(commands) ? QStringList()
                                       : found->run(*pluginClient, Arguments(arguments));
}

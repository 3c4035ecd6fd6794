#include "frontend/ExchangeFolder.h"

QString argsFilePath(const QString& folder)
{
    return folder + QStringLiteral("/mac-word-plugin-args.txt");
}

QString resultsFilePath(const QString& folder)
{
    return folder + QStringLiteral("/mac-word-plugin-results.txt");
}

QString readyFilePath(const QString& folder)
{
    return folder + QStringLiteral("/mac-word-plugin-result-ready.txt");
}

#pragma once

#include "tests/service/ServiceTest.h"

#include <QStringList>

inline const QByteArray batchPath = "/formattedCitationsAndBibliography/interactive";

/// Returns the four texts of the result `index`, in the order of CitationField.
inline QStringList result(PluginComServer& service, int index)
{
    return {service.getPreviouslyFormattedCitation(index), service.getFormattedCitation(index),
        service.getPlainTextFormattedCitation(index), service.getFieldCode(index)};
}

/// What result() returns for an index out of range.
inline const QStringList noResult{QStringLiteral("no such citation"),
    QStringLiteral("no such citation"), QStringLiteral("no such citation"),
    QStringLiteral("invalid_index")};

/// A citation in a reply, and what result() returns for it.
inline const QByteArray goodEntry = R"({"formattedText":"new","citationCluster":{"tessaron":)"
                                    R"({"previouslyFormattedCitation":"former",)"
                                    R"("plainTextFormattedCitation":"plain"}}})";
inline const QStringList goodResult{QStringLiteral("former"), QStringLiteral("new"),
    QStringLiteral("plain"),
    QStringLiteral("ADDIN CSL_CITATION {\"tessaron\":{\"plainTextFormattedCitation\":\"plain\","
                   "\"previouslyFormattedCitation\":\"former\"}}")};

/// A reply to a batch with the citations `entries`, the style "style" and the bibliography "bib".
inline ScriptedReply batchReply(const QByteArrayList& entries)
{
    return ScriptedReply::json(R"({"citationStyleUrl":"style","bibliography":"bib",)"
                               R"("citationClusters":[)"
        + entries.join(',') + "]}");
}

/// Formats a new batch of `count` citations. The application replies with `reply`.
inline bool format(
    ScriptedServer& server, PluginComServer& service, int count, const ScriptedReply& reply)
{
    service.resetCitations();
    for (int i = 0; i < count; ++i) {
        service.addCitation(QString::number(i), QString());
    }
    server.expect("POST", batchPath, reply);
    return service.formatCitationsAndBibliography();
}

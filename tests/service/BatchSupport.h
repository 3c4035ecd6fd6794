#pragma once

#include "service/PluginComServer.h"

#include "tests/service/ServiceFixture.h"

#include <QStringList>

inline const QByteArray batchPath = "/formattedCitationsAndBibliography/interactive";

inline const QString noCitation = QStringLiteral("no such citation");
inline const QString noFieldCode = QStringLiteral("invalid_index");

/// The four texts of one citation, in the order of CitationField.
inline QStringList citation(PluginComServer& service, int index)
{
    return {service.getPreviouslyFormattedCitation(index), service.getFormattedCitation(index),
        service.getPlainTextFormattedCitation(index), service.getFieldCode(index)};
}

inline const QStringList outOfRange{noCitation, noCitation, noCitation, noFieldCode};

inline const QByteArray goodEntry = R"({"formattedText":"new","citationCluster":{"tessaron":)"
                                    R"({"previouslyFormattedCitation":"former",)"
                                    R"("plainTextFormattedCitation":"plain"}}})";
inline const QStringList goodCitation{QStringLiteral("former"), QStringLiteral("new"),
    QStringLiteral("plain"),
    QStringLiteral("ADDIN CSL_CITATION {\"tessaron\":{\"plainTextFormattedCitation\":\"plain\","
                   "\"previouslyFormattedCitation\":\"former\"}}")};

inline QByteArray answer(const QByteArray& clusters)
{
    return R"({"citationStyleUrl":"style","bibliography":"bib","citationClusters":)" + clusters
        + "}";
}

/// Formats `count` citations, the reply being `reply`.
inline bool format(
    ServiceFixture& fixture, PluginComServer& service, int count, const ScriptedReply& reply)
{
    service.resetCitations();
    for (int i = 0; i < count; ++i) {
        service.addCitation(QString::number(i), QString());
    }
    fixture.server.expect("POST", batchPath, reply);
    return service.formatCitationsAndBibliography();
}

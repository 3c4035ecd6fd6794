#include "service/PluginComServer.h"

#include "apiclient/json/JsonUtils.h"
#include "service/DesktopApplication.h"
#include "service/DesktopSettings.h"
#include "service/FieldCode.h"

#include <QDebug>
#include <QElapsedTimer>

#include <csignal>
#include <unistd.h>

namespace {

QString noSuchCitation()
{
    return QStringLiteral("no such citation");
}

/// Returns the list in `value`; empty for a value of any other type. In Qt 6, QVariant::toList()
/// turns a string into the list of its characters.
QVariantList listFrom(const QVariant& value)
{
    return value.userType() == QMetaType::QVariantList ? value.toList() : QVariantList();
}

/// Returns the contents of `entry`, one citation in the reply to a batch. Most field codes do not
/// change; one that is equal to `sentFieldCode` shares its memory.
PluginComServer::CitationField citationFromReply(
    const QVariantMap& entry, const QString& sentFieldCode)
{
    const QVariantMap tessaron =
        JsonUtils::getValueAtPath(entry, QStringLiteral("citationCluster.tessaron")).toMap();
    const QString fieldCode = clusterToFieldCode(entry);
    return {tessaron.value(QStringLiteral("previouslyFormattedCitation")).toString(),
        entry.value(QStringLiteral("formattedText")).toString(),
        tessaron.value(QStringLiteral("plainTextFormattedCitation")).toString(),
        fieldCode == sentFieldCode ? sentFieldCode : fieldCode};
}

} // namespace

PluginComServer::PluginComServer(QObject* parent)
    : QObject(parent)
    , apiClient(new PluginApiClient(tessaronDesktopTcpPort()))
{
}

PluginComServer::~PluginComServer() = default;

QString PluginComServer::pluginVersion()
{
    return QStringLiteral("1.0");
}

QString PluginComServer::lastError()
{
    return apiClient->lastError();
}

// Dialogs and single citations

QString PluginComServer::getCitationStyleFromDialog(const QString& selectedStyleId)
{
    QVariantMap response;
    // Fixed by the interface: the status is ignored.
    apiClient->postRequest(QStringLiteral("/citationStyle/choose/interactive"),
        {{QStringLiteral("currentStyleUrl"), selectedStyleId}}, &response);
    return response.value(QStringLiteral("citationStyleUrl")).toString();
}

QString PluginComServer::getFieldCodeFromCitationEditor(const QString& currentFieldCode)
{
    QVariantMap request;
    QString path = QStringLiteral("/citation/choose/interactive");
    if (!currentFieldCode.isEmpty()) {
        request.insert(QStringLiteral("fieldCode"), currentFieldCode);
        path = QStringLiteral("/citation/edit/interactive");
    }
    QVariantMap response;
    if (apiClient->postRequest(path, request, &response) != 200) {
        return {};
    }
    const QVariantMap cluster = response.value(QStringLiteral("citationCluster")).toMap();
    if (listFrom(cluster.value(QStringLiteral("citationItems"))).isEmpty()) {
        return currentFieldCode;
    }
    return clusterToFieldCode(response);
}

QString PluginComServer::getFieldCodeFromUuid(const QString& uuid)
{
    // Fixed by the interface: this command uses a test route of the application.
    return postForFieldCode(QStringLiteral("/testMethods/citationCluster/getFromUuid"),
        {{QStringLiteral("documentUuid"), uuid}}, QString());
}

void PluginComServer::allowSetFocus(int processId)
{
    QVariantMap response;
    apiClient->postRequest(
        QStringLiteral("/allowSetFocus"), {{QStringLiteral("processId"), processId}}, &response);
}

QString PluginComServer::mergeFields(const QStringList& fieldCodes)
{
    QVariantList clusters;
    clusters.reserve(fieldCodes.size());
    for (const QString& fieldCode : fieldCodes) {
        clusters.append(QVariantMap{{QStringLiteral("fieldCode"), fieldCode}});
    }
    return postForFieldCode(QStringLiteral("/citations/merge"),
        {{QStringLiteral("citationClusters"), clusters}}, QString());
}

QString PluginComServer::checkManualFormatAndGetFieldCode(
    const QString& fieldCode, const QString& formattedCitation)
{
    return postForFieldCode(QStringLiteral("/citation/update/interactive"),
        {{QStringLiteral("formattedText"), formattedCitation},
            {QStringLiteral("fieldCode"), fieldCode}},
        fieldCode);
}

QString PluginComServer::undoManualFormat(const QString& fieldCode)
{
    return postForFieldCode(QStringLiteral("/citation/undoManualFormat"),
        {{QStringLiteral("fieldCode"), fieldCode}}, fieldCode);
}

bool PluginComServer::hasManualEdit(const QString& fieldCode)
{
    // Fixed by the interface: only the key counts. Its value may be false, null or empty.
    const QVariantMap cluster = jsonFromFieldCode(fieldCode);
    return cluster.value(QStringLiteral("tessaron"))
        .toMap()
        .contains(QStringLiteral("manualFormatting"));
}

void PluginComServer::setWordProcessor(const QString& processor, const QString& version)
{
    QVariantMap response;
    apiClient->postRequest(QStringLiteral("/wordProcessor/set"),
        {{QStringLiteral("wordProcessor"), processor}, {QStringLiteral("version"), version}},
        &response);
}

/// Posts `request` and returns the field code in the reply, or `onFailure` if the request failed.
QString PluginComServer::postForFieldCode(
    const QString& path, const QVariantMap& request, const QString& onFailure)
{
    QVariantMap response;
    return apiClient->postRequest(path, request, &response) == 200 ? clusterToFieldCode(response)
                                                                   : onFailure;
}

// Styles and account

int PluginComServer::getRecentStyles(QStringList& styleIds, QStringList& styleNames)
{
    styleIds.clear();
    styleNames.clear();
    QVariantMap response;
    if (apiClient->getRequest(QStringLiteral("/citationStyles/default"), &response) == 200) {
        const QVariantList styles = listFrom(response.value(QStringLiteral("citationStyles")));
        for (const QVariant& style : styles) {
            const QVariantMap entry = style.toMap();
            styleIds.append(entry.value(QStringLiteral("url")).toString());
            styleNames.append(entry.value(QStringLiteral("title")).toString());
        }
    }
    return int(styleIds.size());
}

QString PluginComServer::getDesktopCitationStyleId()
{
    return getText(QStringLiteral("/citationStyle/selected"), QStringLiteral("citationStyleId"),
        QStringLiteral("Can't get selected citation style id - error: %1. Server error '%2'"));
}

QString PluginComServer::getUserAccount()
{
    return getText(QStringLiteral("/userAccount"), QStringLiteral("account"),
        QStringLiteral("Unable to retrieve account - error: %1. Server error '%2'"));
}

QString PluginComServer::getUserUuid()
{
    return getText(QStringLiteral("/userUuid"), QStringLiteral("uuid"),
        QStringLiteral("Unable to retrieve uuid - error: %1. Server error '%2'"));
}

/// Returns the text under `key` in the reply to a GET. On failure returns `failureMessage` with the
/// status for %1 and the error for %2. Fixed by the interface: the message is returned in place of
/// the value.
QString PluginComServer::getText(
    const QString& path, const QString& key, const QString& failureMessage)
{
    QVariantMap response;
    const int status = apiClient->getRequest(path, &response);
    return status == 200 ? response.value(key).toString()
                         : failureMessage.arg(status).arg(apiClient->lastError());
}

// The batch

void PluginComServer::setCitationStyle(const QString& styleId)
{
    citationStyle = styleId;
}

QString PluginComServer::getCitationStyleId()
{
    return citationStyle;
}

void PluginComServer::setTempDirectory(const QString& tempDir)
{
    tempDirectory = tempDir;
}

void PluginComServer::resetCitations()
{
    citations.clear();
}

void PluginComServer::addCitation(const QString& fieldCode, const QString& formattedCitation)
{
    citations.append({QString(), formattedCitation, QString(), fieldCode});
}

bool PluginComServer::formatCitationsAndBibliography()
{
    const auto submittedCount = citations.size();
    formattedCitations.clear();
    m_lastErrorCitationIndex = -1;

    int position = 0;
    const auto toCitation = [this, &position](const QVariant& entry) {
        const QString sent = citations.value(position++).fieldCode;
        return QVariant::fromValue(citationFromReply(entry.toMap(), sent));
    };
    QVariantMap response;
    const QString clustersKey = QStringLiteral("citationClusters");
    const int status =
        apiClient->postRequest(QStringLiteral("/formattedCitationsAndBibliography/interactive"),
            batchRequest(), &response, {clustersKey, toCitation});
    if (status != 200) {
        const auto index = response.constFind(QStringLiteral("citationIndex"));
        if (index != response.constEnd()) {
            m_lastErrorCitationIndex = index->toInt();
        }
        return false;
    }

    // Fixed by the interface: a reply without a style replaces the stored one with an empty one.
    citationStyle = response.value(QStringLiteral("citationStyleUrl")).toString();
    for (const QVariant& citation : listFrom(response.value(clustersKey))) {
        formattedCitations.append(citation.value<CitationField>());
    }
    formattedBibliography = response.value(QStringLiteral("bibliography")).toString();

    if (formattedCitations.size() != submittedCount) {
        // Fixed by the interface: the two spaces, and "only" also if more were received.
        qWarning() << "Citation count mismatch.  Submitted" << submittedCount
                   << "citations but only received" << formattedCitations.size()
                   << "formatted citations.";
        return false;
    }
    if (formattedBibliography.isEmpty()) {
        qWarning() << "No formatted bibliography returned";
        return false;
    }
    return true;
}

QVariantMap PluginComServer::batchRequest() const
{
    QVariantList clusters;
    clusters.reserve(citations.size());
    for (const CitationField& citation : citations) {
        clusters.append(QVariantMap{{QStringLiteral("fieldCode"), citation.fieldCode},
            {QStringLiteral("formattedText"), citation.formattedCitation}});
    }
    return {{QStringLiteral("citationStyleUrl"), citationStyle},
        {QStringLiteral("citationClusters"), clusters},
        {QStringLiteral("tempDirectory"), tempDirectory}};
}

QString PluginComServer::getFormattedCitation(int index)
{
    return citationText(index, &CitationField::formattedCitation, noSuchCitation());
}

QString PluginComServer::getPlainTextFormattedCitation(int index)
{
    return citationText(index, &CitationField::plainTextFormattedCitation, noSuchCitation());
}

QString PluginComServer::getPreviouslyFormattedCitation(int index)
{
    return citationText(index, &CitationField::previouslyFormattedCitation, noSuchCitation());
}

QString PluginComServer::getFieldCode(int index)
{
    // Fixed by the interface: the two texts differ.
    return citationText(index, &CitationField::fieldCode, QStringLiteral("invalid_index"));
}

QString PluginComServer::citationText(
    int index, QString CitationField::*text, const QString& outOfRange) const
{
    return index >= 0 && index < formattedCitations.size() ? formattedCitations.at(index).*text
                                                           : outOfRange;
}

int PluginComServer::lastErrorCitationIndex()
{
    return m_lastErrorCitationIndex;
}

QString PluginComServer::getFormattedBibliography()
{
    return formattedBibliography;
}

// The application's process

bool PluginComServer::isTessaronRunning()
{
    // Fixed by the interface: only the low 32 bits of the id count.
    if (desktopProcessId != 0 && kill(pid_t(desktopProcessId), 0) == 0) {
        return true;
    }
    desktopProcessId = 0;
    QVariantMap response;
    if (apiClient->getRequest(QStringLiteral("/tessaronDesktopInfo"), &response) == 200) {
        desktopProcessId = qint64(response.value(QStringLiteral("processId")).toULongLong());
    }
    return desktopProcessId != 0;
}

int PluginComServer::tessaronProcessId()
{
    return isTessaronRunning() ? int(desktopProcessId) : 0;
}

bool PluginComServer::launchTessaron()
{
    if (isTessaronRunning()) {
        return true;
    }
    const int status = openDesktopApplication();
    if (status != 0) {
        apiClient->setLastError(QStringLiteral("Unable to start Tessaron Desktop: %1").arg(status));
        return false;
    }
    constexpr qint64 longestWaitMs = 10000;
    constexpr useconds_t pauseUs = 100000;
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < longestWaitMs && !isTessaronRunning()) {
        usleep(pauseUs);
    }
    // Checks once more, because the loop may have ended after a pause.
    return isTessaronRunning();
}

#pragma once

#include "apiclient/PluginApiClient.h"

#include <QObject>
#include <QScopedPointer>
#include <QString>
#include <QStringList>
#include <QVector>

/// The service of one run: the state of one command and every operation that a macro can ask
/// for, each a slot, so that they can also be called by name through the meta-object.
///
/// An operation that asks the application blocks until it answers; for a path that ends in
/// "/interactive" that is as long as the user keeps its dialog open. Success is the HTTP status
/// 200 exactly. What each operation answers on failure stands beside it; the reason is in
/// lastError(). No operation may be called while another one runs.
class PluginComServer : public QObject {
    Q_OBJECT
    Q_CLASSINFO("Version", "1.1")
    Q_CLASSINFO("ClassID", "7D1F3C52-9A84-4E0B-8C6D-25B7E1A90F34")
    Q_CLASSINFO("InterfaceID", "B2E6A7D8-41C3-4F95-9E72-6C08D35F1BA1")
    Q_CLASSINFO("EventsID", "E95C0B16-78DA-4A2F-B3E1-F04D92C6578E")
    Q_CLASSINFO("RegisterObject", "yes")

public:
    /// One citation of a batch.
    struct CitationField {
        QString previouslyFormattedCitation; ///< from the reply: what the application last wrote
        QString formattedCitation; ///< sent: the text in the document; from the reply: the new one
        QString plainTextFormattedCitation; ///< from the reply: the new text without markup
        QString fieldCode; ///< sent: as the document holds it; from the reply: the new one
    };

    /// Reads the application's port from its settings; sends nothing and cannot fail.
    explicit PluginComServer(QObject* parent = nullptr);
    ~PluginComServer() override;

    // The order of the slots is the order of the meta-object's methods: callers by index rely
    // on it.
public Q_SLOTS:
    /// "1.0". The class information says "1.1": two versions of two things.
    QString pluginVersion();

    /// Why the last failed request or start of the application failed; empty before the first.
    QString lastError();

    /// Opens the style chooser at `selectedStyleId`. Returns the "citationStyleUrl" of the
    /// answer, whatever its status; empty without one (failure, or nothing chosen).
    QString getCitationStyleFromDialog(const QString& selectedStyleId);

    /// Opens the editor for `currentFieldCode`, or the citation chooser when it is empty.
    /// Returns the new field code; `currentFieldCode` when the answer holds no citation items
    /// (cancelled); empty text on failure.
    QString getFieldCodeFromCitationEditor(const QString& currentFieldCode);

    /// Returns the field code of the library's entry `uuid`; empty text on failure.
    QString getFieldCodeFromUuid(const QString& uuid);

    /// Tells the application that process `processId` lets it take the keyboard focus. A failure
    /// shows in lastError() alone.
    void allowSetFocus(int processId);

    /// Returns the field code of one citation made of all of `fieldCodes`; empty text on failure.
    QString mergeFields(const QStringList& fieldCodes);

    /// Records that a user changed the text of `fieldCode` to `formattedCitation`. Returns the
    /// field code with that record; `fieldCode` on failure.
    QString checkManualFormatAndGetFieldCode(
        const QString& fieldCode, const QString& formattedCitation);

    /// Removes such a record. Returns the new field code; `fieldCode` on failure.
    QString undoManualFormat(const QString& fieldCode);

    /// Tells the application which word processor calls, and its version. A failure shows in
    /// lastError() alone.
    void setWordProcessor(const QString& processor, const QString& version);

    /// Replaces both lists by the recent styles' URLs and titles, in the application's order.
    /// Returns their number; 0 with two empty lists on failure.
    int getRecentStyles(QStringList& styleIds, QStringList& styleNames);

    /// Stores the style of the next batch; sends nothing.
    void setCitationStyle(const QString& styleId);

    /// The style as set, or as the last successful batch returned it.
    QString getCitationStyleId();

    /// The user's account; on failure a message that names the status and the error.
    QString getUserAccount();

    /// The user's id; on failure a message that names the status and the error.
    QString getUserUuid();

    /// Empties the batch; results of an earlier one stay.
    void resetCitations();

    /// Adds one citation to the batch, in document order: its field code and the text that the
    /// document shows for it now.
    void addCitation(const QString& fieldCode, const QString& formattedCitation);

    /// Formats the whole batch and the bibliography in one request. Returns true only when the
    /// answer holds as many citations as were sent and a bibliography. False when the request
    /// failed (lastErrorCitationIndex() then names a rejected citation), and also when the
    /// answer was stored but its count differs or its bibliography is empty.
    bool formatCitationsAndBibliography();

    /// The results of the last batch by index, from 0 in the order of addCitation(). An index
    /// out of range gives "no such citation", for a field code "invalid_index".
    QString getFormattedCitation(int index);
    QString getPlainTextFormattedCitation(int index);
    QString getPreviouslyFormattedCitation(int index);
    QString getFieldCode(int index);

    /// The index of the citation that the application rejected in the last batch, as a number (0
    /// for anything that is none); -1 when it named none.
    int lastErrorCitationIndex();

    /// The bibliography of the last batch that was answered with status 200.
    QString getFormattedBibliography();

    /// Starts the application when it does not run, and asks for ten seconds whether its API
    /// answers; one that takes a connection and stays silent is waited for. Returns whether it
    /// answers; a failed start is told by lastError().
    bool launchTessaron();

    /// Whether the application runs: whether its process id, once known, is that of a process, and
    /// until then whether it answers.
    bool isTessaronRunning();

    /// The application's process id, 0 when it does not run.
    int tessaronProcessId();

    /// Whether `fieldCode` carries a record of a manual edit. Sends nothing; false for a field
    /// code that cannot be read.
    bool hasManualEdit(const QString& fieldCode);

    /// The style selected in the application; on failure a message that names the status and
    /// the error.
    QString getDesktopCitationStyleId();

    /// Stores the folder that goes along with a batch.
    void setTempDirectory(const QString& tempDir);

private:
    QString postForFieldCode(
        const QString& path, const QVariantMap& request, const QString& onFailure);
    QString getText(const QString& path, const QString& key, const QString& failureMessage);
    QVariantMap batchRequest() const;
    void storeFormattedCitations(QVariantList clusters);
    QString citationText(int index, QString CitationField::*text, const QString& outOfRange) const;

    QScopedPointer<PluginApiClient> apiClient;
    QString citationStyle;
    QVector<CitationField> citations;
    QVector<CitationField> formattedCitations;
    QString formattedBibliography;
    QString tempDirectory;
    qint64 desktopProcessId = 0;
    int m_lastErrorCitationIndex = -1;
};

Q_DECLARE_TYPEINFO(PluginComServer::CitationField, Q_MOVABLE_TYPE);

#pragma once

#include "apiclient/PluginApiClient.h"

#include <QObject>
#include <QScopedPointer>
#include <QString>
#include <QStringList>
#include <QVector>

/// The state of one command and every operation that a macro can request. Each operation is a slot,
/// so it can also be called by name through the meta-object.
///
/// An operation that sends a request blocks until the application has replied; there is no timeout.
/// If its path ends in "/interactive", that can last as long as the user keeps a dialog open. A
/// request succeeds only with HTTP status 200; any other status, or no reply, is a failure. Each
/// operation's comment states what it returns on failure. After a failed request lastError() has
/// the reason. A reply with status 200 that lacks the expected content does not change lastError().
///
/// An operation that returns a field code returns "ADDIN CSL_CITATION null" if a reply with status
/// 200 contains no cluster. The exception is getFieldCodeFromCitationEditor().
///
/// An operation must not be called while another one of the same object is running.
class PluginComServer : public QObject {
    Q_OBJECT
    // Fixed by the interface: never change these values. "Version" differs from pluginVersion().
    Q_CLASSINFO("Version", "1.1")
    Q_CLASSINFO("ClassID", "7D1F3C52-9A84-4E0B-8C6D-25B7E1A90F34")
    Q_CLASSINFO("InterfaceID", "B2E6A7D8-41C3-4F95-9E72-6C08D35F1BA1")
    Q_CLASSINFO("EventsID", "E95C0B16-78DA-4A2F-B3E1-F04D92C6578E")
    Q_CLASSINFO("RegisterObject", "yes")

public:
    /// One citation of a batch, as sent or as received.
    struct CitationField {
        QString previouslyFormattedCitation; ///< received: the text that the application recorded
        QString formattedCitation; ///< sent: the text in the document; received: the new text
        QString plainTextFormattedCitation; ///< received: the new text without markup
        QString fieldCode; ///< sent: the field code in the document; received: the new one
    };

    /// Reads the application's port from its settings. Sends nothing and cannot fail: with a wrong
    /// port, the first request fails.
    explicit PluginComServer(QObject* parent = nullptr);
    ~PluginComServer() override;

    // Fixed by the interface: the order of the slots, because callers know them by index. Add new
    // ones at the end.
public Q_SLOTS:
    /// Returns "1.0". Fixed by the interface, like the different "Version" above.
    QString pluginVersion();

    /// Returns the reason of the last failed request or failed start of the application; empty
    /// before the first failure. A success leaves it unchanged.
    QString lastError();

    /// Opens the style dialog with `selectedStyleId` selected. Returns the reply's
    /// "citationStyleUrl", regardless of the HTTP status, or an empty string if the reply has none
    /// (failure, or the user chose nothing). Does not store the style.
    QString getCitationStyleFromDialog(const QString& selectedStyleId);

    /// Opens the citation editor for `currentFieldCode`, or the citation chooser if it is empty.
    /// Returns the new field code, or `currentFieldCode` if the reply contains no citation items
    /// (the user cancelled). Returns an empty string on failure.
    QString getFieldCodeFromCitationEditor(const QString& currentFieldCode);

    /// Returns the field code of the library entry `uuid`, or an empty string on failure.
    QString getFieldCodeFromUuid(const QString& uuid);

    /// Informs the application that process `processId` allows it to take the keyboard focus. A
    /// failure is visible only in lastError().
    void allowSetFocus(int processId);

    /// Returns the field code of one citation that joins all of `fieldCodes`, or an empty string on
    /// failure.
    QString mergeFields(const QStringList& fieldCodes);

    /// Records in the citation that the user changed its text to `formattedCitation`. Returns the
    /// field code with that record, or `fieldCode` on failure.
    QString checkManualFormatAndGetFieldCode(
        const QString& fieldCode, const QString& formattedCitation);

    /// Removes the record of a manual edit. Returns the new field code, or `fieldCode` on failure.
    QString undoManualFormat(const QString& fieldCode);

    /// Informs the application which word processor is calling, and its version. A failure is
    /// visible only in lastError().
    void setWordProcessor(const QString& processor, const QString& version);

    /// Replaces both lists with the URLs and titles of the recent styles, in the application's
    /// order, and returns their number. On failure, and if a reply with status 200 contains no
    /// list, both lists are empty and the result is 0.
    int getRecentStyles(QStringList& styleIds, QStringList& styleNames);

    /// Stores the style of the next batch. Sends nothing.
    void setCitationStyle(const QString& styleId);

    /// Returns the stored style: the one that was set, or the one in the last reply to a batch with
    /// status 200, which replaces it. It becomes empty if that reply contained none.
    QString getCitationStyleId();

    // Fixed by the interface: on failure the following two, and getDesktopCitationStyleId(), return
    // a message in place of the value. If a reply with status 200 lacks the value, they return an
    // empty string.

    /// Returns the user's account, or on failure a message with the status and the error.
    QString getUserAccount();

    /// Returns the user's id, or on failure a message with the status and the error.
    QString getUserUuid();

    /// Empties the batch. Keeps the results of the previous batch.
    void resetCitations();

    /// Adds a citation to the batch: its field code and its current text in the document. The order
    /// of the calls must be the order in the document.
    void addCitation(const QString& fieldCode, const QString& formattedCitation);

    /// Formats the batch and the bibliography with one request. The batch is kept, so it can be
    /// sent again. Returns true only if the reply contains as many citations as were sent and a
    /// bibliography that is not empty.
    ///
    /// Returns false if the request failed. The results are then empty, the stored style and
    /// bibliography are unchanged, and lastErrorCitationIndex() returns the rejected citation.
    ///
    /// Logs a warning and returns false if a reply with status 200 contains a different
    /// number of citations or no bibliography. Its results, bibliography and style are stored
    /// nevertheless, lastErrorCitationIndex() returns -1 and lastError() is unchanged.
    bool formatCitationsAndBibliography();

    /// The results of the last batch, by index from 0 in the order of addCitation(). If the index
    /// is out of range, the first three return "no such citation" and getFieldCode() returns
    /// "invalid_index". Fixed by the interface: the two texts differ.
    QString getFormattedCitation(int index);
    QString getPlainTextFormattedCitation(int index);
    QString getPreviouslyFormattedCitation(int index);
    QString getFieldCode(int index);

    /// Returns the index of the citation that the application rejected in the last batch: -1 if it
    /// named none, 0 if it named something that is not a number.
    int lastErrorCitationIndex();

    /// Returns the bibliography in the last reply to a batch with status 200; empty before the
    /// first such reply.
    QString getFormattedBibliography();

    /// Starts the application unless it is running, and polls its local API for up to ten seconds.
    /// Returns true as soon as the application is running, and false if it does not reply within
    /// that time. If the start itself failed, returns false at once, and lastError() contains the
    /// number from openDesktopApplication(). An application that accepts the connection but never
    /// replies blocks this call.
    bool launchTessaron();

    /// Returns whether the application is running. Sends no request if a process with the last
    /// known id exists and this process may signal it. Otherwise asks the application for its id. A
    /// reply with status 200 and no process id, or 0, means that the application is not running;
    /// such a reply does not change lastError().
    bool isTessaronRunning();

    /// Returns the application's process id (its low 32 bits), or 0 if it is not running.
    int tessaronProcessId();

    /// Returns whether `fieldCode` contains a record of a manual edit; false if it cannot be read.
    /// Sends nothing.
    bool hasManualEdit(const QString& fieldCode);

    /// Returns the style selected in the application, or on failure a message with the status and
    /// the error.
    QString getDesktopCitationStyleId();

    /// Stores the folder that is sent with each batch. Neither checks nor creates it.
    void setTempDirectory(const QString& tempDir);

private:
    QString postForFieldCode(
        const QString& path, const QVariantMap& request, const QString& onFailure);
    QString getText(const QString& path, const QString& key, const QString& failureMessage);
    QVariantMap batchRequest() const;
    QString citationText(int index, QString CitationField::*text, const QString& outOfRange) const;

    QScopedPointer<PluginApiClient> apiClient;
    QString citationStyle;
    QVector<CitationField> citations;
    QVector<CitationField> formattedCitations;
    QString formattedBibliography;
    QString tempDirectory;
    qint64 desktopProcessId = 0; // 0 if unknown
    int m_lastErrorCitationIndex = -1;
};

Q_DECLARE_METATYPE(PluginComServer::CitationField)
Q_DECLARE_TYPEINFO(PluginComServer::CitationField, Q_MOVABLE_TYPE);

#pragma once

#include "service/PluginComServer.h"

#include <QByteArray>
#include <QList>

/// What the meta-object tells about one operation, and the request that the operation sends.
struct Operation {
    const char* result;
    const char* name;
    const char* parameterTypes; ///< joined with commas
    const char* parameterNames; ///< joined with commas
    const char* method; ///< of the request that it sends; empty for none
    const char* path;
};

// In the order of the meta-object: callers by index rely on it.
inline constexpr Operation operations[] = {
    {"QString", "pluginVersion", "", "", "", ""},
    {"QString", "lastError", "", "", "", ""},
    {"QString", "getCitationStyleFromDialog", "QString", "selectedStyleId", "POST",
        "/citationStyle/choose/interactive"},
    {"QString", "getFieldCodeFromCitationEditor", "QString", "currentFieldCode", "POST",
        "/citation/choose/interactive"},
    {"QString", "getFieldCodeFromUuid", "QString", "uuid", "POST",
        "/testMethods/citationCluster/getFromUuid"},
    {"void", "allowSetFocus", "int", "processId", "POST", "/allowSetFocus"},
    {"QString", "mergeFields", "QStringList", "fieldCodes", "POST", "/citations/merge"},
    {"QString", "checkManualFormatAndGetFieldCode", "QString,QString",
        "fieldCode,formattedCitation", "POST", "/citation/update/interactive"},
    {"QString", "undoManualFormat", "QString", "fieldCode", "POST", "/citation/undoManualFormat"},
    {"void", "setWordProcessor", "QString,QString", "processor,version", "POST",
        "/wordProcessor/set"},
    {"int", "getRecentStyles", "QStringList&,QStringList&", "styleIds,styleNames", "GET",
        "/citationStyles/default"},
    {"void", "setCitationStyle", "QString", "styleId", "", ""},
    {"QString", "getCitationStyleId", "", "", "", ""},
    {"QString", "getUserAccount", "", "", "GET", "/userAccount"},
    {"QString", "getUserUuid", "", "", "GET", "/userUuid"},
    {"void", "resetCitations", "", "", "", ""},
    {"void", "addCitation", "QString,QString", "fieldCode,formattedCitation", "", ""},
    {"bool", "formatCitationsAndBibliography", "", "", "POST",
        "/formattedCitationsAndBibliography/interactive"},
    {"QString", "getFormattedCitation", "int", "index", "", ""},
    {"QString", "getPlainTextFormattedCitation", "int", "index", "", ""},
    {"QString", "getPreviouslyFormattedCitation", "int", "index", "", ""},
    {"QString", "getFieldCode", "int", "index", "", ""},
    {"int", "lastErrorCitationIndex", "", "", "", ""},
    {"QString", "getFormattedBibliography", "", "", "", ""},
    {"bool", "launchTessaron", "", "", "GET", "/tessaronDesktopInfo"},
    {"bool", "isTessaronRunning", "", "", "GET", "/tessaronDesktopInfo"},
    {"int", "tessaronProcessId", "", "", "GET", "/tessaronDesktopInfo"},
    {"bool", "hasManualEdit", "QString", "fieldCode", "", ""},
    {"QString", "getDesktopCitationStyleId", "", "", "GET", "/citationStyle/selected"},
    {"void", "setTempDirectory", "QString", "tempDir", "", ""},
};
inline constexpr int operationCount = 30;
static_assert(sizeof operations / sizeof *operations == operationCount, "");

inline const QMetaObject& meta()
{
    return PluginComServer::staticMetaObject;
}

inline int globalIndex(int localIndex)
{
    return meta().methodOffset() + localIndex;
}

inline QList<QByteArray> splitList(const char* joined)
{
    return *joined == '\0' ? QList<QByteArray>() : QByteArray(joined).split(',');
}

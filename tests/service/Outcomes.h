#pragma once

#include "tests/support/ScriptedServer.h"

#include <QList>
#include <QMetaType>
#include <QString>

/// A reply whose status is not 200, and the error text that it leaves.
struct Outcome {
    const char* name;
    ScriptedReply reply;
    /// Whether the body is the one of a success.
    bool holdsTheAnswer;
    QString error;
    /// With an empty body the text is the transport's own, in which `error` occurs.
    bool errorIsTheTransports;

    bool explains(const QString& lastError) const
    {
        return errorIsTheTransports ? lastError.contains(error) : lastError == error;
    }
};

Q_DECLARE_METATYPE(Outcome)

/// Every kind of failed reply; some carry `answer`, the JSON object of a success.
inline QList<Outcome> failures(const QByteArray& answer)
{
    const auto withAnswer = [&answer](const char* name, int status) {
        return Outcome{
            name, ScriptedReply::json(answer, status), true, QString::fromUtf8(answer), false};
    };
    const auto other = [](const char* name, int status, const char* body, const char* error) {
        return Outcome{
            name, ScriptedReply::json(body, status), false, QString::fromUtf8(error), false};
    };
    const auto empty = [](const char* name, const QByteArray& head, const char* error) {
        return Outcome{name,
            ScriptedReply{head + "\r\nContent-Length: 0\r\n\r\n", ScriptedReply::KeepOpen, -1},
            false, QString::fromUtf8(error), true};
    };
    const QByteArray redirect = "HTTP/1.1 302 Found\r\nLocation: /userUuid\r\nContent-Length: ";
    return {
        withAnswer("201 with the answer", 201),
        withAnswer("202 with the answer", 202),
        withAnswer("404 with the answer", 404),
        withAnswer("500 with the answer", 500),
        {"302 with the answer",
            {redirect + QByteArray::number(answer.size()) + "\r\n\r\n" + answer,
                ScriptedReply::KeepOpen, -1},
            true, QString::fromUtf8(answer), false},
        empty("201, empty", "HTTP/1.1 201 Created", "Unknown error"),
        empty("204", "HTTP/1.1 204 No Content", "Unknown error"),
        empty("302, empty", "HTTP/1.1 302 Found\r\nLocation: /userUuid", "Unknown error"),
        empty("404, empty", "HTTP/1.1 404 Not Found", "Not Found"),
        empty("500, empty", "HTTP/1.1 500 Internal Server Error", "Internal Server Error"),
        other("404, error text", 404, R"({"error":"no %1 %2"})", "no %1 %2"),
        other("500, error number", 500, R"({"error":42})", "42"),
        other("500, error object", 500, R"({"error":{"text":"x"}})", ""),
        other("500, error null", 500, R"({"error":null})", ""),
        other("500, no error key", 500, R"({"reason":"%1"})", R"({"reason":"%1"})"),
        other("500, not JSON", 500, "<h1>Ünfug %2</h1>", "<h1>Ünfug %2</h1>"),
        other("500, array", 500, R"([{"error":"x"}])", R"([{"error":"x"}])"),
        other("404, cut off", 404, R"({"error":"x)", R"({"error":"x)"),
    };
}

/// Whether `error` is the transport's own text for a connection that was refused.
inline bool isRefusal(const QString& error)
{
    return error.contains(QStringLiteral("refused"));
}

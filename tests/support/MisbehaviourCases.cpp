#include "tests/support/MisbehaviourCases.h"

#include "tests/support/Texts.h"

namespace {

using Case = MisbehaviourCase;

const struct {
    const char* name;
    Misbehaviour::Ending ending;
} endings[] = {{"closed ", Misbehaviour::Close}, {"half closed ", Misbehaviour::HalfClose},
    {"reset ", Misbehaviour::Reset}, {"closed later ", Misbehaviour::CloseLater}};

/// Connections that end before there is a status.
QList<Case> casesWithoutStatus()
{
    constexpr qint64 atOnce = Misbehaviour::atOnce;
    constexpr qint64 request = Misbehaviour::wholeBody;
    const struct {
        const char* name;
        qint64 after;
        QByteArray bytes;
    } points[] = {
        {"at once", atOnce, ""},
        {"after the headers", 0, ""},
        {"after the request", request, ""},
        {"inside the protocol name", request, "HT"},
        {"inside the status line", request, "HTTP/1.1 20"},
        {"inside the status line, at once", atOnce, "HTTP/1.1 20"},
        {"after an interim reply", request, "HTTP/1.1 100 Continue\r\n\r\n"},
        {"with bytes that are not HTTP", request, "220 mail ready\r\n"},
        {"with bytes that are not HTTP, at once", atOnce, "220 mail ready\r\n"},
        {"with empty lines", request, "\r\n\r\n\r\n"},
        {"with 5,000 bytes", request, QByteArray(5000, '\xff')},
        {"with a TLS alert", request, QByteArray("\x15\x03\x01\x00\x02\x02\x28", 7)},
        {"with a TLS handshake", atOnce, "\x16\x03\x03" + QByteArray(120, '\0')},
        {"with JSON but no HTTP", request, R"({"citationStyleUrl":"zero"})"},
        {"with a request", request, "POST /a HTTP/1.1\r\nContent-Length: 0\r\n\r\n"},
        {"with a non-numeric status", request, "HTTP/1.1 abc OK\r\n\r\n"},
    };
    QList<Case> cases;
    for (const auto& ending : endings) {
        for (const auto& point : points) {
            cases.append({QByteArray(ending.name) + point.name,
                {point.after, point.bytes, ending.ending}, Failed, {}});
        }
    }
    return cases;
}

/// Replies with status 200 that are cut off.
QList<Case> cutReplies()
{
    const QByteArray ok("HTTP/1.1 200 OK\r\n");
    const struct {
        const char* name;
        QByteArray bytes;
    } points[] = {
        {"inside the headers", ok + "Content-Le"},
        {"after the reply's headers", ok + "Content-Length: 50\r\n\r\n"},
        {"inside the body", ok + "Content-Length: 50\r\n\r\n{\"citationStyleUrl\":\"s"},
        {"inside a chunk",
            ok + "Transfer-Encoding: chunked\r\n\r\n50\r\n{\"citationStyleUrl\":\"s"},
    };
    QList<Case> cases;
    for (const auto& ending : endings) {
        for (const auto& point : points) {
            // Incomplete headers do not count as a reply.
            const bool headersEnd = point.bytes.contains("\r\n\r\n");
            cases.append({QByteArray(ending.name) + point.name,
                {Misbehaviour::wholeBody, point.bytes, ending.ending},
                headersEnd
                    ? (ending.ending == Misbehaviour::Reset ? FailedOrEmptySuccess : EmptySuccess)
                    : Failed,
                {}});
        }
    }
    return cases;
}

QByteArray reply(const QByteArray& status, const QByteArray& headers, const QByteArray& body)
{
    return "HTTP/1.1 " + status + " Scripted\r\n" + headers
        + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

/// Complete replies that may cause a client to send its request again.
QList<Case> repliesThatInviteRetry()
{
    const struct {
        const char* status;
        const char* headers;
    } replies[] = {
        {"301", "Location: /other\r\n"},
        {"302", "Location: /other\r\n"},
        {"303", "Location: /other\r\n"},
        {"307", "Location: /other\r\n"},
        {"308", "Location: /other\r\n"},
        {"401", "WWW-Authenticate: Basic realm=\"r\"\r\n"},
        {"401", "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\"\r\n"},
        {"401", "WWW-Authenticate: NTLM\r\n"},
        {"407", "Proxy-Authenticate: Basic realm=\"r\"\r\n"},
        {"408", "Connection: close\r\n"},
        {"413", "Retry-After: 0\r\n"},
        {"417", ""},
        {"421", ""},
        {"425", ""},
        {"426", "Upgrade: h2c\r\nConnection: Upgrade\r\n"},
        {"429", "Retry-After: 0\r\n"},
        {"503", "Retry-After: 0\r\n"},
    };
    QList<Case> cases;
    for (const auto& row : replies) {
        cases.append({QByteArray(row.status) + ' ' + QByteArray(row.headers).simplified(),
            {Misbehaviour::wholeBody, reply(row.status, row.headers, "%1 says no"),
                Misbehaviour::CloseLater},
            Failed, text("%1 says no")});
    }
    const QByteArray refusal = reply("500", "", R"({"error":"first"})");
    const QByteArray success = reply("200", "", "{}");
    cases.append({"two replies, the first a failure",
        {Misbehaviour::wholeBody, refusal + success, Misbehaviour::CloseLater}, Failed,
        text("first")});
    cases.append({"two replies, the first a success",
        {Misbehaviour::wholeBody, success + refusal, Misbehaviour::CloseLater}, EmptySuccess, {}});
    cases.append({"a reply before the request is sent", {0, refusal, Misbehaviour::CloseLater},
        Failed, text("first")});
    return cases;
}

} // namespace

QList<MisbehaviourCase> misbehaviourCases()
{
    return casesWithoutStatus() + cutReplies() + repliesThatInviteRetry();
}

QList<MisbehaviourCase> cutUploadCases()
{
    constexpr qint64 middle = 9000000;
    QList<Case> cases;
    for (const auto& ending : endings) {
        for (const qint64 after : {Misbehaviour::atOnce, qint64(0), qint64(100000), middle}) {
            cases.append({ending.name + QByteArray("after ") + QByteArray::number(after),
                {after, {}, ending.ending}, Failed, {}});
        }
        const QByteArray name = ending.name + QByteArray("in the middle with ");
        cases.append(
            {name + "413", {middle, reply("413", "", "too large"), ending.ending}, Failed, {}});
        cases.append({name + "no HTTP", {middle, "no\r\n", ending.ending}, Failed, {}});
    }
    return cases;
}

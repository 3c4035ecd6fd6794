#include "apiclient/HttpTrace.h"
#include "tests/support/Texts.h"

#include <QDateTime>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QStringList& printed()
{
    static QStringList lines;
    return lines;
}

/// Records the message as the default handler would print it.
void recordMessage(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    printed() << qFormatLogMessage(type, context, message);
}

const QString bodyPrefix = QStringLiteral("tessaron.http.body: ");

/// Returns the lines of the category "tessaron.http.body", parsed by Qt's JSON reader.
QList<QJsonObject> bodyLines()
{
    QList<QJsonObject> lines;
    for (const QString& line : printed()) {
        if (line.startsWith(bodyPrefix)) {
            lines << QJsonDocument::fromJson(line.mid(bodyPrefix.size()).toUtf8()).object();
        }
    }
    return lines;
}

QByteArray pieceIn(const QJsonObject& line)
{
    return line.contains(text("textBase64"))
        ? QByteArray::fromBase64(line.value(text("textBase64")).toString().toLatin1())
        : line.value(text("text")).toString().toUtf8();
}

/// Returns the body that is split over `lines`, the lines of one event.
QByteArray bodyIn(const QList<QJsonObject>& lines)
{
    QByteArray body;
    for (const QJsonObject& line : lines) {
        body += line.value(text("offset")).toInt() == body.size() ? pieceIn(line) : "(a gap)";
    }
    return body;
}

} // namespace

class tst_HttpTrace : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void printsReadableLines();
    void describesRequestAndReply();
    void keepsEveryByte_data();
    void keepsEveryByte();
    void keepsLinesShort_data();
    void keepsLinesShort();
    void splitsBetweenCharacters();
    void limitsErrorText();
    void keepsBodyAfterErrorThatFillsTheLine();
    void printsBodiesOnlyWhenNamed_data();
    void printsBodiesOnlyWhenNamed();

private:
    QtMessageHandler formerHandler = nullptr;
};

void tst_HttpTrace::init()
{
    qputenv("QT_LOGGING_RULES", "tessaron.http.body=true");
    QLoggingCategory::setFilterRules(text("tessaron.http*.debug=true"));
    printed().clear();
    formerHandler = qInstallMessageHandler(recordMessage);
}

void tst_HttpTrace::cleanup()
{
    qInstallMessageHandler(formerHandler);
}

void tst_HttpTrace::printsReadableLines()
{
    qunsetenv("QT_LOGGING_RULES");
    traceRequest(1, text("/userUuid"), {});
    traceReply(1, {200, R"({"uuid":"u-1"})"}, 3, {});
    traceRequest(2, text("/citation/choose/interactive"), "{}");
    traceReply(2, {0, {}}, 12, text("Connection refused"));
    const QStringList expected{text("tessaron.http: GET /userUuid 0 bytes"),
        text("tessaron.http: 200 14 bytes 3 ms"),
        text("tessaron.http: POST /citation/choose/interactive 2 bytes"),
        text("tessaron.http: 0 0 bytes 12 ms, Connection refused")};
    QCOMPARE(printed(), expected);
}

void tst_HttpTrace::describesRequestAndReply()
{
    const QDateTime start = QDateTime::currentDateTimeUtc();
    traceRequest(7, text("/citation/undoManualFormat"), "{\"a\":1}");
    traceReply(7, {500, "no"}, 4, text("server replied: no"));
    const QList<QJsonObject> lines = bodyLines();
    QCOMPARE(lines.size(), 2);

    QJsonObject request = lines.first();
    const QString time = request.take(text("at")).toString();
    QVERIFY2(time.endsWith(QLatin1Char('Z')), qPrintable(time));
    const QDateTime at = QDateTime::fromString(time, Qt::ISODateWithMs);
    QVERIFY(start.addMSecs(-1) <= at && at <= QDateTime::currentDateTimeUtc());
    const QJsonObject expectedRequest{{text("process"), QCoreApplication::applicationPid()},
        {text("exchange"), 7}, {text("method"), text("POST")},
        {text("path"), text("/citation/undoManualFormat")}, {text("bytes"), 7},
        {text("text"), text("{\"a\":1}")}};
    QCOMPARE(request, expectedRequest);

    QJsonObject reply = lines.last();
    QVERIFY(!reply.take(text("at")).toString().isEmpty());
    const QJsonObject expectedReply{{text("process"), QCoreApplication::applicationPid()},
        {text("exchange"), 7}, {text("status"), 500}, {text("elapsedMs"), 4},
        {text("error"), text("server replied: no")}, {text("bytes"), 2},
        {text("text"), text("no")}};
    QCOMPARE(reply, expectedReply);
}

void tst_HttpTrace::keepsEveryByte_data()
{
    QTest::addColumn<QByteArray>("body");
    QByteArray everyByte;
    for (int i = 0; i < 5000; ++i) {
        everyByte += char(i * 7);
    }
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("newlines") << QByteArray("{\n\"a\":\r\n1}\n");
    QTest::newRow("line that looks like a trace")
        << QByteArray("\ntessaron.http.body: {\"process\":1}\n");
    QTest::newRow("quotes and backslashes") << QByteArray(R"({"a":"\"\\n"})");
    QTest::newRow("U+0000") << QByteArray("a\0b", 3);
    QTest::newRow("control characters") << QByteArray(3000, '\x01');
    QTest::newRow("byte order mark") << QByteArray("\xEF\xBB\xBF{}");
    QTest::newRow("noncharacter") << QByteArray("\xEF\xBF\xBF");
    QTest::newRow("unpaired surrogate") << QByteArray("\xED\xA0\xBD");
    QTest::newRow("incomplete character") << QByteArray("abc\xF0\x9F\x98");
    QTest::newRow("compressed") << QByteArray("\x1f\x8b\x08\x00\xff\xfe", 6);
    QTest::newRow("every byte") << everyByte;
    QTest::newRow("long text")
        << QByteArray("{\"a\":\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"}").repeated(10000);
    QTest::newRow("continuation bytes alone") << QByteArray(3000, '\x80');
}

void tst_HttpTrace::keepsEveryByte()
{
    QFETCH(QByteArray, body);
    traceRequest(1, text("/a"), body);
    const QList<QJsonObject> request = bodyLines();
    QCOMPARE(request.first().value(text("bytes")).toInt(), int(body.size()));
    QVERIFY(bodyIn(request) == body);

    printed().clear();
    traceReply(1, {200, body}, 0, {});
    const QList<QJsonObject> reply = bodyLines();
    QCOMPARE(reply.first().value(text("bytes")).toInt(), int(body.size()));
    QVERIFY(bodyIn(reply) == body);
}

void tst_HttpTrace::keepsLinesShort_data()
{
    keepsEveryByte_data();
}

void tst_HttpTrace::keepsLinesShort()
{
    QFETCH(QByteArray, body);
    traceRequest(1, text("/formattedCitationsAndBibliography/interactive"), body);
    traceReply(1, {200, body}, 0, QString(5000, QLatin1Char('e')));
    for (const QString& line : printed()) {
        QVERIFY2(line.toUtf8().size() < 1024, qPrintable(line));
        QVERIFY(!line.contains(QLatin1Char('\n')));
    }
}

void tst_HttpTrace::splitsBetweenCharacters()
{
    traceRequest(1, text("/a"), QByteArray("\xE2\x82\xAC").repeated(2000));
    const QList<QJsonObject> lines = bodyLines();
    QVERIFY(lines.size() > 6);
    for (const QJsonObject& line : lines) {
        QVERIFY(!line.contains(text("textBase64")));
    }
}

void tst_HttpTrace::limitsErrorText()
{
    traceReply(1, {502, {}}, 0, QString(100000, QLatin1Char('e')));
    QCOMPARE(printed().size(), 2);
    QVERIFY(printed().first().size() < 1024);
}

void tst_HttpTrace::keepsBodyAfterErrorThatFillsTheLine()
{
    const QByteArray body = QByteArray("\xE2\x82\xAC").repeated(2000);
    // Each of these characters becomes an escape sequence.
    traceReply(1, {502, body}, 0, QString(5000, QChar(1)));
    QVERIFY(bodyIn(bodyLines()) == body);
}

void tst_HttpTrace::printsBodiesOnlyWhenNamed_data()
{
    QTest::addColumn<QByteArray>("rules");
    QTest::addColumn<QByteArray>("configuration");
    QTest::addColumn<bool>("printsEvents");
    QTest::addColumn<bool>("printsBodies");
    const auto row = [](const char* name, const char* rules, const char* configuration, bool events,
                         bool bodies) {
        QTest::newRow(name) << QByteArray(rules) << QByteArray(configuration) << events << bodies;
    };
    row("default rules", "", "", false, false);
    row("events", "tessaron.http.debug=true", "", true, false);
    row("bodies", "tessaron.http.body.debug=true", "", false, true);
    row("bodies, without the type", "tessaron.http.body=true", "", false, true);
    row("both", "tessaron.http.debug=true;tessaron.http.body.debug=true", "", true, true);
    row("spaces", " tessaron.http.body.debug = true ", "", false, true);
    row("wildcard and bodies", "*.debug=true; tessaron.http.body.debug=true", "", true, true);
    row("every category", "*.debug=true", "", true, false);
    row("every category, every type", "*=true", "", true, false);
    row("wildcard at the end", "tessaron.http*.debug=true", "", true, false);
    row("wildcard at the end of the name", "tessaron.http.body*.debug=true", "", false, false);
    row("wildcard at the start", "*.http.body.debug=true", "", false, false);
    row("named and disabled", "tessaron.http.body.debug=false", "", false, false);
    row("named, disabled, then a wildcard", "tessaron.http.body.debug=false;*.debug=true", "", true,
        false);
    row("named, then disabled", "tessaron.http.body=true;tessaron.http.body=false", "", false,
        false);
    row("named, then disabled by a wildcard", "tessaron.http.body=true;*.debug=false", "", false,
        false);
    row("named, disabled by name, then a wildcard",
        "tessaron.http.body=true;tessaron.http.body=false;*.debug=true", "", true, false);
    row("warnings only", "tessaron.http.body.warning=true;*.debug=true", "", true, false);
    row("similar name", "tessaron.http.bodyguard.debug=true;*.debug=true", "", true, false);
    row("name without a value", "tessaron.http.body.debug;*.debug=true", "", true, false);
    row("rule that Qt rejects", "tessaron.http.body.debug=false=true", "", false, false);
    row("rule that Qt rejects, then a wildcard", "tessaron.http.body.debug=true=false;*.debug=true",
        "", true, false);
    row("configuration file", "", "tessaron.http.body.debug=true", false, false);
    row("configuration file with a wildcard", "", "*.debug=true", true, false);
    row("configuration file and events", "tessaron.http.debug=true",
        "tessaron.http.body.debug=true", true, false);
    row("configuration file that disables", "tessaron.http.body.debug=true", "*.debug=false", false,
        true);
}

void tst_HttpTrace::printsBodiesOnlyWhenNamed()
{
    QFETCH(QByteArray, rules);
    QFETCH(QByteArray, configuration);
    QFETCH(bool, printsEvents);
    QFETCH(bool, printsBodies);
    const QTemporaryDir home;
    QDir(home.path()).mkpath(text("QtProject"));
    QFile file(home.filePath(text("QtProject/qtlogging.ini")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[Rules]\n" + configuration + "\n");
    file.close();

    // A child process, because Qt reads the rules once.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(text("XDG_CONFIG_HOME"), home.path());
    environment.insert(text("HOME"), home.path());
    environment.insert(text("QT_LOGGING_CONF"), file.fileName());
    environment.remove(text("QT_LOGGING_RULES"));
    if (!rules.isEmpty()) {
        environment.insert(text("QT_LOGGING_RULES"), QString::fromUtf8(rules));
    }
    QProcess child;
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), {text("--trace")});
    QVERIFY(child.waitForFinished());
    QCOMPARE(child.exitCode(), 0);
    const QByteArray errors = child.readAllStandardError();
    QCOMPARE(errors.contains("tessaron.http: POST /a 10 bytes\n"), printsEvents);
    QCOMPARE(errors.contains("tessaron.http: 200 8 bytes 1 ms\n"), printsEvents);
    QCOMPARE(errors.contains("my request"), printsBodies);
    QCOMPARE(errors.contains("my reply"), printsBodies);
    QCOMPARE(errors.contains("tessaron.http: "), printsEvents);
    QCOMPARE(errors.contains("tessaron.http.body: "), printsBodies);
}

/// Runs the tests. With "--trace", as the child process of printsBodiesOnlyWhenNamed(), traces one
/// exchange instead.
int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    if (QCoreApplication::arguments().contains(text("--trace"))) {
        traceRequest(1, text("/a"), "my request");
        traceReply(1, {200, "my reply"}, 1, {});
        return 0;
    }
    tst_HttpTrace test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_httptrace.moc"

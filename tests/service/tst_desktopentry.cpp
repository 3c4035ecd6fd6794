#include "service/DesktopEntry.h"

#include "tests/support/TemporaryHome.h"

#include <QDir>
#include <QFile>
#include <QtTest>

namespace {

using Command = QList<QByteArray>;

const ExecFields fields{"the icon", "The %k Name", "/a b/entry.desktop"};

/// Sets an environment variable, or removes it if `value` is null, and restores it at the end.
class ScopedVariable {
public:
    ScopedVariable(const char* variable, const QByteArray& value)
        : name(variable)
        , former(qgetenv(variable))
    {
        set(value);
    }
    ~ScopedVariable() { set(former); }
    Q_DISABLE_COPY(ScopedVariable)

private:
    void set(const QByteArray& value) const
    {
        if (value.isNull()) {
            qunsetenv(name);
        } else {
            qputenv(name, value);
        }
    }

    const char* const name;
    const QByteArray former;
};

} // namespace

class tst_DesktopEntry : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void expandsExec_data();
    void expandsExec();
    void dropsIconCodeWithoutIcon();
    void rejectsExec_data();
    void rejectsExec();

    void readsEntry_data();
    void readsEntry();
    void rejectsEntry_data();
    void rejectsEntry();
    void rejectsUnreadableFile();
    void expandsPathOfEntry();
    void translatesName_data();
    void translatesName();
    void requiresProgramOfTryExec_data();
    void requiresProgramOfTryExec();

private:
    std::optional<DesktopEntry> read(const QByteArray& content) const
    {
        return readDesktopEntry(home.writeFile(QStringLiteral("a b/x.desktop"), content));
    }

    const TemporaryHome home;
};

// The Exec line

void tst_DesktopEntry::expandsExec_data()
{
    QTest::addColumn<QByteArray>("exec");
    QTest::addColumn<Command>("expected");

    const auto row = [](const char* name, const char* exec, const Command& expected) {
        QTest::newRow(name) << QByteArray(exec) << expected;
    };
    row("arguments", "/usr/bin/prog -a --b=c ü東", {"/usr/bin/prog", "-a", "--b=c", "ü東"});
    row("whitespace", "  prog   a \t b\nc ", {"prog", "a", "b", "c"});

    row("quoted program", R"("/opt/a b/prog" c)", {"/opt/a b/prog", "c"});
    row("quoted argument", R"(prog "a  b" c)", {"prog", "a  b", "c"});
    row("quoted empty arguments", R"(prog "" c "")", {"prog", "", "c", ""});
    row("quoted reserved characters", R"(prog "'<>~|&;*?#()	")", {"prog", "'<>~|&;*?#()\t"});
    row("escaped quote", R"(prog "a\"b")", {"prog", R"(a"b)"});
    row("escaped backtick", R"(prog "\`date\`")", {"prog", "`date`"});
    row("escaped dollar sign", R"(prog "\$HOME")", {"prog", "$HOME"});
    row("escaped backslash", R"(prog "a\\b\\")", {"prog", R"(a\b\)"});
    row("backslash before other characters", R"(prog "a\nb\c")", {"prog", R"(a\nb\c)"});

    for (const char code : QByteArray("fFuUdDnNvm")) {
        QTest::addRow("%%%c as an argument", code)
            << QByteArray("prog a %X b").replace('X', code) << Command{"prog", "a", "b"};
    }
    row("two codes in one argument", "prog %f%u", {"prog"});
    row("%f inside an argument", "prog --file=%f", {"prog", "--file="});
    row("%f in quotes", R"(prog "%f" x)", {"prog", "", "x"});
    row("%i as an argument", "prog %i x", {"prog", "--icon", "the icon", "x"});
    row("%i inside an argument", "prog --x=%i y", {"prog", "--x=", "y"});
    row("%i in quotes", R"(prog "%i" x)", {"prog", "", "x"});
    row("%i inside a quoted argument", R"(prog "a %i b")", {"prog", "a  b"});
    row("%c is one argument and not expanded again", "prog %c", {"prog", "The %k Name"});
    row("%c inside an argument", "prog --name=%c!", {"prog", "--name=The %k Name!"});
    row("%k", "prog %k", {"prog", "/a b/entry.desktop"});
    row("%% before the letter of a code", "prog 100%%f %%%%", {"prog", "100%f", "%%"});
    row("%% in quotes", R"(prog "100 %%")", {"prog", "100 %"});
}

void tst_DesktopEntry::expandsExec()
{
    QFETCH(QByteArray, exec);
    QFETCH(Command, expected);
    QCOMPARE(expandExec(exec, fields), expected);
}

void tst_DesktopEntry::dropsIconCodeWithoutIcon()
{
    QCOMPARE(expandExec("prog %i x", {{}, "n", "p"}), (Command{"prog", "x"}));
}

void tst_DesktopEntry::rejectsExec_data()
{
    QTest::addColumn<QByteArray>("exec");

    const auto row = [](const char* name, const char* exec) {
        QTest::newRow(name) << QByteArray(exec);
    };
    row("empty", "");
    row("whitespace", " \t \n ");
    row("empty program", R"("" a b)");
    row("only codes for files", "%f %U");

    row("lone quote", R"(")");
    row("quote not closed", R"(prog "a b)");
    row("closing quote is escaped", R"(prog "a\")");
    row("backslash at the end of an open quote", R"(prog "a\)");
    row("quote inside an argument", R"(prog a"b")");
    row("quote at the end of an argument", R"(prog a")");
    row("text after a quote", R"(prog "a"b)");
    row("quote after a quote", R"(prog "a""b")");
    row("code after a quote", R"(prog "a"%%)");

    row("assignment before the program", "A=b prog");
    row("equals sign in a quoted program", R"("/opt/a=b/prog" x)");

    row("% at the end", "prog %");
    row("% at the end of an argument", "prog 50% x");
    row("% at the end of a quoted argument", R"(prog "50%")");
    row("% after %%", "prog %%%");
    row("unknown code in the program", "pr%xog");
    for (const char code : QByteArray("abehjlopqxzABCEGIKLMZ019-_\"(")) {
        QTest::addRow("unknown code %%%c", code) << QByteArray("prog a %") + code;
    }
    row("unknown code inside an argument", "prog --x=%x.txt");
    row("unknown code of two bytes", "prog %ü");
    row("unknown code after a known one", "prog %f %q");
}

void tst_DesktopEntry::rejectsExec()
{
    QFETCH(QByteArray, exec);
    QCOMPARE(expandExec(exec, fields), Command());
}

// Whole entries

void tst_DesktopEntry::readsEntry_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<Command>("command");
    QTest::addColumn<QByteArray>("folder");

    const auto row = [](const char* name, const char* lines, const Command& command,
                         const char* folder = "") {
        QTest::newRow(name) << QByteArray(lines) << command << QByteArray(folder);
    };
    row("last line without a line break", "Exec=prog a", {"prog", "a"});
    row("spaces around the equals sign", "Exec  =  prog a\n", {"prog", "a"});
    row("comments and empty lines", "# Exec=no\n\n#\nExec=prog\n\n", {"prog"});
    row("working directory", "Exec=prog\nPath=/a\\sb/c\n", {"prog"}, "/a b/c");
    row("icon and name", "Icon=the icon\nExec=prog %i %c\n", {"prog", "--icon", "the icon", "N"});
    row("no icon", "Exec=prog %i %c\n", {"prog", "N"});
    row("not hidden", "Exec=prog\nHidden=false\n", {"prog"});
    row("not shown in menus", "Exec=prog\nNoDisplay=true\n", {"prog"});
    row("unknown key with an invalid value", "Exec=prog\nX-Other=%q \"\n", {"prog"});
    row("other groups", "Exec=prog\n[Desktop Action new]\nName=New\nExec=other\nHidden=true\n",
        {"prog"});

    // The string escapes are decoded before the quotes.
    row("escaped space", "Exec=prog a\\sb\n", {"prog", "a", "b"});
    row("escaped tab and line breaks", "Exec=prog \"a\\tb\\nc\\rd\"\n", {"prog", "a\tb\nc\rd"});
    row("escaped quoted dollar sign", "Exec=prog \"\\\\$HOME\"\n", {"prog", "$HOME"});
    row("escaped quoted backslash", "Exec=prog \"a\\\\\\\\b\"\n", {"prog", "a\\b"});
    row("escaped quoted quote", "Exec=prog \"a\\\\\"b\"\n", {"prog", "a\"b"});
}

void tst_DesktopEntry::readsEntry()
{
    QFETCH(QByteArray, lines);
    QFETCH(Command, command);
    QFETCH(QByteArray, folder);
    const auto entry = read("[Desktop Entry]\nType=Application\nName=N\n" + lines);
    QVERIFY(entry.has_value());
    QCOMPARE(entry->command, command);
    QCOMPARE(entry->workingDirectory, folder);
}

void tst_DesktopEntry::rejectsEntry_data()
{
    QTest::addColumn<QByteArray>("content");

    const auto row = [](const char* name, const QByteArray& content) {
        QTest::newRow(name) << content;
    };
    const auto lines = [&row](const char* name, const QByteArray& text) {
        row(name, "[Desktop Entry]\nName=N\n" + text);
    };
    row("empty file", "");
    row("group only", "[Desktop Entry]\n");
    row("keys without a group", "Type=Application\nExec=prog\n");
    row("keys before the group", "Exec=prog\n[Desktop Entry]\nType=Application\nExec=prog\n");
    row("another group", "[KDE Desktop Entry]\nType=Application\nExec=prog\n");
    row("group in another case", "[desktop entry]\nType=Application\nExec=prog\n");
    row("group not closed", "[Desktop Entry\nType=Application\nExec=prog\n");
    row("binary",
        QByteArray("\x7F"
                   "ELF\x02\x01\x01\x00\x00\xFF\xFE",
            11));
    row("UTF-16", QByteArrayLiteral("\xFF\xFE[\0D\0e\0s\0k\0t\0o\0p\0 \0E\0n\0t\0r\0y\0]\0"));

    lines("no type", "Exec=prog\n");
    lines("link", "Type=Link\nURL=http://example.org\nExec=prog\n");
    lines("type in another case", "Type=application\nExec=prog\n");
    lines("type with more text", "Type=Application;\nExec=prog\n");

    lines("no Exec", "Type=Application\n");
    lines("whitespace as Exec", "Type=Application\nExec=\\s\\s\n");
    lines("invalid Exec", "Type=Application\nExec=prog \"a\\\\\"\n");
    lines("Exec in another case", "Type=Application\nexec=prog\n");
    lines("Exec in another group", "Type=Application\n[Desktop Action a]\nExec=prog\n");
    lines("Exec only as a translation", "Type=Application\nExec[de]=prog\n");
    lines("Exec not in UTF-8", "Type=Application\nExec=prog \xFF\xFE\n");
    lines("line without an equals sign", "Type=Application\nExec=prog\nnonsense\n");
    lines("line without a key", "Type=Application\nExec=prog\n=x\n");

    lines("hidden", "Type=Application\nExec=prog\nHidden=true\n");
    lines("hidden with spaces around", "Hidden = true \nType=Application\nExec=prog\n");
}

void tst_DesktopEntry::rejectsEntry()
{
    QFETCH(QByteArray, content);
    QVERIFY(!read(content).has_value());
}

void tst_DesktopEntry::rejectsUnreadableFile()
{
    QVERIFY(!readDesktopEntry(home.path(QStringLiteral("missing.desktop"))).has_value());
    QVERIFY(!readDesktopEntry(QString()).has_value());
    const QString folder = home.path(QStringLiteral("folder.desktop"));
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(!readDesktopEntry(folder).has_value());
}

void tst_DesktopEntry::expandsPathOfEntry()
{
    const QString path = home.writeFile(QStringLiteral("ü \"b\" %f/x.desktop"),
        "[Desktop Entry]\nType=Application\nName=N\nExec=prog %k\n");
    const auto entry = readDesktopEntry(path);
    QVERIFY(entry.has_value());
    QCOMPARE(entry->command, (Command{"prog", path.toUtf8()}));
}

void tst_DesktopEntry::translatesName_data()
{
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("language and country") << QByteArray("de_AT.UTF-8") << QByteArray("Österreich");
    QTest::newRow("language") << QByteArray("de_DE.UTF-8") << QByteArray("Deutsch");
    QTest::newRow("modifier") << QByteArray("sr_YU@Latn") << QByteArray("Srpski");
    QTest::newRow("no modifier") << QByteArray("sr_YU") << QByteArray("Српски");
    QTest::newRow("language without a translation")
        << QByteArray("fr_FR.UTF-8") << QByteArray("English");
    QTest::newRow("no language") << QByteArray("C") << QByteArray("English");
}

void tst_DesktopEntry::translatesName()
{
    QFETCH(QByteArray, locale);
    QFETCH(QByteArray, name);
    const ScopedVariable all("LC_ALL", locale);
    const ScopedVariable language("LANGUAGE", QByteArray());
    const auto entry = read("[Desktop Entry]\nType=Application\nName=English\nName[de]=Deutsch\n"
                            "Name[de_AT]=Österreich\nName[sr@Latn]=Srpski\nName[sr]=Српски\n"
                            "Exec=prog %c\nExec[de]=other\n");
    QVERIFY(entry.has_value());
    QCOMPARE(entry->command, (Command{"prog", name}));
}

void tst_DesktopEntry::requiresProgramOfTryExec_data()
{
    QTest::addColumn<QByteArray>("program"); // with HOME for the home folder
    QTest::addColumn<bool>("installed");

    const auto row = [](const char* name, const char* program, bool installed) {
        QTest::newRow(name) << QByteArray(program) << installed;
    };
    row("path", "HOME/bin/runs", true);
    row("path with a space", "HOME/bin/runs\\stoo", true);
    row("name in PATH", "runs", true);
    row("empty", "", true);

    row("missing path", "HOME/bin/missing", false);
    row("name not in PATH", "missing", false);
    row("file that is not executable", "HOME/bin/plain", false);
    row("folder", "HOME/bin", false);
    row("with an argument", "runs --version", false);
    row("quoted", "\"runs\"", false);
}

void tst_DesktopEntry::requiresProgramOfTryExec()
{
    QFETCH(QByteArray, program);
    QFETCH(bool, installed);
    const QFile::Permissions runnable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
    for (const char* name : {"bin/runs", "bin/runs too"}) {
        QVERIFY(QFile::setPermissions(home.writeFile(QString::fromUtf8(name), ""), runnable));
    }
    home.writeFile(QStringLiteral("bin/plain"), "");
    const ScopedVariable path("PATH", home.path(QStringLiteral("bin")).toUtf8());
    const auto entry = read("[Desktop Entry]\nType=Application\nName=N\nExec=prog\nTryExec="
        + program.replace("HOME", home.path(QString()).toUtf8()) + '\n');
    QCOMPARE(entry.has_value(), installed);
}

QTEST_GUILESS_MAIN(tst_DesktopEntry)
#include "tst_desktopentry.moc"

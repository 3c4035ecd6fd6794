#include "service/DesktopEntry.h"

#include "tests/support/TemporaryHome.h"

#include <QDir>
#include <QFile>
#include <QtTest>

namespace {

using Command = QList<QByteArray>;

const ExecFields fields{"the icon", "The %k Name", "/a b/entry.desktop"};

/// Sets the variables that choose the language of texts for as long as it lives.
class Language {
public:
    explicit Language(const QByteArray& locale)
    {
        qputenv("LC_ALL", locale);
        qunsetenv("LANGUAGE");
    }
    ~Language()
    {
        restore("LC_ALL", formerLocale);
        restore("LANGUAGE", formerLanguage);
    }
    Q_DISABLE_COPY(Language)

private:
    static void restore(const char* variable, const QByteArray& value)
    {
        if (value.isNull()) {
            qunsetenv(variable);
        } else {
            qputenv(variable, value);
        }
    }

    const QByteArray formerLocale = qgetenv("LC_ALL");
    const QByteArray formerLanguage = qgetenv("LANGUAGE");
};

} // namespace

class DesktopEntryTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exec_data();
    void exec();
    void execWithoutIcon();
    void invalidExec_data();
    void invalidExec();

    void entry_data();
    void entry();
    void noEntry_data();
    void noEntry();
    void noFile();
    void ownFolder_data();
    void ownFolder();
    void translatedName_data();
    void translatedName();
    void tryExec_data();
    void tryExec();

private:
    std::optional<DesktopEntry> read(const QByteArray& content);

    const TemporaryHome home;
};

std::optional<DesktopEntry> DesktopEntryTest::read(const QByteArray& content)
{
    return readDesktopEntry(home.writeFile(QStringLiteral("a b/x.desktop"), content));
}

// The Exec line

void DesktopEntryTest::exec_data()
{
    QTest::addColumn<QByteArray>("exec");
    QTest::addColumn<Command>("expected");

    const auto row = [](const char* name, const char* exec, const Command& expected) {
        QTest::newRow(name) << QByteArray(exec) << expected;
    };
    row("program", "prog", {"prog"});
    row("path", "/usr/bin/prog", {"/usr/bin/prog"});
    row("arguments", "prog -a --b=c d", {"prog", "-a", "--b=c", "d"});
    row("many blanks", "  prog   a \t b  ", {"prog", "a", "b"});
    row("other scripts", "prog ü 東京", {"prog", "ü", "東京"});

    row("quoted program", R"("/opt/a b/prog" c)", {"/opt/a b/prog", "c"});
    row("quoted argument", R"(prog "a  b" c)", {"prog", "a  b", "c"});
    row("quoted empty argument", R"(prog "" c)", {"prog", "", "c"});
    row("quoted last and empty", R"(prog "")", {"prog", ""});
    row("quoted reserved characters", R"(prog "'<>~|&;*?#()	")", {"prog", "'<>~|&;*?#()\t"});
    row("escaped quote", R"(prog "a\"b")", {"prog", R"(a"b)"});
    row("escaped backtick", R"(prog "\`date\`")", {"prog", "`date`"});
    row("escaped dollar: no shell expands it", R"(prog "\$HOME")", {"prog", "$HOME"});
    row("escaped backslash", R"(prog "a\\b\\")", {"prog", R"(a\b\)"});
    row("backslash before anything else", R"(prog "a\nb\c")", {"prog", R"(a\nb\c)"});

    for (const char code : QByteArray("fFuUdDnNvm")) {
        QTest::addRow("code %%%c alone", code)
            << QByteArray("prog a %X b").replace('X', code) << Command{"prog", "a", "b"};
    }
    row("code for a file inside an argument", "prog --file=%f", {"prog", "--file="});
    row("two codes in one argument", "prog %f%u", {"prog"});
    row("icon", "prog %i x", {"prog", "--icon", "the icon", "x"});
    row("name is one argument and final", "prog %c", {"prog", "The %k Name"});
    row("name inside an argument", "prog --name=%c!", {"prog", "--name=The %k Name!"});
    row("place of the entry", "prog %k", {"prog", "/a b/entry.desktop"});
    row("percent", "prog %%", {"prog", "%"});
    row("percent before a code's letter", "prog 100%%f %%%%", {"prog", "100%f", "%%"});
    row("quoted percent", R"(prog "100 %%")", {"prog", "100 %"});
}

void DesktopEntryTest::exec()
{
    QFETCH(QByteArray, exec);
    QFETCH(Command, expected);
    QCOMPARE(expandExec(exec, fields), expected);
}

void DesktopEntryTest::execWithoutIcon()
{
    QCOMPARE(expandExec("prog %i x", {{}, "n", "p"}), (Command{"prog", "x"}));
}

void DesktopEntryTest::invalidExec_data()
{
    QTest::addColumn<QByteArray>("exec");

    const auto row = [](const char* name, const char* exec) {
        QTest::newRow(name) << QByteArray(exec);
    };
    QTest::newRow("null") << QByteArray();
    row("empty", "");
    row("blanks", " \t \n ");
    row("no program: empty", R"("")");
    row("no program: empty, with arguments", R"("" a b)");
    row("no program: a code for files", "%f");
    row("no program: codes for files", "%f %U");

    row("quote is all", R"(")");
    row("quote does not end", R"(prog "a b)");
    row("quote ends escaped", R"(prog "a\")");
    row("quote ends in a backslash", R"(prog "a\)");
    row("quoted program does not end", R"("prog a)");
    row("three quotes", R"(prog """)");
    row("quote inside an argument", R"(prog a"b")");
    row("quote at an argument's end", R"(prog a")");
    row("text behind a quote", R"(prog "a"b)");
    row("text behind an empty quote", R"(prog ""b)");
    row("quote behind a quote", R"(prog "a""b")");
    row("code behind a quote", R"(prog "a"%%)");

    row("assignment before the program", "A=b prog");
    row("equals sign in a quoted program", R"("/opt/a=b/prog" x)");

    row("percent at the end", "prog %");
    row("percent at an argument's end", "prog 50% x");
    row("percent before a blank", "prog % x");
    row("percent behind a percent", "prog %%%");
    row("quoted percent at the end", R"(prog "50%")");
    row("code in the program", "pr%xog");
    for (const char code : QByteArray("abeghjlopqrstwxyzABCEGHIJKLMOPQRSTVWXYZ019-_\"(")) {
        QTest::addRow("unknown code %%%c", code) << QByteArray("prog a %") + code;
    }
    row("unknown code inside an argument", "prog --x=%x.txt");
    row("code in another script", "prog %ü");
    row("unknown code behind a known one", "prog %f %q");
}

void DesktopEntryTest::invalidExec()
{
    QFETCH(QByteArray, exec);
    QCOMPARE(expandExec(exec, fields), Command());
}

// Whole entries

void DesktopEntryTest::entry_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<Command>("command");
    QTest::addColumn<QByteArray>("folder");

    const auto row = [](const char* name, const QByteArray& lines, const Command& command,
                         const char* folder = "") {
        QTest::newRow(name) << "[Desktop Entry]\nType=Application\nName=N\n" + lines << command
                            << QByteArray(folder);
    };
    row("program", "Exec=prog a\n", {"prog", "a"});
    row("last line does not end", "Exec=prog", {"prog"});
    row("blanks around the equals sign", "Exec  =  prog a\n", {"prog", "a"});
    row("comments and empty lines", "# Exec=no\n\n#\nExec=prog\n\n", {"prog"});
    row("folder", "Exec=prog\nPath=/a b/c\n", {"prog"}, "/a b/c");
    row("empty folder", "Exec=prog\nPath=\n", {"prog"});
    row("icon and name", "Icon=the icon\nExec=prog %i %c\n", {"prog", "--icon", "the icon", "N"});
    row("no icon", "Exec=prog %i %c\n", {"prog", "N"});
    row("empty icon", "Icon=\nExec=prog %i\n", {"prog"});
    row("not hidden", "Exec=prog\nHidden=false\n", {"prog"});
    row("not shown in menus, but installed", "Exec=prog\nNoDisplay=true\n", {"prog"});
    row("unknown keys", "Exec=prog\nX-Other=%q \"\nStartupNotify=true\n", {"prog"});
    row("other groups", "Exec=prog\n[Desktop Action new]\nName=New\nExec=other\nHidden=true\n",
        {"prog"});

    // The escapes of a text are undone before the quoting.
    row("escape: space", "Exec=prog a\\sb\n", {"prog", "a", "b"});
    row("escape: tab and line breaks", "Exec=prog \"a\\tb\\nc\\rd\"\n", {"prog", "a\tb\nc\rd"});
    row("escape: quoted dollar", "Exec=prog \"\\\\$HOME\"\n", {"prog", "$HOME"});
    row("escape: quoted backslash", "Exec=prog \"a\\\\\\\\b\"\n", {"prog", "a\\b"});
    row("escape: quoted quote", "Exec=prog \"a\\\\\"b\"\n", {"prog", "a\"b"});
    row("escape: folder", "Exec=prog\nPath=/a\\sb\n", {"prog"}, "/a b");
}

void DesktopEntryTest::entry()
{
    QFETCH(QByteArray, content);
    QFETCH(Command, command);
    QFETCH(QByteArray, folder);
    const auto entry = read(content);
    QVERIFY(entry.has_value());
    QCOMPARE(entry->command, command);
    QCOMPARE(entry->workingDirectory, folder);
}

void DesktopEntryTest::noEntry_data()
{
    QTest::addColumn<QByteArray>("content");

    const auto row = [](const char* name, const QByteArray& content) {
        QTest::newRow(name) << content;
    };
    const auto lines = [&row](const char* name, const QByteArray& text) {
        row(name, "[Desktop Entry]\nName=N\n" + text);
    };
    row("empty file", "");
    row("blank lines", "\n\n  \n");
    row("comment", "# [Desktop Entry]\n");
    row("group only", "[Desktop Entry]\n");
    row("keys without a group", "Type=Application\nExec=prog\n");
    row("keys before the group", "Exec=prog\n[Desktop Entry]\nType=Application\nExec=prog\n");
    row("another group", "[Desktop Action]\nType=Application\nExec=prog\n");
    row("group in another case", "[desktop entry]\nType=Application\nExec=prog\n");
    row("group of another name", "[KDE Desktop Entry]\nType=Application\nExec=prog\n");
    row("group does not end", "[Desktop Entry\nType=Application\nExec=prog\n");
    row("binary",
        QByteArray("\x7F"
                   "ELF\x02\x01\x01\x00\x00\xFF\xFE",
            11));
    row("JSON", R"({"Type":"Application","Exec":"prog"})");
    row("XML", "<entry><Exec>prog</Exec></entry>\n");
    row("UTF-16", QByteArrayLiteral("\xFF\xFE[\0D\0e\0s\0k\0t\0o\0p\0 \0E\0n\0t\0r\0y\0]\0"));

    lines("no type", "Exec=prog\n");
    lines("empty type", "Type=\nExec=prog\n");
    lines("link", "Type=Link\nURL=http://example.org\nExec=prog\n");
    lines("folder", "Type=Directory\nExec=prog\n");
    lines("type in another case", "Type=application\nExec=prog\n");
    lines("type key in another case", "type=Application\nExec=prog\n");
    lines("type with more", "Type=Application;\nExec=prog\n");

    lines("no program", "Type=Application\n");
    lines("empty program", "Type=Application\nExec=\n");
    lines("blank program", "Type=Application\nExec=\\s\\s\n");
    lines("key in another case", "Type=Application\nexec=prog\n");
    lines("program in another group", "Type=Application\n[Desktop Action a]\nExec=prog\n");
    lines("program in a translation only", "Type=Application\nExec[de]=prog\n");
    lines("program commented out", "Type=Application\n#Exec=prog\n");
    lines("unknown code", "Type=Application\nExec=prog %x\n");
    lines("quote does not end", "Type=Application\nExec=prog \"a\n");
    lines("escaped end of a quote", "Type=Application\nExec=prog \"a\\\\\"\n");
    lines("program not in UTF-8", "Type=Application\nExec=prog \xFF\xFE\n");
    lines("line without an equals sign", "Type=Application\nExec=prog\nnonsense\n");
    lines("line without a key", "Type=Application\nExec=prog\n=x\n");

    lines("hidden", "Type=Application\nExec=prog\nHidden=true\n");
    lines("hidden before the program", "Hidden=true\nType=Application\nExec=prog\n");
    lines("hidden, blanks around", "Type=Application\nExec=prog\nHidden = true \n");
    lines("hidden and no program", "Hidden=true\n");
}

void DesktopEntryTest::noEntry()
{
    QFETCH(QByteArray, content);
    QVERIFY(!read(content).has_value());
}

void DesktopEntryTest::noFile()
{
    QVERIFY(!readDesktopEntry(home.path(QStringLiteral("not there.desktop"))).has_value());
    QVERIFY(!readDesktopEntry(QString()).has_value());
    const QString folder = home.path(QStringLiteral("folder.desktop"));
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(!readDesktopEntry(folder).has_value());
    const QString dangling = home.path(QStringLiteral("link.desktop"));
    QVERIFY(QFile::link(home.path(QStringLiteral("nowhere")), dangling));
    QVERIFY(!readDesktopEntry(dangling).has_value());
}

void DesktopEntryTest::ownFolder_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("plain") << QStringLiteral("x.desktop");
    QTest::newRow("blanks and quotes") << QStringLiteral("a \"b\" %f/x.desktop");
    QTest::newRow("other scripts") << QStringLiteral("ü 東京/x.desktop");
}

void DesktopEntryTest::ownFolder()
{
    QFETCH(QString, name);
    const QString path =
        home.writeFile(name, "[Desktop Entry]\nType=Application\nName=N\nExec=prog %k\n");
    const auto entry = readDesktopEntry(path);
    QVERIFY(entry.has_value());
    QCOMPARE(entry->command, (Command{"prog", path.toUtf8()}));
}

void DesktopEntryTest::translatedName_data()
{
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QByteArray>("name");

    // The standard's order: language and country with modifier, language and country, language
    // with modifier, language, none.
    QTest::newRow("language and country") << QByteArray("de_AT.UTF-8") << QByteArray("Österreich");
    QTest::newRow("language") << QByteArray("de_DE.UTF-8") << QByteArray("Deutsch");
    QTest::newRow("with a modifier") << QByteArray("sr_YU@Latn") << QByteArray("Srpski");
    QTest::newRow("without its modifier") << QByteArray("sr_YU") << QByteArray("Српски");
    QTest::newRow("no translation") << QByteArray("fr_FR.UTF-8") << QByteArray("English");
    QTest::newRow("no language") << QByteArray("C") << QByteArray("English");
}

void DesktopEntryTest::translatedName()
{
    QFETCH(QByteArray, locale);
    QFETCH(QByteArray, name);
    const Language language(locale);
    const auto entry = read("[Desktop Entry]\nType=Application\nName=English\nName[de]=Deutsch\n"
                            "Name[de_AT]=Österreich\nName[sr@Latn]=Srpski\nName[sr]=Српски\n"
                            "Exec=prog %c\nExec[de]=other\n");
    QVERIFY(entry.has_value());
    QCOMPARE(entry->command, (Command{"prog", name}));
}

void DesktopEntryTest::tryExec_data()
{
    QTest::addColumn<QString>("program"); // with HOME for the home folder
    QTest::addColumn<bool>("installed");

    const auto row = [](const char* name, const char* program, bool installed) {
        QTest::newRow(name) << QString::fromUtf8(program) << installed;
    };
    row("path", "HOME/bin/runs", true);
    row("name in PATH", "runs", true);
    row("path with a blank", "HOME/bin/runs\\stoo", true);
    row("empty", "", true);

    row("path that is not there", "HOME/bin/nothing", false);
    row("name not in PATH", "nothing", false);
    row("file that is no program", "HOME/bin/plain", false);
    row("name of no program", "plain", false);
    row("folder", "HOME/bin", false);
    row("name in another case", "Runs", false);
    row("with an argument", "runs --version", false);
    row("quoted", "\"runs\"", false);
    row("dangling link", "HOME/bin/dangling", false);
}

void DesktopEntryTest::tryExec()
{
    QFETCH(QString, program);
    QFETCH(bool, installed);
    const QFile::Permissions runnable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
    for (const char* name : {"bin/runs", "bin/runs too"}) {
        QVERIFY(QFile::setPermissions(home.writeFile(QString::fromUtf8(name), ""), runnable));
    }
    home.writeFile(QStringLiteral("bin/plain"), "");
    QFile::link(home.path(QStringLiteral("nowhere")), home.path(QStringLiteral("bin/dangling")));

    const QByteArray formerPath = qgetenv("PATH");
    qputenv("PATH", home.path(QStringLiteral("bin")).toUtf8());
    const bool found = read("[Desktop Entry]\nType=Application\nName=N\nExec=prog\nTryExec="
        + program.replace(QStringLiteral("HOME"), home.path(QString())).toUtf8() + '\n')
                           .has_value();
    qputenv("PATH", formerPath);
    QCOMPARE(found, installed);
}

QTEST_GUILESS_MAIN(DesktopEntryTest)
#include "tst_desktopentry.moc"

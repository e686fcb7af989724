#include "helptexts.h"
#include "options.h"

#include <QtTest/QtTest>

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

static QStringList words(const char *line)
{
    return *line ? latin1(line).split(QLatin1Char(' ')) : QStringList();
}

class TestCtlOptions : public QObject
{
    Q_OBJECT

private slots:
    void commands_data();
    void commands();
    void list();
    void show();
    void helpAndVersion_data();
    void helpAndVersion();
    void wrong_data();
    void wrong();
    void strangeWordsAreCleaned();
    void everyCommandHasItsHelp_data();
    void everyCommandHasItsHelp();
};

void TestCtlOptions::commands_data()
{
    QTest::addColumn<QString>("name");
    const char *const names[] = { "status", "list", "monitor", "check", "announce", "reconfigure" };
    for (const char *name : names)
        QTest::newRow(name) << latin1(name);
}

void TestCtlOptions::commands()
{
    QFETCH(QString, name);
    Options options;
    QString problem;
    QVERIFY(readOptions(QStringList(name), &options, &problem));
    QCOMPARE(options.command, name);
    QVERIFY(!options.help && !options.version && !options.json);
}

void TestCtlOptions::list()
{
    Options options;
    QString problem;
    QVERIFY(readOptions(words("list --json --family Other"), &options, &problem));
    QVERIFY(options.json);
    QCOMPARE(options.family, latin1("Other"));
    Options others;
    QVERIFY(readOptions(words("list --family=A=B"), &others, &problem));
    QCOMPARE(others.family, latin1("A=B"));
    QVERIFY(!others.json);
}

void TestCtlOptions::show()
{
    Options options;
    QString problem;
    QVERIFY(readOptions(words("show KM-2044817"), &options, &problem));
    QCOMPARE(options.uuid, latin1("KM-2044817"));
}

void TestCtlOptions::helpAndVersion_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("help");
    QTest::newRow("help") << latin1("--help") << true;
    QTest::newRow("short") << latin1("-h") << true;
    QTest::newRow("version") << latin1("--version") << false;
    QTest::newRow("of a command") << latin1("show --help") << true;
    QTest::newRow("before a command") << latin1("--help list") << true;
}

void TestCtlOptions::helpAndVersion()
{
    QFETCH(QString, line);
    QFETCH(bool, help);
    Options options;
    QString problem;
    QVERIFY(readOptions(words(line.toLatin1().constData()), &options, &problem));
    QCOMPARE(options.help, help);
    QCOMPARE(options.version, !help);
}

void TestCtlOptions::wrong_data()
{
    QTest::addColumn<QString>("problem");
    static const char *const cases[][2] = {
        { "", "a command is missing; the commands are: status, list, show, monitor, check, announce, reconfigure" },
        { "look", "there is no command look; the commands are: status, list, show, monitor, check, announce, reconfigure" },
        { "--quick", "there is no option --quick; the commands are: status, list, show, monitor, check, announce, reconfigure" },
        { "list --quick", "there is no option --quick" },
        { "status --json", "--json goes with the command list" },
        { "show --family Kelta", "--family goes with the command list" },
        { "list --family", "--family needs a family, such as Kelta" },
        { "list --family=", "--family needs a family, such as Kelta" },
        { "list kelta", "what is \"kelta\" for?" },
        { "show a b", "what is \"b\" for?" },
        { "show", "show needs the uuid of a device; \"upnpvelornctl list\" has them" },
    };
    for (const auto &one : cases)
        QTest::newRow(one[0]) << latin1(one[1]);
}

void TestCtlOptions::wrong()
{
    Options options;
    QString problem;
    QVERIFY(!readOptions(words(QTest::currentDataTag()), &options, &problem));
    QTEST(problem, "problem");
}

void TestCtlOptions::strangeWordsAreCleaned()
{
    Options options;
    QString problem;
    QVERIFY(!readOptions(QStringList(latin1("a\x1b[31m\n")), &options, &problem));
    QVERIFY(problem.startsWith(QString::fromUtf8("there is no command a�[31m�")));
}

void TestCtlOptions::everyCommandHasItsHelp_data()
{
    commands_data();
    QTest::newRow("show") << latin1("show");
}

void TestCtlOptions::everyCommandHasItsHelp()
{
    QFETCH(QString, name);
    QVERIFY(QByteArray(helpText(name)).startsWith("Usage: upnpvelornctl " + name.toLatin1()));
    QVERIFY(QByteArray(helpText(QString())).contains("\n  " + name.toLatin1()));
}

QTEST_MAIN(TestCtlOptions)
#include "tst_ctloptions.moc"

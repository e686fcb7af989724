#include "options.h"

#include "device.h"
#include "text.h"

static const char *const commands[] = { "status", "list", "show", "monitor", "check", "announce", "reconfigure" };

namespace
{

class Reader
{
public:
    Reader(const QStringList &words, Options *options, QString *problem)
        : m_words(words)
        , m_options(options)
        , m_problem(problem)
    {
    }

    bool read();

private:
    bool readWord(const QString &word);
    bool readFamily(const QString &word);
    bool readOperand(const QString &word);
    bool isComplete();
    bool fail(const char *text, const QString &word = QString());
    bool isCommand(const char *name) const { return m_options->command == QLatin1String(name); }

    QStringList m_words;
    Options *m_options;
    QString *m_problem;
};

} // namespace

static QString commandNames()
{
    QStringList names;
    for (const char *name : commands)
        names += QLatin1String(name);
    return names.join(QLatin1String(", "));
}

static bool isCommandName(const QString &word)
{
    for (const char *name : commands) {
        if (word == QLatin1String(name))
            return true;
    }
    return false;
}

bool Reader::fail(const char *text, const QString &word)
{
    *m_problem = QString::fromLatin1(text);
    if (!word.isNull())
        m_problem->replace(QLatin1String("%1"), text::clean(word));
    return false;
}

bool Reader::read()
{
    while (!m_words.isEmpty()) {
        if (!readWord(m_words.takeFirst()))
            return false;
    }
    return m_options->help || m_options->version || isComplete();
}

bool Reader::readWord(const QString &word)
{
    if (word == QLatin1String("--help") || word == QLatin1String("-h"))
        return (m_options->help = true);
    if (word == QLatin1String("--version"))
        return (m_options->version = true);
    if (word == QLatin1String("--json"))
        return isCommand("list") ? (m_options->json = true) : fail("--json goes with the command list");
    if (word == QLatin1String("--family") || word.startsWith(QLatin1String("--family=")))
        return isCommand("list") ? readFamily(word) : fail("--family goes with the command list");
    if (word.startsWith(QLatin1Char('-')) && word.size() > 1)
        return fail("there is no option %1", word);
    return readOperand(word);
}

bool Reader::readFamily(const QString &word)
{
    const int equals = word.indexOf(QLatin1Char('='));
    if (equals == -1 && m_words.isEmpty())
        return fail("--family needs a family, such as " DEVICE_MODEL_NAME);
    m_options->family = equals == -1 ? m_words.takeFirst() : word.mid(equals + 1);
    return !m_options->family.isEmpty() || fail("--family needs a family, such as " DEVICE_MODEL_NAME);
}

bool Reader::readOperand(const QString &word)
{
    if (m_options->command.isEmpty()) {
        m_options->command = word;
        return isCommandName(word) || fail("there is no command %1", word);
    }
    if (!isCommand("show") || !m_options->uuid.isEmpty() || word.isEmpty())
        return fail("what is \"%1\" for?", word);
    m_options->uuid = word;
    return true;
}

bool Reader::isComplete()
{
    if (m_options->command.isEmpty())
        return fail("a command is missing");
    if (isCommand("show") && m_options->uuid.isEmpty())
        return fail("show needs the uuid of a device; \"upnpvelornctl list\" has them");
    return true;
}

bool readOptions(const QStringList &words, Options *options, QString *problem)
{
    if (Reader(words, options, problem).read())
        return true;
    if (options->command.isEmpty() || !isCommandName(options->command))
        *problem += QLatin1String("; the commands are: ") + commandNames();
    return false;
}

#include "output.h"

#include "text.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

static const int usualWidth = 80;

static bool isTerminal(int descriptor)
{
    const char *const kind = std::getenv("TERM");
    return isatty(descriptor) && kind && std::strcmp(kind, "dumb") != 0;
}

static int widthOf(int descriptor)
{
    struct winsize size = {};
    const bool isKnown = ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : usualWidth;
}

static void write(FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

void output::endWithTheReader()
{
    std::signal(SIGPIPE, SIG_DFL);
}

int output::width()
{
    return isatty(STDOUT_FILENO) ? widthOf(STDOUT_FILENO) : 0;
}

QString output::styled(Style style, const QString &text)
{
    static const char *const codes[] = { "1", "31", "32", "33" };
    if (!isTerminal(STDOUT_FILENO) || std::getenv("NO_COLOR"))
        return text;
    return QString::fromLatin1("\x1b[%1m").arg(QLatin1String(codes[style])) + text + QLatin1String("\x1b[0m");
}

void output::say(const QString &line)
{
    progress(QString());
    write(stdout, line + QLatin1Char('\n'));
}

void output::note(const QString &sentence)
{
    progress(QString());
    write(stderr, QLatin1String("upnpvelornctl: ") + sentence + QLatin1Char('\n'));
}

void output::progress(const QString &line)
{
    static bool isShown = false;
    if (!isTerminal(STDERR_FILENO) || (line.isEmpty() && !isShown))
        return;
    isShown = !line.isEmpty();
    write(stderr, QLatin1String("\r\x1b[K") + text::cut(line, widthOf(STDERR_FILENO) - 1));
}

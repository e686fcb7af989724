// upnpvelornctl: asks the daemon on this device, over the system bus.
#include "bus.h"
#include "commands.h"
#include "helptexts.h"
#include "options.h"
#include "output.h"

#include <QtCore/QCoreApplication>

static const char version[] = "upnpvelornctl " DAEMON_VERSION;

static QStringList wordsOf(int argc, char *argv[])
{
    QStringList words;
    for (int i = 1; i < argc; ++i)
        words += QString::fromUtf8(argv[i]);
    return words;
}

static int run(const Options &options)
{
    if (options.command == QLatin1String("status"))
        return showStatus();
    if (options.command == QLatin1String("list"))
        return listNeighbours(options);
    if (options.command == QLatin1String("show"))
        return showNeighbour(options);
    if (options.command == QLatin1String("monitor"))
        return monitorNeighbours();
    if (options.command == QLatin1String("check"))
        return checkDevice();
    return options.command == QLatin1String("announce") ? announce() : reconfigure();
}

int main(int argc, char *argv[])
{
    Options options;
    QString problem;
    if (!readOptions(wordsOf(argc, argv), &options, &problem)) {
        output::note(problem + QLatin1String(". See: upnpvelornctl --help"));
        return 2;
    }
    if (options.help || options.version) {
        output::say(QString::fromUtf8(options.help ? helpText(options.command) : version));
        return 0;
    }
    QCoreApplication application(argc, argv);
    problem = bus::connectionProblem();
    output::endWithTheReader();
    if (!problem.isEmpty()) {
        output::note(problem);
        return 1;
    }
    return run(options);
}

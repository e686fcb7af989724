#include "commands.h"
#include "neighbourwatch.h"
#include "output.h"

#include <QtCore/QCoreApplication>

#include <csignal>
#include <cstdlib>
#include <unistd.h>

// The status that shells give to what Ctrl-C has ended. Nothing is left to be cleaned up: every line has been written.
static void end(int)
{
    _exit(128 + SIGINT);
}

int monitorNeighbours()
{
    std::signal(SIGINT, end);
    NeighbourWatch watch(nullptr);
    if (!watch.start()) {
        output::note(QString::fromLatin1("The bus does not let anybody listen to the daemon."));
        return 1;
    }
    return QCoreApplication::exec();
}

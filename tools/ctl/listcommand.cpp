#include "commands.h"
#include "daemon.h"
#include "jsonline.h"
#include "options.h"
#include "output.h"
#include "table.h"
#include "text.h"

static void printTable(const QList<Neighbour> &neighbours)
{
    QList<QStringList> rows;
    rows.append(columnNames());
    for (int i = 0; i < neighbours.size(); ++i)
        rows.append(cellsOf(neighbours.at(i)));
    const QStringList lines = tableLines(rows, output::width());
    output::say(output::styled(output::Bold, lines.first()));
    for (int i = 1; i < lines.size(); ++i)
        output::say(lines.at(i));
}

static void printObjects(const QList<Neighbour> &neighbours)
{
    for (int i = 0; i < neighbours.size(); ++i)
        output::say(QString::fromLatin1(jsonLine(objectOf(neighbours.at(i))).constData()));
}

static QString nobodySentence(const QString &family)
{
    if (!family.isEmpty())
        return QString::fromLatin1("No device of the family %1 has been heard of; without --family all are listed.").arg(text::clean(family));
    return QString::fromLatin1("The daemon has heard of nobody, not even of this device. Is the network there? See: upnpvelornctl check");
}

int listNeighbours(const Options &options)
{
    QString problem;
    const QList<Neighbour> neighbours = daemon::neighbours(options.family, &problem);
    if (problem.isEmpty() && neighbours.isEmpty())
        problem = nobodySentence(options.family);
    if (!problem.isEmpty()) {
        output::note(problem);
        return 1;
    }
    if (options.json)
        printObjects(neighbours);
    else
        printTable(neighbours);
    return 0;
}

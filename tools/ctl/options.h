#ifndef OPTIONS_H
#define OPTIONS_H

#include <QtCore/QString>
#include <QtCore/QStringList>

// What the command line asks for.
struct Options
{
    Options()
        : help(false)
        , version(false)
        , json(false)
    {
    }

    QString command; // one of the commands' names; empty with --version, and with --help for the whole
    bool help;
    bool version;
    bool json;
    QString family; // empty: every family
    QString uuid;
};

// The words behind the program's name. False if they are wrong; then the sentence says what is.
bool readOptions(const QStringList &words, Options *options, QString *problem);

#endif

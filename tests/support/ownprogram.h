#ifndef OWNPROGRAM_H
#define OWNPROGRAM_H

#include <QtCore/QCoreApplication>
#include <QtCore/QProcess>
#include <QtCore/QStringList>

// Starts this test's program once more, with one argument; the program of a cross build in the emulator.
inline void startOwnProgram(QProcess *process, const char *argument)
{
    QStringList words;
    if (sizeof EMULATOR > 1)
        words = QString::fromLocal8Bit(EMULATOR).split(QLatin1Char('|'));
    words << QCoreApplication::applicationFilePath() << QLatin1String(argument);
    const QString program = words.takeFirst();
    process->start(program, words);
}

#endif

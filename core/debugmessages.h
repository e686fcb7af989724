#ifndef DEBUGMESSAGES_H
#define DEBUGMESSAGES_H

#include <QtCore/QDebug>

// False once the log drops debug messages anyway.
extern bool areDebugMessagesWanted;

// qDebug() for a message that has to be formatted, which is not done for a log that drops it: formatting one costs more
// than answering a request, and the first one brings 128 KiB of Qt's code into memory.
#define debugMessage()             \
    if (!areDebugMessagesWanted) { \
    } else                         \
        qDebug()

#endif

#include "missingthread.h"

#include "keltalog.h"
#include "qtcompat.h"

#include <cstring>
#include <unistd.h>

static const char threadMessage[] = "QThread::start: Thread creation error";

// Qt tells of it in no other way.
static void lookAt(QtMsgType, const char *text)
{
    if (std::strncmp(text, threadMessage, sizeof threadMessage - 1) != 0)
        return;
    kelta::keltalog.msg(QtCriticalMsg, "no thread to be had, ending");
    _exit(255);
}

void endWhenThreadIsMissing()
{
    qtcompat::watchMessages(lookAt);
}

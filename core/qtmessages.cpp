#include "qtmessages.h"

#include "keltalog.h"
#include "qtcompat.h"

#include <cstring>
#include <unistd.h>

static bool isMissingThread(const char *text)
{
    static const char beginning[] = "QThread::start: Thread creation error";
    return std::strncmp(text, beginning, sizeof beginning - 1) == 0;
}

static bool isEarlyConnection(const char *text)
{
    return std::strstr(text, "connection created before QCoreApplication") != nullptr;
}

// Whether the message goes to the log.
static bool filter(const char *text)
{
    if (isMissingThread(text)) {
        kelta::keltalog.msg(QtCriticalMsg, "cannot create a thread, ending");
        _exit(255);
    }
    return !isEarlyConnection(text);
}

void filterQtMessages()
{
    qtcompat::filterMessages(filter);
}

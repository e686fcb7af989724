#include "debugmessages.h"

bool areDebugMessagesWanted = true;

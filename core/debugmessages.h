#ifndef DEBUGMESSAGES_H
#define DEBUGMESSAGES_H

// False once the log drops debug messages anyway. Those of every request cost more to format than the request to answer
// and are then not made; all others are left to the log.
extern bool areDebugMessagesWanted;

#endif

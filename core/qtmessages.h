#ifndef QTMESSAGES_H
#define QTMESSAGES_H

// Looks at what Qt says before the log has it. To be called once, when the log is open.
//
// A thread that the system does not give ends the process, with a critical line in the log and status 255: Qt would say so
// and go on, to wait for ever for what the thread was to do. And nothing is said of the bus connection being older than the
// application object: Qt 4 warns of that, and here it is meant (the name is claimed first).
void filterQtMessages();

#endif

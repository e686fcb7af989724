#ifndef QTMESSAGES_H
#define QTMESSAGES_H

// Installs a filter for Qt's messages, in front of the log. To be called once, when the log is open.
//
// When Qt reports that a thread cannot be created, the process ends, with a critical line in the log and status 255: Qt
// would go on, and wait for ever for what the thread was to do. The warning of Qt 4 that the bus connection is older than
// the application object is dropped: here that is meant, since the bus name is claimed first.
void filterQtMessages();

#endif

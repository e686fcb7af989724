#ifndef TESTBUS_H
#define TESTBUS_H

#include <QtCore/QString>
#include <QtDBus/QDBusConnection>

// Another program on the bus of the test. It may call whom it likes at once, which it may not after QtDBus' own connectToBus().
QDBusConnection connectToTestBus(const QString &connectionName);

#endif

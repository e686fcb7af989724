#ifndef BUSMESSAGE_H
#define BUSMESSAGE_H

#include <QtCore/QVariant>

// How many bytes the value takes in a D-Bus message, as an element of a list of variants. It may stand anywhere in
// that list, so an element whose length is shift (0 to 7) comes before it. Ends the process when libdbus takes the
// value only with complaints or when a receiver would refuse the message.
int sizeInBusMessage(const QVariantMap &value, int shift);

#endif

#ifndef JSONLINE_H
#define JSONLINE_H

#include <QtCore/QByteArray>
#include <QtCore/QVariant>

// The value as JSON on one line, without its end. All of it is ASCII that a terminal shows: everything else is written as
// \uXXXX, so whatever strangers put into texts does no harm. Knows maps, lists, texts, truth values, numbers and, as null, nothing.
QByteArray jsonLine(const QVariant &value);

#endif

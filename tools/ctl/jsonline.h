#ifndef JSONLINE_H
#define JSONLINE_H

#include <QtCore/QByteArray>
#include <QtCore/QVariant>

// The value as JSON on one line, without a line end. The text is printable ASCII: everything else is written as \uXXXX, so texts
// of strangers do no harm. Maps, lists, texts, booleans and numbers; an invalid value is null.
QByteArray jsonLine(const QVariant &value);

#endif

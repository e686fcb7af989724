#ifndef PNGSIZE_H
#define PNGSIZE_H

#include <QtCore/QByteArray>

struct PngSize
{
    bool isPng;
    quint32 width; // pixels
    quint32 height;
};

// Of the picture that begins with these bytes.
PngSize pngSize(const QByteArray &file);

#endif

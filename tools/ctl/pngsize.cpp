#include "pngsize.h"

#include <QtCore/QtEndian>

static const int headerSize = 24; // signature, and the first chunk up to the height

static quint32 numberAt(const QByteArray &file, int place)
{
    return qFromBigEndian<quint32>(reinterpret_cast<const uchar *>(file.constData() + place));
}

PngSize pngSize(const QByteArray &file)
{
    static const QByteArray signature("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
    PngSize size = { file.size() >= headerSize && file.startsWith(signature), 0, 0 };
    if (size.isPng) {
        size.width = numberAt(file, 16);
        size.height = numberAt(file, 20);
    }
    return size;
}

#ifndef DATAGRAMBUFFER_H
#define DATAGRAMBUFFER_H

#include <QtCore/QByteArray>
#include <QtCore/QScopedPointer>

// A buffer for the longest datagram, used again for each. Of its 64 KiB only the pages take memory to which a datagram was
// written. It is no QByteArray, which would write a zero behind its last byte, and so to the last page.
class DatagramBuffer
{
public:
    enum { Size = 65536 }; // bytes

    DatagramBuffer()
        : m_bytes(new char[Size])
    {
    }

    // Where to receive to.
    char *bytes() { return m_bytes.data(); }
    // To be called with what was received: a number of bytes, or -1. False if there is no datagram, or an empty one.
    bool setSize(int size)
    {
        m_datagram.setRawData(m_bytes.data(), uint(qMax(size, 0)));
        return size > 0;
    }
    // Shares the buffer, until the next setSize(): make a deep copy of what you keep longer.
    const QByteArray &datagram() const { return m_datagram; }

private:
    Q_DISABLE_COPY(DatagramBuffer)

    QScopedArrayPointer<char> m_bytes;
    QByteArray m_datagram;
};

#endif

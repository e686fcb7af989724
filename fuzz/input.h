#ifndef INPUT_H
#define INPUT_H

#include <QtCore/QByteArray>
#include <QtCore/QList>

#include <cstddef>
#include <cstdint>

// What libFuzzer, or replay.cpp in its place, calls.
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

// A copy of its own: a byte read behind the end is noticed.
inline QByteArray bytes(const std::uint8_t *data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), int(size));
}

// An input that stands for several values has the record separator of ASCII between them. There is always a first.
inline QList<QByteArray> parts(const std::uint8_t *data, std::size_t size)
{
    return bytes(data, size).split('\x1e');
}

#endif

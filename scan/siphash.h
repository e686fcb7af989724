#ifndef SIPHASH_H
#define SIPHASH_H

#include <QtCore/QByteArray>
#include <QtCore/QtEndian>

// SipHash, a keyed hash for short texts: whoever does not know the key cannot make texts whose hashes collide.
// By Jean-Philippe Aumasson and Daniel J. Bernstein, "SipHash: a fast short-input PRF" (2012),
// https://github.com/veorq/SipHash. For hash tables, 1 round for each word and 3 at the end are usual.
namespace siphash
{

struct Key
{
    quint64 low;
    quint64 high;
};

// A key of random bytes, from the operating system. Without /dev/urandom, one that only differs from start to start.
Key randomKey();

namespace detail
{

inline quint64 rotated(quint64 word, int bits)
{
    return word << bits | word >> (64 - bits);
}

struct State
{
    quint64 v0;
    quint64 v1;
    quint64 v2;
    quint64 v3;
};

template <int Count>
inline void rounds(State *s)
{
    for (int i = 0; i < Count; ++i) {
        s->v0 += s->v1;
        s->v2 += s->v3;
        s->v1 = rotated(s->v1, 13) ^ s->v0;
        s->v3 = rotated(s->v3, 16) ^ s->v2;
        s->v0 = rotated(s->v0, 32);
        s->v2 += s->v1;
        s->v0 += s->v3;
        s->v1 = rotated(s->v1, 17) ^ s->v2;
        s->v3 = rotated(s->v3, 21) ^ s->v0;
        s->v2 = rotated(s->v2, 32);
    }
}

template <int Count>
inline void compress(State *s, quint64 word)
{
    s->v3 ^= word;
    rounds<Count>(s);
    s->v0 ^= word;
}

// The bytes behind the last whole word, and in the top byte how many bytes there were.
inline quint64 lastWord(const uchar *rest, int size)
{
    quint64 word = quint64(uint(size)) << 56;
    for (int i = 0; i < size % 8; ++i)
        word |= quint64(rest[i]) << (8 * i);
    return word;
}

} // namespace detail

template <int RoundsOfAWord, int RoundsAtTheEnd>
inline quint64 hash(const Key &key, const QByteArray &text)
{
    detail::State s = { key.low ^ Q_UINT64_C(0x736f6d6570736575), key.high ^ Q_UINT64_C(0x646f72616e646f6d),
        key.low ^ Q_UINT64_C(0x6c7967656e657261), key.high ^ Q_UINT64_C(0x7465646279746573) };
    const uchar *p = reinterpret_cast<const uchar *>(text.constData());
    for (int words = text.size() / 8; words > 0; --words, p += 8)
        detail::compress<RoundsOfAWord>(&s, qFromLittleEndian<quint64>(p));
    detail::compress<RoundsOfAWord>(&s, detail::lastWord(p, text.size()));
    s.v2 ^= 0xff;
    detail::rounds<RoundsAtTheEnd>(&s);
    return s.v0 ^ s.v1 ^ s.v2 ^ s.v3;
}

} // namespace siphash

#endif

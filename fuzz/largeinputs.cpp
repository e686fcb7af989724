#include "largeinputs.h"

static const int largestDatagram = 65507;

static QByteArray filled(const QByteArray &piece, int size = largestDatagram)
{
    return piece.repeated(size / piece.size());
}

// An announcement whose interface has this value.
static QByteArray announcementOf(const QByteArray &value)
{
    return "{\"params\":{\"device\":{\"uuid\":\"900000001\",\"familyType\":\"Kelta\"},\"netSettings\":{\"interface\":{\"ipv4\":"
        + value + "}},\"expiration\":22}}";
}

static QByteArray nested(const QByteArray &opening, const QByteArray &closing, int depth)
{
    return opening.repeated(depth) + '1' + closing.repeated(depth);
}

QList<LargeInput> largeInputs()
{
    const QByteArray key("{\"a\":");
    QList<LargeInput> inputs;
    inputs << LargeInput{ "arrays left open", filled("[") }
           << LargeInput{ "objects left open", filled(key) }
           << LargeInput{ "arrays closed", nested("[", "]", largestDatagram / 2) }
           << LargeInput{ "objects closed", nested(key, "}", largestDatagram / 6) }
           << LargeInput{ "arrays as deep as they are read", nested("[", "]", 4096) }
           << LargeInput{ "objects as deep as they are read", nested(key, "}", 4096) }
           << LargeInput{ "announced arrays, deep", announcementOf(nested("[", "]", 4000)) }
           << LargeInput{ "announced objects, deep", announcementOf(nested(key, "}", 4000)) }
           << LargeInput{ "announced nulls", announcementOf('[' + filled("null,", 60000) + "null]") }
           << LargeInput{ "announced empty lists", announcementOf('[' + filled("[],", 60000) + "[]]") }
           << LargeInput{ "announced empty texts", announcementOf('[' + filled("\"\",", 60000) + "\"\"]") }
           << LargeInput{ "announced surrogates", announcementOf('"' + filled("\\ud83d", 60000) + '"') }
           << LargeInput{ "text left open", '"' + filled("\\\"") }
           << LargeInput{ "escaped units", '"' + filled("\\u00e9") + '"' }
           << LargeInput{ "digits", filled("7") }
           << LargeInput{ "points", filled("1.") }
           << LargeInput{ "commas", '[' + filled(",") }
           << LargeInput{ "line feeds", filled("\n") + "[1]" }
           << LargeInput{ "zero bytes", filled(QByteArray(1, '\0')) }
           << LargeInput{ "bytes that UTF-8 never has", filled("\xff") }
           << LargeInput{ "search, its word last", "M-SEARCH" + filled("upnp:rootdevic", 65000) + "ssdp:all" }
           << LargeInput{ "search for nearly the device", "M-SEARCH" + filled("uuid:Upnp-BasicDevice-1_0-") + '\x1e' + "900000001" }
           << LargeInput{ "request of one word", filled("G", 1 << 20) + "\r\n" }
           << LargeInput{ "request with a long path", "GET /" + filled("a", 100000) + " HTTP/1.1\r\n" }
           << LargeInput{ "request of blanks", filled(" \r", 1 << 20) + '\n' };
    return inputs;
}

#include "dbusvalue.h"

namespace dbusvalue
{

// libdbus takes 64 containers within each other. Of these a list of summaries takes five before the first value
// of a summary: list, variant, dictionary, entry, variant.
static const int maximalDepth = 64 - 5;
static const int depthOfList = 2; // array, variant
static const int depthOfObject = 3; // array, entry, variant

// Some clients refuse a whole message over one of Unicode's noncharacters, D-Bus itself only over a zero.
static bool isRepresentable(uint codePoint)
{
    const bool isNoncharacter = (codePoint >= 0xfdd0 && codePoint <= 0xfdef) || (codePoint & 0xfffe) == 0xfffe;
    return codePoint != 0 && !isNoncharacter;
}

// The length in units of the character at i if it can be carried, else 0.
static int representableLength(const QString &text, int i)
{
    const QChar c = text.at(i);
    if (c.unicode() < 0xd800 && c.unicode() != 0) // below surrogates and noncharacters
        return 1;
    if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
        return isRepresentable(QChar::surrogateToUcs4(c, text.at(i + 1))) ? 2 : 0;
    return !c.isHighSurrogate() && !c.isLowSurrogate() && isRepresentable(c.unicode()) ? 1 : 0;
}

// How many units of the text, from its begin on, can all be carried.
static int representablePrefix(const QString &text)
{
    int i = 0;
    while (i < text.size()) {
        const int length = representableLength(text, i);
        if (length == 0)
            break;
        i += length;
    }
    return i;
}

static bool isRepresentable(const QString &text)
{
    return representablePrefix(text) == text.size();
}

QString sanitized(const QString &text)
{
    const int prefix = representablePrefix(text);
    if (prefix == text.size())
        return text;
    QString result = text.left(prefix);
    result.reserve(text.size());
    for (int i = prefix; i < text.size();) {
        const int length = representableLength(text, i);
        for (int k = 0; k < length; ++k)
            result += text.at(i + k);
        i += qMax(1, length);
    }
    return result;
}

static bool isRepresentable(const QVariant &value, int depth);

static bool isRepresentableObject(const QVariantMap &object, int depth)
{
    QVariantMap::const_iterator entry = object.constBegin();
    while (entry != object.constEnd() && isRepresentable(entry.key()) && isRepresentable(entry.value(), depth))
        ++entry;
    return entry == object.constEnd();
}

static bool isRepresentableList(const QVariantList &list, int depth)
{
    int i = 0;
    while (i < list.size() && isRepresentable(list.at(i), depth))
        ++i;
    return i == list.size();
}

// depth: containers that may still be opened here.
static bool isRepresentable(const QVariant &value, int depth)
{
    switch (value.userType()) {
    case QMetaType::QVariantMap:
        return depth >= depthOfObject && isRepresentableObject(value.toMap(), depth - depthOfObject);
    case QMetaType::QVariantList:
        return depth >= depthOfList && isRepresentableList(value.toList(), depth - depthOfList);
    case QMetaType::QString:
        return isRepresentable(value.toString());
    default:
        return value.isValid();
    }
}

static QVariant sanitizedValue(const QVariant &value, int depth);

static QVariantMap sanitizedObject(const QVariantMap &object, int depth)
{
    QVariantMap result;
    for (QVariantMap::const_iterator entry = object.constBegin(); entry != object.constEnd(); ++entry) {
        const QVariant value = sanitizedValue(entry.value(), depth);
        if (value.isValid())
            result.insert(sanitized(entry.key()), value);
    }
    return result;
}

static QVariantList sanitizedList(const QVariantList &list, int depth)
{
    QVariantList result;
    for (int i = 0; i < list.size(); ++i) {
        const QVariant value = sanitizedValue(list.at(i), depth);
        if (value.isValid())
            result.append(value);
    }
    return result;
}

// An invalid variant for what cannot be carried. depth: containers that may still be opened here.
static QVariant sanitizedValue(const QVariant &value, int depth)
{
    switch (value.userType()) {
    case QMetaType::QVariantMap:
        return depth < depthOfObject ? QVariant() : QVariant(sanitizedObject(value.toMap(), depth - depthOfObject));
    case QMetaType::QVariantList:
        return depth < depthOfList ? QVariant() : QVariant(sanitizedList(value.toList(), depth - depthOfList));
    case QMetaType::QString:
        return sanitized(value.toString());
    default:
        return value;
    }
}

QVariantMap sanitized(const QVariantMap &object)
{
    // Nearly always everything is representable, and nothing is copied.
    return isRepresentableObject(object, maximalDepth) ? object : sanitizedObject(object, maximalDepth);
}

// Lengths, padding to eight bytes, signatures
static const int overheadOfValue = 24;

// Never less than the bytes of the text in UTF-8
static int encodedSize(const QString &text)
{
    int size = 0;
    for (int i = 0; i < text.size(); ++i)
        size += text.at(i).unicode() < 0x80 ? 1 : 3;
    return size;
}

int marshalledSize(const QVariant &value)
{
    int size = overheadOfValue;
    if (value.userType() == QMetaType::QString) {
        size += encodedSize(value.toString());
    } else if (value.userType() == QMetaType::QVariantMap) {
        const QVariantMap object = value.toMap();
        for (QVariantMap::const_iterator entry = object.constBegin(); entry != object.constEnd(); ++entry)
            size += overheadOfValue + encodedSize(entry.key()) + marshalledSize(entry.value());
    } else if (value.userType() == QMetaType::QVariantList) {
        const QVariantList list = value.toList();
        for (int i = 0; i < list.size(); ++i)
            size += marshalledSize(list.at(i));
    }
    return size;
}

} // namespace dbusvalue

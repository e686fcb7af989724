#include "text.h"

#include <QtCore/QVector>

static const QChar replacement(0xfffd);
static const QChar ellipsis(0x2026);

static bool isVisible(uint character)
{
    switch (QChar::category(character)) {
    case QChar::Other_Control:
    case QChar::Other_Format: // what turns the direction of writing is among these
    case QChar::Other_Surrogate:
    case QChar::Other_PrivateUse:
    case QChar::Other_NotAssigned:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    default:
        return true;
    }
}

static bool isMark(uint character)
{
    switch (QChar::category(character)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
        return true;
    default:
        return false;
    }
}

// The blocks of East Asian writing and of pictures, which terminals show two columns wide
static bool isWide(uint character)
{
    static const uint blocks[][2] = { { 0x1100, 0x115f }, { 0x2e80, 0x303e }, { 0x3041, 0xa4cf }, { 0xa960, 0xa97f },
        { 0xac00, 0xd7a3 }, { 0xf900, 0xfaff }, { 0xfe30, 0xfe6f }, { 0xff00, 0xff60 }, { 0xffe0, 0xffe6 },
        { 0x1f300, 0x1f64f }, { 0x1f900, 0x1f9ff }, { 0x20000, 0x3fffd } };
    for (const auto &block : blocks) {
        if (character >= block[0] && character <= block[1])
            return true;
    }
    return false;
}

static int columnsOf(uint character)
{
    return isMark(character) ? 0 : isWide(character) ? 2
                                                     : 1;
}

// Not QString::toUcs4(), which in Qt 4 appends a zero for every pair of surrogates.
static QVector<uint> charactersOf(const QString &text)
{
    QVector<uint> characters;
    for (int i = 0; i < text.size(); ++i) {
        const QChar unit = text.at(i);
        const bool isPair = unit.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        characters.append(isPair ? QChar::surrogateToUcs4(unit, text.at(i + 1)) : unit.unicode());
        i += isPair ? 1 : 0;
    }
    return characters;
}

static QString textOf(uint character)
{
    return QString::fromUcs4(&character, 1);
}

QString text::clean(const QString &text)
{
    const QVector<uint> characters = charactersOf(text.left(2 * most));
    const bool isTooLong = characters.size() > most;
    QString result;
    for (int i = 0; i < (isTooLong ? most - 1 : characters.size()); ++i)
        result += isVisible(characters.at(i)) ? textOf(characters.at(i)) : QString(replacement);
    return isTooLong ? result + ellipsis : result;
}

QString text::fromBytes(const QByteArray &bytes)
{
    const QString decoded = QString::fromUtf8(bytes.constData(), bytes.size());
    return decoded.toUtf8() == bytes ? decoded : QString::fromLatin1(bytes.constData(), bytes.size());
}

int text::columns(const QString &text)
{
    const QVector<uint> characters = charactersOf(text);
    int sum = 0;
    for (int i = 0; i < characters.size(); ++i)
        sum += columnsOf(characters.at(i));
    return sum;
}

QString text::cut(const QString &text, int columns)
{
    if (text::columns(text) <= columns)
        return text;
    const QVector<uint> characters = charactersOf(text);
    QString result;
    int room = columns - 1; // the ellipsis takes one
    for (int i = 0; i < characters.size() && room >= columnsOf(characters.at(i)); ++i) {
        room -= columnsOf(characters.at(i));
        result += textOf(characters.at(i));
    }
    return columns > 0 ? result + ellipsis : QString();
}

QString text::padded(const QString &text, int columns)
{
    return text + QString(qMax(0, columns - text::columns(text)), QLatin1Char(' '));
}

// Every number gets the same length.
QString text::sortingKey(const QString &text)
{
    static const int digits = 10;
    QString key;
    QString number;
    for (int i = 0; i <= text.size(); ++i) {
        const QChar character = i < text.size() ? text.at(i) : QChar();
        if (character >= QLatin1Char('0') && character <= QLatin1Char('9')) {
            number += character;
            continue;
        }
        if (!number.isEmpty())
            key += number.rightJustified(digits, QLatin1Char('0'));
        number.clear();
        key += character.toLower();
    }
    return key;
}

QString text::duration(qint64 seconds)
{
    static const struct
    {
        const char *name;
        qint64 seconds;
    } units[] = { { "days", 86400 }, { "hours", 3600 }, { "minutes", 60 } };
    for (const auto &unit : units) {
        if (seconds >= 2 * unit.seconds)
            return QString::fromLatin1("%1 %2").arg(seconds / unit.seconds).arg(QLatin1String(unit.name));
    }
    return QString::fromLatin1(seconds == 1 ? "%1 second" : "%1 seconds").arg(seconds);
}

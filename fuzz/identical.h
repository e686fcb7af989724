#ifndef IDENTICAL_H
#define IDENTICAL_H

#include <QtCore/QVariant>

#include <cstring>

// Equal in type and value, to the bit. QVariant's own comparison takes 1 and 1.0 for equal, and an invalid variant
// for an empty one.
inline bool identical(const QVariant &a, const QVariant &b)
{
    if (a.isValid() != b.isValid() || a.userType() != b.userType())
        return false;
    if (a.userType() == QMetaType::Double) {
        const double x = a.toDouble();
        const double y = b.toDouble();
        return std::memcmp(&x, &y, sizeof x) == 0;
    }
    if (a.userType() == QMetaType::QVariantList) {
        const QVariantList x = a.toList();
        const QVariantList y = b.toList();
        bool equal = x.size() == y.size();
        for (int i = 0; equal && i < x.size(); ++i)
            equal = identical(x.at(i), y.at(i));
        return equal;
    }
    if (a.userType() == QMetaType::QVariantMap) {
        const QVariantMap x = a.toMap();
        const QVariantMap y = b.toMap();
        bool equal = x.size() == y.size();
        QVariantMap::const_iterator j = y.constBegin();
        for (QVariantMap::const_iterator i = x.constBegin(); equal && i != x.constEnd(); ++i, ++j)
            equal = i.key() == j.key() && identical(i.value(), j.value());
        return equal;
    }
    return a == b;
}

#endif

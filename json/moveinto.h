#ifndef MOVEINTO_H
#define MOVEINTO_H

#include <QVariant>

// Makes the content (QString, QVariantMap, QVariantList) the value's, and leaves an empty one behind. Copying instead
// would increment and decrement the reference count of the content, and these atomic operations take longer than most of what
// is done with a token.
template <class Content>
inline void moveInto(Content &content, QVariant &value)
{
    value = QVariant(Content());
    static_cast<Content *>(value.data())->swap(content);
}

#endif

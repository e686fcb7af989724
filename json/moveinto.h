#ifndef MOVEINTO_H
#define MOVEINTO_H

#include <QVariant>

// Makes the content (QString, QVariantMap, QVariantList) the value's, and leaves an empty one behind. Copying instead
// would count the users of the content up and down again, and atomic counting takes longer than most of what is done
// to a token.
template <class Content>
inline void moveInto(Content &content, QVariant &value)
{
    value = QVariant(Content());
    static_cast<Content *>(value.data())->swap(content);
}

#endif

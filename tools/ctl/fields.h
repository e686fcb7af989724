#ifndef FIELDS_H
#define FIELDS_H

#include <QtCore/QList>
#include <QtCore/QString>

// What is known of something, one name and value a line.
class Fields
{
public:
    // An empty value is shown as "-".
    void add(const char *name, const QString &value);
    // Aligned; on a terminal the names stand out.
    void print() const;

private:
    struct Field
    {
        QString name;
        QString value;
    };
    QList<Field> m_fields;
};

#endif

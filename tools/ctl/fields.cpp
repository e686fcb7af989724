#include "fields.h"

#include "output.h"
#include "text.h"

void Fields::add(const char *name, const QString &value)
{
    const Field field = { QString::fromLatin1(name), value.isEmpty() ? QString::fromLatin1("-") : value };
    m_fields.append(field);
}

void Fields::print() const
{
    int width = 0;
    for (int i = 0; i < m_fields.size(); ++i)
        width = qMax(width, m_fields.at(i).name.size());
    for (int i = 0; i < m_fields.size(); ++i)
        output::say(output::styled(output::Bold, text::padded(m_fields.at(i).name, width)) + QLatin1String("  ") + m_fields.at(i).value);
}

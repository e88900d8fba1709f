#include "Record.h"

#include "ModelContext.h"

ModelContext *Record::modelContext() const
{
    return m_context.data();
}

QByteArray ExternalBytes::value() const
{
    if (!m_present)
        return {};
    if (!m_loaded && m_loader) {
        m_value = m_loader();
        m_loaded = true;
    }
    return m_value;
}

#include "CopyButton.h"

#include <QClipboard>
#include <QGuiApplication>

using namespace Qt::StringLiterals;

CopyButton::CopyButton(const QString &restingLabel, std::function<QString()> text, QWidget *parent)
    : QPushButton(restingLabel, parent)
    , m_restingLabel(restingLabel)
    , m_text(std::move(text))
{
    m_reset.setSingleShot(true);
    m_reset.setInterval(copiedMs);
    connect(&m_reset, &QTimer::timeout, this, [this] { setText(m_restingLabel); });
    connect(this, &QPushButton::clicked, this, [this] {
        const QString value = m_text();
        QClipboard *clipboard = QGuiApplication::clipboard();
        clipboard->clear();
        clipboard->setText(value);
        setText(u"Copied"_s);
        m_reset.start();
        emit copied(value);
    });
}

void CopyButton::setRestingLabel(const QString &label)
{
    m_restingLabel = label;
    if (!m_reset.isActive())
        setText(label);
}

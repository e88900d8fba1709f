#include "SettingsUi.h"

#include <QFont>
#include <QLabel>
#include <QRegularExpression>
#include <QScrollArea>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace SettingsUi {

QVBoxLayout *paneColumn(QWidget *pane)
{
    auto *outer = new QVBoxLayout(pane);
    outer->setContentsMargins(0, 0, 0, 0);
    auto *scroll = new QScrollArea(pane);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    outer->addWidget(scroll);
    auto *content = new QWidget(scroll);
    scroll->setWidget(content);
    auto *column = new QVBoxLayout(content);
    column->setContentsMargins(28, 20, 28, 20);
    column->setSpacing(10);
    return column;
}

QLabel *sectionHeading(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.1);
    label->setFont(font);
    label->setContentsMargins(0, 10, 0, 2);
    return label;
}

QLabel *hint(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.92);
    label->setFont(font);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

QString withCode(const QString &text)
{
    static const QRegularExpression code(u"`([^`]+)`"_s);
    QString html = text.toHtmlEscaped();
    html.replace(code, u"<code>\\1</code>"_s);
    return html;
}

} // namespace SettingsUi

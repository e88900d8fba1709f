#include "LinkDialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

LinkDialog::LinkDialog(const QString &current, QWidget *parent)
    : QDialog(parent)
    , m_field(new QLineEdit(current, this))
{
    setWindowTitle(tr("Link"));
    setObjectName(u"linkDialog"_s);
    m_field->setPlaceholderText(u"https://"_s);
    m_field->setMinimumWidth(340);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)
        ->setText(current.isEmpty() ? tr("Add Link") : tr("Update"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    auto *label =
        new QLabel(tr("Address of the page to link to. Leave it empty to remove the link."), this);
    label->setWordWrap(true);
    layout->addWidget(label);
    layout->addWidget(m_field);
    layout->addWidget(buttons);
}

QString LinkDialog::address() const
{
    return m_field->text().trimmed();
}

std::optional<QString> LinkDialog::ask(QWidget *parent, const QString &current)
{
    LinkDialog dialog(current, parent);
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return dialog.address();
}

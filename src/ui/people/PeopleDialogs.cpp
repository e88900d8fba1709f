#include "PeopleDialogs.h"

#include <QCalendarWidget>
#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

template<class W>
W *named(W *widget, const QString &name)
{
    widget->setObjectName(name);
    return widget;
}

// Cancel and the accepting button, which Return presses.
QDialogButtonBox *addButtons(QDialog &dialog, QLayout *layout, const QString &acceptLabel)
{
    // Both buttons plain words: the style gives a standard Cancel an icon the other lacks.
    auto *buttons = new QDialogButtonBox(&dialog);
    buttons->addButton(QObject::tr("Cancel"), QDialogButtonBox::RejectRole);
    buttons->addButton(acceptLabel, QDialogButtonBox::AcceptRole)->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(buttons);
    return buttons;
}

void acceptOnlyWithText(QDialogButtonBox *buttons, QLineEdit *field)
{
    QPushButton *accept = nullptr;
    for (QAbstractButton *button : buttons->buttons()) {
        if (buttons->buttonRole(button) == QDialogButtonBox::AcceptRole)
            accept = qobject_cast<QPushButton *>(button);
    }
    if (!accept)
        return;
    const auto update = [accept, field] { accept->setEnabled(!field->text().trimmed().isEmpty()); };
    QObject::connect(field, &QLineEdit::textChanged, accept, update);
    update();
}

} // namespace

namespace PeopleDialogs {

std::optional<PersonValues> editPerson(QWidget *parent, const QString &title,
                                       const PersonValues &initial)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(title);
    auto *layout = new QVBoxLayout(&dialog);
    auto *form = new QFormLayout;
    auto *name = named(new QLineEdit(initial.name, &dialog), u"name"_s);
    auto *role = named(new QLineEdit(initial.role, &dialog), u"role"_s);
    role->setPlaceholderText(QObject::tr("Job title"));
    auto *relationship = named(new QComboBox(&dialog), u"relationship"_s);
    for (const auto &[value, label] : EnumInfo<RelationshipType>::cases) {
        relationship->addItem(QString::fromLatin1(label), int(value));
        if (value == initial.relationship)
            relationship->setCurrentIndex(relationship->count() - 1);
    }
    auto *email = named(new QLineEdit(initial.email, &dialog), u"email"_s);
    auto *emoji = named(new QLineEdit(initial.emoji, &dialog), u"emoji"_s);
    emoji->setMaxLength(8);
    emoji->setPlaceholderText(QObject::tr("Initials when empty"));
    auto *pinned =
        named(new QCheckBox(QObject::tr("Pin to the top of the list"), &dialog), u"pinned"_s);
    pinned->setChecked(initial.isPinned);
    form->addRow(QObject::tr("Name"), name);
    form->addRow(QObject::tr("Role"), role);
    form->addRow(QObject::tr("Relationship"), relationship);
    form->addRow(QObject::tr("Email"), email);
    form->addRow(QObject::tr("Mark"), emoji);
    form->addRow(QString(), pinned);
    layout->addLayout(form);
    acceptOnlyWithText(addButtons(dialog, layout, QObject::tr("Save")), name);
    dialog.resize(420, dialog.sizeHint().height());
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return PersonValues{name->text().trimmed(),
                        role->text().trimmed(),
                        RelationshipType(relationship->currentData().toInt()),
                        email->text().trimmed(),
                        emoji->text().trimmed(),
                        pinned->isChecked()};
}

std::optional<ActionValues> editAction(QWidget *parent, const ActionValues &initial)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(QObject::tr("Action Item"));
    auto *layout = new QVBoxLayout(&dialog);
    auto *form = new QFormLayout;
    auto *title = named(new QLineEdit(initial.title, &dialog), u"title"_s);
    auto *hasDue = named(new QCheckBox(QObject::tr("Due"), &dialog), u"hasDue"_s);
    auto *due = named(new QDateEdit(initial.due.value_or(QDate::currentDate()), &dialog), u"due"_s);
    due->setCalendarPopup(true);
    hasDue->setChecked(initial.due.has_value());
    due->setEnabled(hasDue->isChecked());
    QObject::connect(hasDue, &QCheckBox::toggled, due, &QWidget::setEnabled);
    auto *dueRow = new QHBoxLayout;
    dueRow->addWidget(hasDue);
    dueRow->addWidget(due, 1);
    form->addRow(QObject::tr("Action"), title);
    form->addRow(QString(), dueRow);
    layout->addLayout(form);
    acceptOnlyWithText(addButtons(dialog, layout, QObject::tr("Save")), title);
    dialog.resize(420, dialog.sizeHint().height());
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return ActionValues{title->text().trimmed(),
                        hasDue->isChecked() ? std::optional(due->date()) : std::nullopt};
}

std::optional<QDate> pickDate(QWidget *parent, const QDate &initial)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(QObject::tr("New 1:1 Note"));
    auto *layout = new QVBoxLayout(&dialog);
    auto *calendar = named(new QCalendarWidget(&dialog), u"date"_s);
    calendar->setSelectedDate(initial);
    calendar->setGridVisible(false);
    layout->addWidget(calendar);
    addButtons(dialog, layout, QObject::tr("Create Note"));
    QObject::connect(calendar, &QCalendarWidget::activated, &dialog, &QDialog::accept);
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return calendar->selectedDate();
}

} // namespace PeopleDialogs

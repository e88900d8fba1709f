#include "JournalPane.h"

#include "SettingsUi.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/WritingStyle.h"
#include "writing/JournalTemplates.h"

#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

JournalPane::JournalPane(Preferences &preferences, QWidget *parent)
    : QWidget(parent)
{
    setObjectName(u"journalPane"_s);
    QVBoxLayout *column = SettingsUi::paneColumn(this);

    column->addWidget(SettingsUi::sectionHeading(u"Day Template"_s, this));
    auto *templates = new QComboBox(this);
    templates->setObjectName(u"journalTemplate"_s);
    for (const JournalTemplates::Template &day : JournalTemplates::all())
        templates->addItem(day.name, day.id);
    const int chosen = templates->findData(JournalTemplates::currentTemplateId(preferences));
    templates->setCurrentIndex(chosen >= 0 ? chosen : 0);
    auto *templateForm = new QFormLayout;
    templateForm->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    templateForm->addRow(u"New pages start with"_s, templates);
    column->addLayout(templateForm);
    QLabel *description = SettingsUi::hint(QString(), this);
    description->setObjectName(u"templateDescription"_s);
    column->addWidget(description);
    const auto describe = [templates, description] {
        const auto day = JournalTemplates::find(templates->currentData().toString());
        description->setText(day ? day->description : QString());
    };
    describe();
    connect(templates, &QComboBox::currentIndexChanged, this, [templates, &preferences, describe] {
        preferences.set(Prefs::journalTemplate, templates->currentData().toString());
        describe();
    });

    column->addWidget(SettingsUi::sectionHeading(u"Writing Style"_s, this));
    auto *length = new QComboBox(this);
    length->setObjectName(u"writingStyle"_s);
    for (WritingStyle style : WritingStyles::all)
        length->addItem(WritingStyles::label(style), WritingStyles::rawValue(style));
    // Anything unknown reads as balanced, as everywhere else.
    length->setCurrentIndex(
        length->findData(WritingStyles::rawValue(WritingStyles::current(preferences))));
    auto *styleForm = new QFormLayout;
    styleForm->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    styleForm->addRow(u"Length"_s, length);
    column->addLayout(styleForm);
    column->addWidget(SettingsUi::hint(u"How much Tovren and your assistant write"_s, this));
    column->addWidget(SettingsUi::hint(u"Your own words are never touched."_s, this));
    connect(length, &QComboBox::currentIndexChanged, this, [length, &preferences] {
        preferences.set(Prefs::journalWritingStyle, length->currentData().toString());
    });
    column->addStretch();
}

#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

class Preferences;

// The day templates: headings a new page starts with and assistants write under.
namespace JournalTemplates {

struct Template {
    QString id;
    QString name;
    QString icon;
    QString description;
    QStringList sections;

    // Each section as "## " + name and a line feed, a blank line between them.
    QString content() const;
};

const QList<Template> &all();
std::optional<Template> find(const QString &id);

// The user's own sections for a template, when the stored JSON has a list of them.
std::optional<QStringList> customSections(const QString &id, const Preferences &preferences);
void setCustomSections(const QString &id, const QStringList &sections, Preferences &preferences);

// The page text of a template, with the user's sections; empty for "blank" and unknown ids.
QString content(const QString &id, const Preferences &preferences);
QString currentTemplateId(const Preferences &preferences);
// The headings of the chosen template's page, in order.
QStringList currentSections(const Preferences &preferences);
// A sentence for assistants naming the sections, or nothing for a free-form journal.
QString mcpSectionGuidance(const Preferences &preferences);

// The page with `text` on the line after the last non-blank line of the section headed
// `section` (any level, ignoring case and marks); nothing when the page has no such heading.
std::optional<QString> inserting(const QString &text, const QString &section, const QString &page);
// A heading line: "#"s and a blank, as the stored text reads one.
bool isHeadingLine(QStringView line);

} // namespace JournalTemplates

#include "JournalTemplates.h"

#include "InlineMarkup.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace JournalTemplates {

namespace {

QString headingText(QStringView line)
{
    qsizetype at = 0;
    while (at < line.size() && line[at] == u'#')
        ++at;
    QString plain;
    for (const InlineMarkup::Span &span : InlineMarkup::parse(line.mid(at).trimmed()))
        plain += span.text;
    return plain.trimmed();
}

std::optional<QJsonObject> customObject(const Preferences &preferences)
{
    const QString json = preferences.value(Prefs::customTemplateSections);
    if (json.isEmpty())
        return std::nullopt;
    const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8());
    if (!document.isObject())
        return std::nullopt;
    return document.object();
}

} // namespace

QString Template::content() const
{
    QStringList parts;
    for (const QString &section : sections)
        parts.append(u"## "_s + section + u'\n');
    return parts.join(u'\n');
}

const QList<Template> &all()
{
    static const QList<Template> list{
        {u"blank"_s,
         u"Free Form"_s,
         u"document-new"_s,
         u"Empty page. Just write whatever comes to mind."_s,
         {}},
        {u"engineer"_s,
         u"Software Engineer"_s,
         u"utilities-terminal"_s,
         u"Track shipped work, code reviews, decisions, and blockers."_s,
         {u"What I did"_s, u"Decisions I made"_s, u"Code reviews & PRs"_s, u"Who I helped"_s,
          u"Blockers / friction"_s}},
        {u"pm"_s,
         u"Product Manager"_s,
         u"view-list-details"_s,
         u"Capture decisions, stakeholder updates, and customer signals."_s,
         {u"Decisions made"_s, u"Stakeholder updates"_s, u"Metrics & data"_s,
          u"Customer feedback"_s, u"Action items"_s}},
        {u"designer"_s,
         u"Designer"_s,
         u"applications-graphics"_s,
         u"Document designs, feedback, research, and iterations."_s,
         {u"What I designed"_s, u"Feedback received"_s, u"Research & inspiration"_s,
          u"Iterations & changes"_s, u"Next steps"_s}},
        {u"manager"_s,
         u"Manager"_s,
         u"system-users"_s,
         u"Track your people, execution, hiring, and leadership decisions, for any team in "
         "any field."_s,
         {u"People"_s, u"Projects & execution"_s, u"Decisions & tradeoffs"_s,
          u"Hiring / interviews"_s, u"Follow-ups"_s}},
        {u"data"_s,
         u"Data & Analytics"_s,
         u"office-chart-line"_s,
         u"Questions answered, analyses and models, and the decisions they changed."_s,
         {u"Questions answered"_s, u"Analyses & models"_s, u"Decisions it changed"_s,
          u"Data quality & pipelines"_s, u"Who I helped"_s}},
        {u"sre"_s,
         u"Infrastructure & SRE"_s,
         u"network-server"_s,
         u"Incidents, reliability work, toil removed and the systems you kept up."_s,
         {u"Incidents & on-call"_s, u"Reliability work"_s, u"Toil removed"_s, u"Who I unblocked"_s,
          u"Risks & follow-ups"_s}},
        {u"sales"_s,
         u"Sales"_s,
         u"emblem-money"_s,
         u"Wins, pipeline, customer conversations and what's next."_s,
         {u"Wins & numbers"_s, u"Pipeline moved"_s, u"Customer conversations"_s,
          u"Team & partners"_s, u"Next steps"_s}},
        {u"support"_s,
         u"Customer Support"_s,
         u"help-browser"_s,
         u"Customers helped, hard cases solved and the fixes that came from them."_s,
         {u"Customers helped"_s, u"Tricky cases solved"_s, u"Praise & feedback"_s,
          u"Fixes & improvements"_s, u"Team help"_s}},
        {u"operations"_s,
         u"Operations & Admin"_s,
         u"preferences-system"_s,
         u"What you kept running, problems solved and processes made better."_s,
         {u"What I kept running"_s, u"Problems solved"_s, u"Process improvements"_s,
          u"Who I supported"_s, u"Next up"_s}},
        {u"standup"_s,
         u"Standup"_s,
         u"appointment-soon"_s,
         u"Quick daily check-in: yesterday, today, blockers."_s,
         {u"Yesterday"_s, u"Today"_s, u"Blockers"_s}},
        {u"general"_s,
         u"General"_s,
         u"x-office-document"_s,
         u"Simple daily structure that works for any role."_s,
         {u"What I worked on"_s, u"Who I talked to"_s, u"What's next"_s}},
    };
    return list;
}

std::optional<Template> find(const QString &id)
{
    for (const Template &candidate : all()) {
        if (candidate.id == id)
            return candidate;
    }
    return std::nullopt;
}

std::optional<QStringList> customSections(const QString &id, const Preferences &preferences)
{
    const auto object = customObject(preferences);
    if (!object)
        return std::nullopt;
    const QJsonValue value = object->value(id);
    if (!value.isArray())
        return std::nullopt;
    QStringList sections;
    for (const QJsonValue &item : value.toArray()) {
        if (!item.isString())
            return std::nullopt;
        sections.append(item.toString());
    }
    return sections;
}

void setCustomSections(const QString &id, const QStringList &sections, Preferences &preferences)
{
    QJsonObject object = customObject(preferences).value_or(QJsonObject());
    object.insert(id, QJsonArray::fromStringList(sections));
    preferences.set(Prefs::customTemplateSections,
                    QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

QString content(const QString &id, const Preferences &preferences)
{
    std::optional<Template> found = find(id);
    if (!found || found->id == u"blank")
        return QString();
    if (auto custom = customSections(id, preferences))
        found->sections = *custom;
    return found->content();
}

QString currentTemplateId(const Preferences &preferences)
{
    const QString id = preferences.value(Prefs::journalTemplate);
    return id.isEmpty() ? u"blank"_s : id;
}

QStringList currentSections(const Preferences &preferences)
{
    QStringList sections;
    const QString page = content(currentTemplateId(preferences), preferences);
    for (QStringView line : QStringView(page).split(u'\n')) {
        if (!line.startsWith(u"## "))
            continue;
        const QString name = line.mid(3).trimmed().toString();
        if (!name.isEmpty())
            sections.append(name);
    }
    return sections;
}

QString mcpSectionGuidance(const Preferences &preferences)
{
    const QStringList sections = currentSections(preferences);
    if (sections.isEmpty())
        return QString();
    return u"This journal is organised under: "_s + sections.join(u", "_s) +
           u". Pass the one this belongs under as 'section'. "_s;
}

bool isHeadingLine(QStringView line)
{
    qsizetype at = 0;
    while (at < line.size() && line[at] == u'#')
        ++at;
    return at > 0 && at < line.size() && line[at] == u' ';
}

std::optional<QString> inserting(const QString &text, const QString &section, const QString &page)
{
    // A section runs from its heading to the next heading of any level, so a sub-heading ends
    // it too. Only real headings count ("#"s and a blank): a line that opens with a #tag is text.
    // Headings match at any level and with their marks stripped, as the user may have restyled
    // them.
    QStringList lines = page.split(u'\n');
    const QString wanted = section.trimmed();
    qsizetype heading = -1;
    for (qsizetype i = 0; i < lines.size() && heading < 0; ++i) {
        if (isHeadingLine(lines.at(i)) &&
            headingText(lines.at(i)).compare(wanted, Qt::CaseInsensitive) == 0)
            heading = i;
    }
    if (heading < 0)
        return std::nullopt;
    qsizetype end = heading + 1;
    while (end < lines.size() && !isHeadingLine(lines.at(end)))
        ++end;
    while (end - 1 > heading && lines.at(end - 1).trimmed().isEmpty())
        --end;
    // Straight after the section's last line, with no blank line between: bullets added one at
    // a time make one list.
    lines.insert(end, text);
    return lines.join(u'\n');
}

} // namespace JournalTemplates

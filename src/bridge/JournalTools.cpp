#include "JournalTools.h"

#include "MCPError.h"
#include "MCPProtocol.h"
#include "MCPTools.h"
#include "RPCMessages.h"
#include "ToolArguments.h"
#include "core/Clock.h"
#include "core/JournalLanguage.h"
#include "core/Notices.h"
#include "core/TagParser.h"
#include "core/records/DailyEntry.h"
#include "core/records/EntryImage.h"
#include "core/store/ModelContext.h"
#include "core/store/StoreError.h"
#include "writing/InlineMarkup.h"
#include "writing/JournalDraftStore.h"
#include "writing/JournalTemplates.h"

#include <QJsonArray>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace JournalTools {

namespace {

const QString mentionAndTagAdvice =
    u"Mention people the user works with as @ followed by their name exactly as get_people "
    "lists it (for example @Daniel Okafor), which links the entry to their page; if someone the "
    "user works with closely isn't there yet, ask before adding them with add_person. Mark a "
    "project or theme with a one-word #tag, reusing one from get_tags rather than inventing a "
    "near-duplicate."_s;

const QString isoDate = u"ISO-8601 date (YYYY-MM-DD). Defaults to today."_s;

// One day's rows, oldest first; a failed fetch is an empty day.
struct Day {
    QDateTime start;
    QList<std::shared_ptr<DailyEntry>> rows;
    QString stored;
};

Day fetchDay(const QDateTime &start, const QDateTime &end, ModelContext &context)
{
    Day day{start, {}, {}};
    day.rows = context.tryFetch<DailyEntry>({field(&DailyEntry::date).inRange(start, end),
                                             {field(&DailyEntry::createdAt).ascending()},
                                             {}});
    QStringList contents;
    for (const auto &row : day.rows)
        contents.append(row->content);
    day.stored = contents.join(u'\n');
    return day;
}

QDateTime dayAfter(const QDateTime &start)
{
    const Calendar calendar = Calendar::current();
    const QDate next = calendar.day(start).addDays(1);
    return next.isValid() ? calendar.startOfDay(next) : QDateTime();
}

// The trimmed text of a required "content" argument.
QString requiredContent(const QJsonObject &arguments)
{
    const QString content = RPCValue::text(arguments.value("content"_L1)).value_or(QString());
    if (content.trimmed().isEmpty())
        throw MCPError(MCPError::invalidParams, u"Missing required 'content' argument."_s);
    return content.trimmed();
}

void announce(JournalDraftStore &drafts, const QDateTime &day, const QString &text)
{
    drafts.recordStored(text, day);
    NoticeCenter::shared().post(Notices::journalReplaced, {{u"day"_s, day}, {u"text"_s, text}});
}

QString normalised(const QString &text)
{
    return text.simplified();
}

// Image tokens mean nothing to an assistant; each reads as "[image]".
QString withImagesNamed(const QString &text)
{
    const QList<InlineMarkup::TokenMatch> tokens = InlineMarkup::findImageTokens(text);
    if (tokens.isEmpty())
        return text;
    QString out;
    out.reserve(text.size());
    qsizetype at = 0;
    for (const InlineMarkup::TokenMatch &token : tokens) {
        out += QStringView(text).mid(at, token.start - at) + u"[image]"_s;
        at = token.start + token.length;
    }
    return out + QStringView(text).mid(at);
}

QString getEntries(const QJsonObject &arguments, ModelContext &context, JournalDraftStore &drafts)
{
    const Calendar calendar = Calendar::current();
    const QDateTime now = Clock::now();
    const std::optional<QDate> from = ToolArguments::date(arguments.value("from"_L1));
    const std::optional<QDate> to = ToolArguments::date(arguments.value("to"_L1));
    const QDate lower = from.value_or(calendar.day(now).addDays(-14));
    const QDate upper = to.value_or(calendar.day(now));
    const qint64 limit = ToolArguments::limit(arguments.value("limit"_L1), 50, 200);

    const QDate afterUpper = upper.addDays(1);
    if (!afterUpper.isValid())
        return u"No journal entries in that range."_s;
    const auto rows = context.tryFetch<DailyEntry>(
        {field(&DailyEntry::date)
             .inRange(calendar.startOfDay(lower), calendar.startOfDay(afterUpper)),
         {field(&DailyEntry::date).descending()},
         limit});
    if (rows.isEmpty())
        return u"No journal entries in that range."_s;

    QStringList sections;
    QSet<qint64> seen;
    QDateTime lastDay;
    for (const auto &row : rows) {
        QString text = row->content;
        const QDateTime day = calendar.startOfDay(row->date);
        if (!seen.contains(day.toMSecsSinceEpoch())) {
            // The first row of a day carries what the open page holds unsaved.
            if (const std::optional<QString> draft = drafts.draft(day))
                text = JournalDraftStore::reconcile(*draft, drafts.base(day).value_or(text), text);
            seen.insert(day.toMSecsSinceEpoch());
        }
        text = withImagesNamed(text);
        text = text.trimmed();
        if (day == lastDay) {
            sections.last() += u"\n\n"_s + text;
        } else {
            sections.append(u"## "_s + ToolArguments::longDateWithWeekday(row->date) + u"\n\n"_s +
                            text);
            lastDay = day;
        }
    }
    return sections.join(u"\n\n---\n\n"_s);
}

QString getJournalTemplate(const Preferences &preferences)
{
    const QStringList sections = JournalTemplates::currentSections(preferences);
    if (sections.isEmpty())
        return u"Free-form. No template sections, so write plain prose with no headings."_s;
    QStringList lines;
    for (const QString &section : sections)
        lines.append(u"## "_s + section);
    return u"Template sections, in order:\n"_s + lines.join(u'\n') +
           u"\n\nPut new text under the heading it belongs to. Keep the headings exactly as "
           "written here, and do not add headings that are not in this list."_s;
}

QString addJournalEntry(const QJsonObject &arguments, ModelContext &context,
                        JournalDraftStore &drafts, const Preferences &preferences)
{
    const QString content = requiredContent(arguments);
    const QDateTime start = ToolArguments::dayOrToday(arguments.value("date"_L1));
    const Day day = fetchDay(start, dayAfter(start), context);
    const QString base = drafts.liveText(start, day.stored);

    const QStringList sections = JournalTemplates::currentSections(preferences);
    std::optional<QString> section = RPCValue::text(arguments.value("section"_L1));
    if (section)
        *section = section->trimmed();

    QString text;
    if (sections.isEmpty()) {
        text = base.isEmpty() ? content : base + u"\n\n"_s + content;
    } else {
        const QString list = sections.join(u", "_s);
        if (!section || section->isEmpty())
            throw MCPError(MCPError::invalidParams,
                           u"This journal uses sections, so say which one this goes under. Pass "
                           "'section' as one of: "_s +
                               list + u"."_s);
        const bool known = std::any_of(sections.cbegin(), sections.cend(), [&](const QString &s) {
            return s.compare(*section, Qt::CaseInsensitive) == 0;
        });
        if (!known)
            throw MCPError(MCPError::invalidParams,
                           u"\""_s + *section +
                               u"\" is not one of this journal's sections. Use one of: "_s + list +
                               u"."_s);
        // The first write of a day lays out the user's headings.
        const QString working =
            base.isEmpty() ? JournalTemplates::content(
                                 JournalTemplates::currentTemplateId(preferences), preferences)
                           : base;
        if (const std::optional<QString> inserted =
                JournalTemplates::inserting(content, *section, working))
            text = *inserted;
        else if (!working.isEmpty())
            text = working + u"\n\n## "_s + *section + u"\n\n"_s + content;
        else
            text = u"## "_s + *section + u"\n\n"_s + content;
    }

    if (day.rows.isEmpty()) {
        context.insert(std::make_shared<DailyEntry>(text, start, false));
    } else {
        const auto &first = day.rows.first();
        first->content = text;
        first->updatedAt = Clock::now();
        for (qsizetype i = 1; i < day.rows.size(); ++i) {
            for (const auto &image : day.rows.at(i)->images())
                image->entry = first;
            context.remove(day.rows.at(i));
        }
    }
    TagParser::resolveTags(TagParser::extractTagNames(content), context);
    try {
        context.save();
    } catch (const StoreError &error) {
        throw MCPError(MCPError::internalError,
                       u"Couldn't save the journal entry: "_s + error.description());
    }
    announce(drafts, start, text);

    QString reply = u"Added to journal for "_s + ToolArguments::longDate(start);
    if (section)
        reply += u" under "_s + *section;
    return reply + u"."_s;
}

QString updateJournalEntry(const QJsonObject &arguments, ModelContext &context,
                           JournalDraftStore &drafts)
{
    const QString content = requiredContent(arguments);
    const std::optional<QString> expected = RPCValue::text(arguments.value("expected_current"_L1));
    if (!expected)
        throw MCPError(MCPError::invalidParams,
                       u"Missing required 'expected_current'. Read the entry with get_entries "
                       "first."_s);
    const QDateTime start = ToolArguments::dayOrToday(arguments.value("date"_L1));
    const QDateTime end = dayAfter(start);
    if (!start.isValid() || !end.isValid())
        throw MCPError(MCPError::invalidParams, u"Could not resolve that date."_s);
    const Day day = fetchDay(start, end, context);
    const QString live = drafts.liveText(start, day.stored);
    if (normalised(live) != normalised(*expected))
        throw MCPError(MCPError::invalidParams,
                       u"That day has changed since you read it, so nothing was written. Read it "
                       "again with get_entries and retry with the current text."_s);

    // Later rows go with their images: an assistant that rewrote the day has seen only their
    // text.
    const bool created = day.rows.isEmpty();
    if (created) {
        context.insert(std::make_shared<DailyEntry>(content, start, false));
    } else {
        day.rows.first()->content = content;
        day.rows.first()->updatedAt = Clock::now();
        for (qsizetype i = 1; i < day.rows.size(); ++i)
            context.remove(day.rows.at(i));
    }
    // The reply says it was written even when the save fails; the changes stay pending and go
    // out with the next save.
    context.trySave();
    announce(drafts, start, content);
    return (created ? u"Created the entry for "_s : u"Updated the entry for "_s) +
           ToolArguments::longDate(start) + u"."_s;
}

} // namespace

void registerAll(MCPTools &tools, JournalDraftStore &drafts, const Preferences &preferences)
{
    const MCPToolGroup::Group journal = MCPToolGroup::Group::journal;

    tools.add(
        journal,
        MCPTool{u"get_entries"_s,
                u"Return journal entries within a date range as markdown. Defaults to the "
                "last 14 days when no range is provided. Use this when the user asks what "
                "they worked on or wants context grounded in their actual writing."_s,
                ToolSchema::schema(QJsonObject{
                    {"from"_L1, ToolSchema::property(u"string"_s, u"ISO-8601 date (YYYY-MM-DD). "
                                                                  "Inclusive lower bound."_s)},
                    {"to"_L1, ToolSchema::property(u"string"_s, u"ISO-8601 date (YYYY-MM-DD). "
                                                                "Inclusive upper bound."_s)},
                    {"limit"_L1, ToolSchema::property(u"integer"_s, u"Maximum entries to return "
                                                                    "(default 50, max 200)."_s)}}),
                [&drafts](const QJsonObject &arguments, ModelContext &context) {
                    return getEntries(arguments, context, drafts);
                },
                {}});

    tools.add(journal,
              MCPTool{u"get_journal_template"_s,
                      u"The headings the user's days are organised under. Call before writing "
                      "so text goes under the right heading, not the bottom. No sections means "
                      "free-form prose."_s,
                      ToolSchema::schema(QJsonObject()),
                      [&preferences](const QJsonObject &, ModelContext &) {
                          return getJournalTemplate(preferences);
                      },
                      {}});

    const auto describeAdd = [&preferences]() -> QString {
        return u"Add a paragraph to the user's journal for a date (default today). Never "
               "overwrites.\n"_s +
               JournalTemplates::mcpSectionGuidance(preferences) +
               MCPProtocol::writingStyleSentence(preferences) +
               JournalLanguage::instruction(preferences) +
               u" Write first person as the user. State only what they did; never invent "
               "detail, as this is evidence at review time. "_s +
               mentionAndTagAdvice;
    };
    tools.add(
        journal,
        MCPTool{u"add_journal_entry"_s, describeAdd(),
                ToolSchema::schema(
                    QJsonObject{
                        {"content"_L1,
                         ToolSchema::property(u"string"_s, u"Markdown to add to that day. Do not "
                                                           "repeat the section heading; name it in "
                                                           "'section' instead."_s)},
                        {"section"_L1,
                         ToolSchema::property(u"string"_s,
                                              u"Which of the user's template headings this belongs "
                                              "under, written exactly as the template spells it. "
                                              "Required when the user has a template."_s)},
                        {"date"_L1, ToolSchema::property(u"string"_s, isoDate)}},
                    {u"content"_s}),
                [&drafts, &preferences](const QJsonObject &arguments, ModelContext &context) {
                    return addJournalEntry(arguments, context, drafts, preferences);
                },
                describeAdd});

    tools.add(
        journal,
        MCPTool{
            u"update_journal_entry"_s,
            u"Replace a day's journal text: corrections, tidying, or moving text under "
            "the right heading. Read it with get_entries first and pass that text as "
            "expected_current; the call fails if the day changed since. To merely add "
            "text, use add_journal_entry. "_s +
                mentionAndTagAdvice,
            ToolSchema::schema(
                QJsonObject{
                    {"content"_L1,
                     ToolSchema::property(u"string"_s, u"Full replacement text for the day, "
                                                       "Markdown."_s)},
                    {"expected_current"_L1,
                     ToolSchema::property(u"string"_s, u"The day's text as last read. Rejected if "
                                                       "it no longer matches."_s)},
                    {"date"_L1, ToolSchema::property(u"string"_s, isoDate)}},
                {u"content"_s, u"expected_current"_s}),
            [&drafts](const QJsonObject &arguments, ModelContext &context) {
                return updateJournalEntry(arguments, context, drafts);
            },
            {}});
}

} // namespace JournalTools

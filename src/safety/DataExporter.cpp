#include "DataExporter.h"

#include "core/Clock.h"
#include "core/DateText.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Goal.h"
#include "core/records/GoalMilestone.h"
#include "core/records/InboxItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/store/ModelContext.h"

#include <QFile>
#include <QHash>
#include <QSaveFile>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

QString ExportError::errorDescription() const
{
    return u"Couldn't write the export file: "_s + m_error;
}

QString ImportError::errorDescription() const
{
    switch (m_kind) {
    case Kind::decodingFailed:
        return u"This file isn't a valid Tovren backup. ("_s + m_error + u')';
    case Kind::saveFailed:
        return u"Couldn't save the imported data: "_s + m_error;
    case Kind::invalidFile:
        break;
    }
    return u"The selected file isn't readable."_s;
}

namespace {

QString idText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

// An optional instant Qt can't write (beyond the year 9999) is left out, like an absent one.
std::optional<QString> optionalDateText(const std::optional<QDateTime> &instant)
{
    if (!instant)
        return std::nullopt;
    QString text = DataExporter::dateText(*instant);
    if (text.isEmpty())
        return std::nullopt;
    return text;
}

std::optional<QDateTime> parseOptionalDate(const std::optional<QString> &text)
{
    return text ? DataExporter::parseDate(*text) : std::nullopt;
}

template<class T>
QSet<QString> existingIds(ModelContext &context)
{
    QSet<QString> ids;
    for (const auto &record : context.tryFetch<T>())
        ids.insert(idText(record->id));
    return ids;
}

ExportData decodeOrRaise(QByteArrayView bytes)
{
    try {
        return DataExportFormat::decode(bytes);
    } catch (const DataExportFormat::DecodeError &error) {
        throw ImportError::decodingFailed(error.description());
    }
}

} // namespace

namespace DataExporter {

QString dateText(const QDateTime &instant)
{
    // Qt::ISODate has no fractions, and UTC comes out with "Z". An instant it can't write
    // becomes "", which an import reads as a date that isn't given.
    return instant.toUTC().toString(Qt::ISODate);
}

std::optional<QDateTime> parseDate(const QString &text)
{
    const QDateTime parsed = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!parsed.isValid())
        return std::nullopt;
    return parsed;
}

ExportData collect(ModelContext &context)
{
    ExportData data;
    data.exportedAt = dateText(Clock::now());

    for (const auto &entry : context.tryFetch<DailyEntry>()) {
        data.entries.append({idText(entry->id), dateText(entry->date), entry->content,
                             dateText(entry->createdAt), entry->summary});
    }

    // Parents first, so that their children's links resolve to records already held, and the
    // children in one fetch rather than one per parent.
    const auto meetings = context.tryFetch<Meeting>();
    QHash<const Meeting *, QList<std::shared_ptr<ActionItem>>> itemsByMeeting;
    for (const auto &item : context.tryFetch<ActionItem>()) {
        if (item->meeting)
            itemsByMeeting[item->meeting.get()].append(item);
    }
    for (const auto &meeting : meetings) {
        ExportedMeeting exported{idText(meeting->id),
                                 meeting->person ? meeting->person->name : u"Unknown"_s,
                                 dateText(meeting->date),
                                 meeting->notes,
                                 {}};
        QList<std::shared_ptr<ActionItem>> items = itemsByMeeting.value(meeting.get());
        std::stable_sort(items.begin(), items.end(),
                         [](const auto &a, const auto &b) { return a->createdAt < b->createdAt; });
        for (const auto &item : std::as_const(items))
            exported.actionItems.append(
                {item->title, item->isCompleted, optionalDateText(item->dueDate)});
        data.meetings.append(std::move(exported));
    }

    const auto goals = context.tryFetch<Goal>();
    QHash<const Goal *, QList<std::shared_ptr<GoalMilestone>>> milestonesByGoal;
    for (const auto &milestone : context.tryFetch<GoalMilestone>()) {
        if (milestone->goal)
            milestonesByGoal[milestone->goal.get()].append(milestone);
    }
    for (const auto &goal : goals) {
        ExportedGoal exported{idText(goal->id),
                              goal->title,
                              goal->notes,
                              rawValue(goal->status),
                              optionalDateText(goal->targetDate),
                              {}};
        QList<std::shared_ptr<GoalMilestone>> milestones = milestonesByGoal.value(goal.get());
        std::stable_sort(milestones.begin(), milestones.end(), [](const auto &a, const auto &b) {
            return a->orderIndex < b->orderIndex;
        });
        for (const auto &milestone : std::as_const(milestones))
            exported.milestones.append({idText(milestone->id), milestone->title,
                                        milestone->isCompleted, milestone->orderIndex,
                                        optionalDateText(milestone->completedAt)});
        data.goals.append(std::move(exported));
    }

    for (const auto &item : context.tryFetch<InboxItem>()) {
        data.inbox.append({idText(item->id), item->kindRaw, item->title, item->body,
                           dateText(item->createdAt), optionalDateText(item->readAt), item->payload,
                           item->actionLabel, item->actionRoute});
    }
    return data;
}

QByteArray exportData(ModelContext &context)
{
    return DataExportFormat::encode(collect(context));
}

void exportToFile(ModelContext &context, const QString &path)
{
    const QByteArray bytes = exportData(context);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        throw ExportError::writeFailed(file.errorString());
}

QString proposedFileName()
{
    // A slash is the one character a file name here can't hold, and some date formats use it.
    QString date = DateText::shortDate(Clock::now());
    date.replace(u'/', u'-');
    return u"tovren-export-"_s + date + u".json"_s;
}

ExportData readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw ImportError::invalidFile();
    // In pieces and one byte past the cap at most: a pipe or a special file may claim any size.
    QByteArray bytes;
    while (bytes.size() <= DataExportFormat::maxFileBytes) {
        const QByteArray piece =
            file.read(std::min<qint64>(1 << 20, DataExportFormat::maxFileBytes + 1 - bytes.size()));
        if (piece.isEmpty())
            break;
        bytes += piece;
    }
    if (file.error() != QFileDevice::NoError)
        throw ImportError::invalidFile();
    return decodeOrRaise(bytes);
}

ImportSummary apply(const ExportData &data, ModelContext &context)
{
    ImportSummary summary;
    const QDateTime now = Clock::now();
    const QSet<QString> entryIds = existingIds<DailyEntry>(context);
    const QSet<QString> meetingIds = existingIds<Meeting>(context);
    const QSet<QString> goalIds = existingIds<Goal>(context);
    const QSet<QString> inboxIds = existingIds<InboxItem>(context);
    // Names match exactly, case included; of two people with one name the first fetched wins.
    QHash<QString, std::shared_ptr<Person>> people;
    for (const auto &person : context.tryFetch<Person>()) {
        if (!people.contains(person->name))
            people.insert(person->name, person);
    }

    QList<std::shared_ptr<Record>> inserted;
    auto add = [&](const std::shared_ptr<Record> &record) {
        context.insert(record);
        inserted.append(record);
    };

    for (const ExportedEntry &e : data.entries) {
        if (entryIds.contains(DataExportFormat::idKey(e.id))) {
            ++summary.entriesSkipped;
            continue;
        }
        auto entry =
            std::make_shared<DailyEntry>(e.content, parseDate(e.date).value_or(now), false);
        if (e.summary && !e.summary->isEmpty())
            entry->summary = e.summary;
        add(entry);
        ++summary.entriesAdded;
    }

    for (const ExportedMeeting &m : data.meetings) {
        if (meetingIds.contains(DataExportFormat::idKey(m.id))) {
            ++summary.meetingsSkipped;
            continue;
        }
        std::shared_ptr<Person> &person = people[m.person];
        if (!person) {
            person = std::make_shared<Person>(m.person, QString(), RelationshipType::other);
            add(person);
        }
        auto meeting =
            std::make_shared<Meeting>(person, parseDate(m.date).value_or(now), m.notes, false);
        add(meeting);
        // Readers order a meeting's items by creation time, so each is stamped a millisecond
        // after the one before to keep the file's order.
        qint64 step = 0;
        for (const ExportedActionItem &a : m.actionItems) {
            auto item =
                std::make_shared<ActionItem>(a.title, meeting, parseOptionalDate(a.dueDate));
            item->isCompleted = a.isCompleted;
            item->createdAt = item->createdAt.addMSecs(step++);
            add(item);
        }
        ++summary.meetingsAdded;
    }

    for (const ExportedGoal &g : data.goals) {
        if (goalIds.contains(DataExportFormat::idKey(g.id))) {
            ++summary.goalsSkipped;
            continue;
        }
        auto goal = std::make_shared<Goal>(g.title, g.notes, parseOptionalDate(g.targetDate));
        goal->status = enumFromRawOrFallback<GoalStatus>(g.status);
        add(goal);
        for (const ExportedMilestone &m : g.milestones) {
            auto milestone = std::make_shared<GoalMilestone>(m.title, m.orderIndex, goal);
            milestone->isCompleted = m.isCompleted;
            milestone->completedAt = parseOptionalDate(m.completedAt);
            add(milestone);
            ++summary.milestonesAdded;
        }
        ++summary.goalsAdded;
    }

    // Inbox rows already there are passed over without being counted.
    for (const ExportedInboxItem &i : data.inbox) {
        if (inboxIds.contains(DataExportFormat::idKey(i.id)))
            continue;
        auto item =
            std::make_shared<InboxItem>(enumFromRawOrFallback<InboxItemKind>(i.kind), i.title,
                                        i.body, i.payload, i.actionLabel, i.actionRoute);
        item->createdAt = parseDate(i.createdAt).value_or(now);
        item->readAt = parseOptionalDate(i.readAt);
        add(item);
        ++summary.inboxAdded;
    }

    try {
        context.save();
    } catch (const StoreError &error) {
        // The user is told the import failed, so no later save may write part of it. Children
        // go before their parents, whose cascades then find nothing left to take.
        for (auto record = inserted.crbegin(); record != inserted.crend(); ++record) {
            try {
                context.remove(*record);
            } catch (const StoreError &) {
                // Only a store that can't be read fails here; its next save fails as well.
            }
        }
        throw ImportError::saveFailed(error.description());
    }
    return summary;
}

ImportSummary importData(QByteArrayView bytes, ModelContext &context)
{
    return apply(decodeOrRaise(bytes), context);
}

ImportSummary importFromFile(const QString &path, ModelContext &context)
{
    return apply(readFile(path), context);
}

QString restoreSummaryMessage(const ImportSummary &summary)
{
    QStringList added;
    auto count = [&](int n, const char *one, const char *many) {
        if (n >= 1)
            added.append(QString::number(n) + u' ' + QLatin1StringView(n == 1 ? one : many));
    };
    count(summary.entriesAdded, "entry", "entries");
    count(summary.meetingsAdded, "meeting", "meetings");
    count(summary.goalsAdded, "goal", "goals");
    QString text = added.isEmpty() ? u"Nothing new to add"_s : u"Added "_s + added.join(u", "_s);
    const int skipped = summary.entriesSkipped + summary.meetingsSkipped + summary.goalsSkipped;
    if (skipped >= 1)
        text += u". Skipped "_s + QString::number(skipped) +
                (skipped == 1 ? u" duplicate"_s : u" duplicates"_s);
    return text + u'.';
}

} // namespace DataExporter

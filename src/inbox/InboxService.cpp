#include "InboxService.h"

#include "core/Clock.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/InboxItem.h"
#include "core/store/ModelContext.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace InboxService {

namespace {

struct KindWords {
    InboxItemKind kind;
    const char16_t *label;
    const char16_t *symbol;
    const char16_t *themeIcon;
};

constexpr std::array kinds{
    KindWords{InboxItemKind::reminder, u"Reminder", u"bell", u"appointment-soon"},
    KindWords{InboxItemKind::briefReady, u"Review", u"doc.text", u"x-office-document"},
    KindWords{InboxItemKind::milestoneUnlocked, u"Milestone", u"trophy", u"starred"},
    KindWords{InboxItemKind::system, u"System", u"info.circle", u"dialog-information"},
    KindWords{InboxItemKind::aiSuggestion, u"Insight", u"lightbulb", u"help-hint"},
};

const KindWords &wordsFor(InboxItemKind kind)
{
    for (const KindWords &words : kinds) {
        if (words.kind == kind)
            return words;
    }
    return kinds[3];
}

} // namespace

std::shared_ptr<InboxItem> post(ModelContext &context, InboxItemKind kind, const QString &title,
                                const QString &body, const std::optional<QString> &payload,
                                const std::optional<QString> &actionLabel,
                                const std::optional<QString> &actionRoute,
                                std::optional<qint64> window)
{
    if (window && payload && isDuplicate(*payload, *window, context))
        return nullptr;
    auto item = std::make_shared<InboxItem>(kind, title, body, payload, actionLabel, actionRoute);
    context.insert(item);
    // A nudge that can't be stored is not worth bothering the user about.
    context.trySave();
    return item;
}

bool isDuplicate(const QString &payload, qint64 within, ModelContext &context)
{
    const QDateTime cutoff = Clock::now().addSecs(-within);
    try {
        return context.fetchCount<InboxItem>(
                   {field(&InboxItem::payload) == payload && field(&InboxItem::createdAt) >= cutoff,
                    {},
                    1}) > 0;
    } catch (const StoreError &) {
        return false;
    }
}

void pruneOld(ModelContext &context, int olderThan)
{
    const QDateTime now = Clock::now();
    QDateTime cutoff = Calendar::current().addingDays(now, -olderThan);
    if (!cutoff.isValid())
        cutoff = now;
    const auto old = context.tryFetch<InboxItem>(
        {field(&InboxItem::readAt).isNotNull() && field(&InboxItem::createdAt) < cutoff, {}, {}});
    if (old.isEmpty())
        return;
    for (const auto &item : old)
        context.remove(item);
    context.trySave();
}

void markAllRead(ModelContext &context)
{
    const auto unread = context.tryFetch<InboxItem>({field(&InboxItem::readAt).isNull(), {}, {}});
    if (unread.isEmpty())
        return;
    const QDateTime now = Clock::now();
    for (const auto &item : unread)
        item->readAt = now;
    context.trySave();
}

void purgeRetiredFeatures(ModelContext &context, Preferences &preferences)
{
    if (preferences.value(Prefs::inboxRetiredFeaturesPurged))
        return;
    // "goal:" belonged to a feature that is gone; the current goal coaching posts "goal-coach-".
    const auto retired = context.tryFetch<InboxItem>(
        {field(&InboxItem::kindRaw) == rawValue(InboxItemKind::aiSuggestion) &&
             Predicate<InboxItem>::where([](const InboxItem &item) {
                 return item.payload && item.payload->startsWith(u"goal:"_s);
             }),
         {},
         {}});
    for (const auto &item : retired)
        context.remove(item);
    if (!retired.isEmpty())
        context.trySave();
    // Once only, even after a failure: a second try would fail the same way.
    preferences.set(Prefs::inboxRetiredFeaturesPurged, true);
}

qint64 unreadCount(ModelContext &context)
{
    try {
        return context.fetchCount<InboxItem>({field(&InboxItem::readAt).isNull(), {}, {}});
    } catch (const StoreError &) {
        return 0;
    }
}

QString kindLabel(InboxItemKind kind)
{
    return QString::fromUtf16(wordsFor(kind).label);
}

QString iconName(InboxItemKind kind)
{
    return QString::fromUtf16(wordsFor(kind).symbol);
}

QString themeIconName(InboxItemKind kind)
{
    return QString::fromUtf16(wordsFor(kind).themeIcon);
}

QList<Section> group(QList<std::shared_ptr<InboxItem>> items, const QDateTime &now)
{
    std::stable_sort(items.begin(), items.end(),
                     [](const auto &a, const auto &b) { return a->createdAt > b->createdAt; });
    const Calendar calendar = Calendar::current();
    const QDateTime startOfToday = calendar.startOfDay(now);
    QDateTime startOfYesterday = calendar.addingDays(startOfToday, -1);
    if (!startOfYesterday.isValid())
        startOfYesterday = startOfToday;
    const QDate today = calendar.day(now);
    const int intoWeek = (Calendar::weekday(today) - calendar.firstWeekday() + 7) % 7;
    QDateTime weekStart = calendar.startOfDay(today.addDays(-intoWeek));
    if (!weekStart.isValid())
        weekStart = startOfToday;
    // On the first day of a week yesterday keeps its own section and the third one stays empty.
    const QDateTime earlierThisWeekStart = std::min(startOfYesterday, weekStart);

    QList<Section> sections{
        {u"Today"_s, {}}, {u"Yesterday"_s, {}}, {u"Earlier this week"_s, {}}, {u"Earlier"_s, {}}};
    for (const auto &item : std::as_const(items)) {
        const QDateTime &at = item->createdAt;
        const int index = at >= startOfToday           ? 0
                          : at >= startOfYesterday     ? 1
                          : at >= earlierThisWeekStart ? 2
                                                       : 3;
        sections[index].items.append(item);
    }
    sections.removeIf([](const Section &section) { return section.items.isEmpty(); });
    return sections;
}

} // namespace InboxService

#pragma once

#include "core/store/Entity.h"

#include <QList>
#include <QString>

#include <array>
#include <optional>
#include <utility>

// Enumerations whose raw value is the word the user sees and the word that is stored and
// exchanged, so they are spelled exactly as shown.

enum class RelationshipType { manager, report, peer, mentee, skipLevel, recruiter, other };
enum class GoalStatus { notStarted, inProgress, completed, onHold };
enum class DocumentCategory {
    aboutMe,
    levelingGuide,
    performanceReview,
    peerFeedback,
    other,
    careerLadder,
    selfReview,
    goals
};
enum class BriefPeriod { weekly, biweekly, monthly };
enum class PerformanceFormat { starImpact, competency, narrative };
enum class InboxItemKind { reminder, briefReady, milestoneUnlocked, system, aiSuggestion };

template<class E>
struct EnumInfo;

template<>
struct EnumInfo<RelationshipType> {
    static constexpr std::array cases{
        std::pair{RelationshipType::manager, "Manager"},
        std::pair{RelationshipType::report, "Direct report"},
        std::pair{RelationshipType::peer, "Peer"},
        std::pair{RelationshipType::mentee, "Mentee"},
        std::pair{RelationshipType::skipLevel, "Skip-level"},
        std::pair{RelationshipType::recruiter, "Recruiter"},
        std::pair{RelationshipType::other, "Other"},
    };
    static constexpr RelationshipType fallback = RelationshipType::other;
};
template<>
struct EnumInfo<GoalStatus> {
    static constexpr std::array cases{
        std::pair{GoalStatus::notStarted, "Not Started"},
        std::pair{GoalStatus::inProgress, "In Progress"},
        std::pair{GoalStatus::completed, "Completed"},
        std::pair{GoalStatus::onHold, "On Hold"},
    };
    static constexpr GoalStatus fallback = GoalStatus::notStarted;
};
template<>
struct EnumInfo<DocumentCategory> {
    static constexpr std::array cases{
        std::pair{DocumentCategory::aboutMe, "About Me"},
        std::pair{DocumentCategory::levelingGuide, "Leveling Guide"},
        std::pair{DocumentCategory::performanceReview, "Performance Review"},
        std::pair{DocumentCategory::peerFeedback, "Peer Feedback"},
        std::pair{DocumentCategory::other, "Other"},
        std::pair{DocumentCategory::careerLadder, "Career Ladder"},
        std::pair{DocumentCategory::selfReview, "Self Review"},
        std::pair{DocumentCategory::goals, "Goals"},
    };
    static constexpr DocumentCategory fallback = DocumentCategory::other;
};
template<>
struct EnumInfo<BriefPeriod> {
    static constexpr std::array cases{
        std::pair{BriefPeriod::weekly, "Weekly"},
        std::pair{BriefPeriod::biweekly, "Biweekly"},
        std::pair{BriefPeriod::monthly, "Monthly"},
    };
    static constexpr BriefPeriod fallback = BriefPeriod::weekly;
};
template<>
struct EnumInfo<PerformanceFormat> {
    static constexpr std::array cases{
        std::pair{PerformanceFormat::starImpact, "STAR Impact"},
        std::pair{PerformanceFormat::competency, "Competencies"},
        std::pair{PerformanceFormat::narrative, "Narrative"},
    };
    static constexpr PerformanceFormat fallback = PerformanceFormat::starImpact;
};
template<>
struct EnumInfo<InboxItemKind> {
    static constexpr std::array cases{
        std::pair{InboxItemKind::reminder, "reminder"},
        std::pair{InboxItemKind::briefReady, "brief_ready"},
        std::pair{InboxItemKind::milestoneUnlocked, "milestone_unlocked"},
        std::pair{InboxItemKind::system, "system"},
        std::pair{InboxItemKind::aiSuggestion, "ai_suggestion"},
    };
    static constexpr InboxItemKind fallback = InboxItemKind::system;
};

template<class E>
QString rawValue(E value)
{
    for (const auto &[candidate, raw] : EnumInfo<E>::cases) {
        if (candidate == value)
            return QString::fromLatin1(raw);
    }
    return QString();
}

// The case whose raw value is exactly `raw`, if any.
template<class E>
std::optional<E> enumFromRaw(const QString &raw)
{
    for (const auto &[candidate, text] : EnumInfo<E>::cases) {
        if (raw == QLatin1StringView(text))
            return candidate;
    }
    return std::nullopt;
}

// The case for `raw`, or the enumeration's fallback for a word it doesn't know.
template<class E>
E enumFromRawOrFallback(const QString &raw)
{
    return enumFromRaw<E>(raw).value_or(EnumInfo<E>::fallback);
}

template<class E>
QList<E> allCases()
{
    QList<E> result;
    for (const auto &entry : EnumInfo<E>::cases)
        result.append(entry.first);
    return result;
}

// Enumerated fields are stored as their raw value.
template<class E>
requires requires
{
    EnumInfo<E>::fallback;
}
struct ColumnTraits<E> {
    static QVariant toSql(E v) { return rawValue(v); }
    static E fromSql(const QVariant &v) { return enumFromRawOrFallback<E>(v.toString()); }
    static constexpr const char *sqlType = "TEXT";
};

#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>

#include <optional>
#include <stdexcept>

// The portable export file as plain values, exactly as the file has them: dates and ids stay
// text here and are only interpreted when an import applies them to a store. Encoding and
// decoding keep no state and touch no store, so a worker thread may do either.

struct ExportedEntry {
    QString id;
    QString date;
    QString content;
    QString createdAt;
    std::optional<QString> summary;
    bool operator==(const ExportedEntry &) const = default;
};

struct ExportedActionItem {
    QString title;
    bool isCompleted = false;
    std::optional<QString> dueDate;
    bool operator==(const ExportedActionItem &) const = default;
};

struct ExportedMeeting {
    QString id;
    QString person; // the person's name
    QString date;
    QString notes;
    QList<ExportedActionItem> actionItems;
    bool operator==(const ExportedMeeting &) const = default;
};

struct ExportedMilestone {
    QString id;
    QString title;
    bool isCompleted = false;
    int orderIndex = 0;
    std::optional<QString> completedAt;
    bool operator==(const ExportedMilestone &) const = default;
};

struct ExportedGoal {
    QString id;
    QString title;
    QString notes;
    QString status; // a GoalStatus raw value, or any word another program wrote
    std::optional<QString> targetDate;
    QList<ExportedMilestone> milestones;
    bool operator==(const ExportedGoal &) const = default;
};

struct ExportedInboxItem {
    QString id;
    QString kind;
    QString title;
    QString body;
    QString createdAt;
    std::optional<QString> readAt;
    std::optional<QString> payload;
    std::optional<QString> actionLabel;
    std::optional<QString> actionRoute;
    bool operator==(const ExportedInboxItem &) const = default;
};

struct ExportData {
    QString exportedAt;
    qint64 schemaVersion = 2; // required on reading, never looked at
    QList<ExportedEntry> entries;
    QList<ExportedMeeting> meetings;
    QList<ExportedGoal> goals;
    QList<ExportedInboxItem> inbox;
    bool operator==(const ExportData &) const = default;
};

namespace DataExportFormat {

// Ten years of daily writing export to about 7 MB; the cap leaves room for nine times that while
// keeping a hostile or mistaken file (a disk image picked by accident) from being read whole.
constexpr qsizetype maxFileBytes = 64 * 1024 * 1024;

// Why bytes aren't an export file, in words for the user.
class DecodeError : public std::runtime_error {
public:
    explicit DecodeError(const QString &description)
        : std::runtime_error(description.toStdString())
        , m_description(description)
    {
    }
    const QString &description() const { return m_description; }

private:
    QString m_description;
};

QByteArray encode(const ExportData &data);

// Refuses, with DecodeError, anything that isn't an export file: more than maxFileBytes, text
// that isn't UTF-8 or isn't JSON, a missing key, a value of the wrong type, a key given twice,
// a whole number out of range, or an id used by two records of one kind. Keys it doesn't know
// are passed over, and null stands for an absent optional value.
ExportData decode(QByteArrayView bytes);

// Ids compare without regard to case: the file has them in upper case, hand edits may not.
inline QString idKey(const QString &id)
{
    return id.toUpper();
}

} // namespace DataExportFormat

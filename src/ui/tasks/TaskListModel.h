#pragma once

#include <QAbstractListModel>
#include <QDate>
#include <QDateTime>
#include <QUuid>

#include <optional>

class ModelContext;

// The rows of the task list: a heading row for each section that has tasks, then its tasks.
// Today holds the undated tasks and those due today; tasks done on an earlier day are gone.
// Plain values, so the list never holds records.
class TaskListModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum class Section { today, overdue, upcoming, doneToday };
    Q_ENUM(Section)

    // AsideRole: the quiet words at the end of a task's line ("overdue 2d", a date).
    enum Role { IdRole = Qt::UserRole, IsHeadingRole, SectionRole, DueRole, AsideRole, CountRole };

    struct Row {
        bool isHeading = false;
        Section section = Section::today;
        QUuid id;
        QString title;
        std::optional<QDate> due;
        bool isCompleted = false;
        int count = 0; // tasks under a heading
        QString aside;
        bool operator==(const Row &) const = default;
    };

    using QAbstractListModel::QAbstractListModel;

    // Reads the store again. Rows are moved, inserted and removed one by one rather than reset,
    // so the view keeps its selection and an open editor through a refresh.
    void reload(ModelContext &context, const QDateTime &now);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    const Row &at(int row) const { return m_rows.at(row); }
    // -1 when no task has that id.
    int rowOf(const QUuid &id) const;
    // The number of tasks, headings left out.
    int taskCount() const;

    static QString sectionTitle(Section section);
    // "overdue 3d": whole calendar days since the day it was due.
    static QString overdueText(qint64 days);
    // The locale's date with a short weekday and month; the year only when it isn't this one.
    static QString upcomingText(QDate due, QDate today);

private:
    void apply(const QList<Row> &rows);
    static QString keyOf(const Row &row);

    QList<Row> m_rows;
};

#include "TaskListModel.h"

#include "core/Clock.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContext.h"

#include <QLocale>
#include <QRegularExpression>

#include <array>

using namespace Qt::StringLiterals;

void TaskListModel::reload(ModelContext &context, const QDateTime &now)
{
    const Calendar calendar = Calendar::current();
    const QDate today = calendar.day(now);
    const QDateTime startOfToday = calendar.startOfDay(today);
    const QDateTime startOfTomorrow = calendar.startOfDay(today.addDays(1));

    std::array<QList<Row>, 4> sections;
    const auto open = context.tryFetch<TaskItem>(
        {field(&TaskItem::isCompleted) == false, {field(&TaskItem::createdAt).ascending()}, {}});
    for (const auto &task : open) {
        Row row;
        row.id = task->id;
        row.title = task->title;
        if (task->dueDate) {
            row.due = calendar.day(*task->dueDate);
            const qint64 late = row.due->daysTo(today);
            if (late > 0) {
                row.section = Section::overdue;
                row.aside = overdueText(late);
            } else if (late < 0) {
                row.section = Section::upcoming;
                row.aside = upcomingText(*row.due, today);
            }
        }
        sections[size_t(row.section)].append(row);
    }
    // By day; the sort is stable, so a day's tasks stay oldest first.
    for (const Section dated : {Section::overdue, Section::upcoming}) {
        QList<Row> &rows = sections[size_t(dated)];
        std::stable_sort(rows.begin(), rows.end(),
                         [](const Row &a, const Row &b) { return *a.due < *b.due; });
    }
    const auto done = context.tryFetch<TaskItem>(
        {field(&TaskItem::isCompleted) == true &&
             field(&TaskItem::completedAt).inRange(startOfToday, startOfTomorrow),
         {field(&TaskItem::completedAt).ascending()},
         {}});
    for (const auto &task : done) {
        Row row;
        row.section = Section::doneToday;
        row.id = task->id;
        row.title = task->title;
        if (task->dueDate)
            row.due = calendar.day(*task->dueDate);
        row.isCompleted = true;
        sections[size_t(Section::doneToday)].append(row);
    }

    QList<Row> rows;
    for (size_t i = 0; i < sections.size(); ++i) {
        if (sections[i].isEmpty())
            continue;
        Row heading;
        heading.isHeading = true;
        heading.section = Section(i);
        heading.title = sectionTitle(heading.section);
        heading.count = int(sections[i].size());
        rows.append(heading);
        rows.append(sections[i]);
    }
    apply(rows);
}

QString TaskListModel::keyOf(const Row &row)
{
    return row.isHeading ? u"#"_s + QString::number(int(row.section)) : row.id.toString();
}

void TaskListModel::apply(const QList<Row> &rows)
{
    QSet<QString> kept;
    for (const Row &row : rows)
        kept.insert(keyOf(row));
    for (qsizetype i = m_rows.size() - 1; i >= 0; --i) {
        if (kept.contains(keyOf(m_rows.at(i))))
            continue;
        beginRemoveRows({}, int(i), int(i));
        m_rows.removeAt(i);
        endRemoveRows();
    }
    for (qsizetype i = 0; i < rows.size(); ++i) {
        const Row &row = rows.at(i);
        const QString key = keyOf(row);
        qsizetype from = -1;
        for (qsizetype j = i; j < m_rows.size() && from < 0; ++j) {
            if (keyOf(m_rows.at(j)) == key)
                from = j;
        }
        if (from < 0) {
            beginInsertRows({}, int(i), int(i));
            m_rows.insert(i, row);
            endInsertRows();
            continue;
        }
        if (from != i) {
            beginMoveRows({}, int(from), int(from), {}, int(i));
            m_rows.move(from, i);
            endMoveRows();
        }
        // Only rows whose words changed: the view reloads an open editor from a changed row.
        if (!(m_rows.at(i) == row)) {
            m_rows[i] = row;
            emit dataChanged(index(int(i)), index(int(i)));
        }
    }
}

int TaskListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant TaskListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const Row &row = m_rows.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return row.title;
    case Qt::CheckStateRole:
        if (row.isHeading)
            return {};
        return row.isCompleted ? Qt::Checked : Qt::Unchecked;
    case Qt::ToolTipRole:
        if (row.isHeading || !row.due)
            return {};
        return tr("Due %1").arg(QLocale().toString(*row.due, QLocale::LongFormat));
    case IdRole:
        return row.id;
    case IsHeadingRole:
        return row.isHeading;
    case SectionRole:
        return QVariant::fromValue(row.section);
    case DueRole:
        return row.due ? QVariant(*row.due) : QVariant();
    case AsideRole:
        return row.aside;
    case CountRole:
        return row.count;
    default:
        return {};
    }
}

Qt::ItemFlags TaskListModel::flags(const QModelIndex &index) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return Qt::NoItemFlags;
    // A heading is no place for the cursor: the keys step over it.
    if (m_rows.at(index.row()).isHeading)
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable | Qt::ItemIsUserCheckable;
}

int TaskListModel::rowOf(const QUuid &id) const
{
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        if (!m_rows.at(i).isHeading && m_rows.at(i).id == id)
            return int(i);
    }
    return -1;
}

int TaskListModel::taskCount() const
{
    return int(std::count_if(m_rows.cbegin(), m_rows.cend(),
                             [](const Row &row) { return !row.isHeading; }));
}

QString TaskListModel::sectionTitle(Section section)
{
    switch (section) {
    case Section::today:
        return tr("Today");
    case Section::overdue:
        return tr("Overdue");
    case Section::upcoming:
        return tr("Upcoming");
    case Section::doneToday:
        return tr("Done today");
    }
    return {};
}

QString TaskListModel::overdueText(qint64 days)
{
    return tr("overdue %1d").arg(days);
}

QString TaskListModel::upcomingText(QDate due, QDate today)
{
    static const QRegularExpression year(u"^y+[,.\\s/-]*|[,\\s]*y+"_s);
    QString pattern = QLocale().dateFormat(QLocale::LongFormat);
    pattern.replace(u"dddd"_s, u"ddd"_s);
    pattern.replace(u"MMMM"_s, u"MMM"_s);
    if (due.year() == today.year())
        pattern.remove(year);
    return QLocale().toString(due, pattern.trimmed());
}

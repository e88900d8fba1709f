#include "PeopleListModel.h"

#include "core/Clock.h"
#include "core/PeopleQueries.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/store/ModelContext.h"
#include "ui/Theme.h"

#include <QCollator>
#include <QLocale>
#include <QPainter>

using namespace Qt::StringLiterals;

void PeopleListModel::reload(ModelContext &context, const QDateTime &now)
{
    m_now = now;
    // One read per kind of record, not one per person: the list is rebuilt after every save.
    QHash<QUuid, QDateTime> lastMet;
    for (const auto &meeting :
         context.tryFetch<Meeting>({field(&Meeting::isScratchpad) == false, {}, {}})) {
        if (!meeting->person || !meeting->date.isValid())
            continue;
        QDateTime &latest = lastMet[meeting->person->id];
        if (!latest.isValid() || meeting->date > latest)
            latest = meeting->date;
    }
    const QHash<QUuid, qsizetype> open = PeopleQueries::openActionCounts(context);

    QList<Row> rows;
    for (const auto &person : context.tryFetch<Person>()) {
        rows.append({person->id, person->name, person->role, rawValue(person->relationship()),
                     person->emoji, person->isPinned, lastMet.value(person->id),
                     open.value(person->id)});
    }
    QCollator collator;
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(rows.begin(), rows.end(), [&](const Row &a, const Row &b) {
        if (a.isPinned != b.isPinned)
            return a.isPinned;
        return collator.compare(a.name, b.name) < 0;
    });

    const bool sameRows = std::equal(rows.cbegin(), rows.cend(), m_rows.cbegin(), m_rows.cend(),
                                     [](const Row &a, const Row &b) { return a.id == b.id; });
    if (sameRows) {
        m_rows = std::move(rows);
        if (!m_rows.isEmpty())
            emit dataChanged(index(0), index(int(m_rows.size()) - 1));
        return;
    }
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
}

int PeopleListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant PeopleListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const Row &row = m_rows.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return row.name;
    case IdRole:
        return row.id;
    case AsideRole:
        return row.role.trimmed();
    case DetailRole:
        return detail(row);
    case MarkRole:
        return mark(row.name, row.emoji);
    case CountRole:
        return row.openActions;
    case Qt::ToolTipRole: {
        QString tip = row.openActions == 1 ? tr("1 open action item")
                                           : tr("%1 open action items").arg(row.openActions);
        if (row.lastMet.isValid())
            tip = QLocale().toString(Calendar::current().day(row.lastMet), QLocale::LongFormat) +
                  u" · "_s + tip;
        if (row.isPinned)
            tip = tr("Pinned") + u" · "_s + tip;
        return tip;
    }
    default:
        return {};
    }
}

int PeopleListModel::rowOf(const QUuid &id) const
{
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        if (m_rows.at(i).id == id)
            return int(i);
    }
    return -1;
}

QString PeopleListModel::detail(const Row &row) const
{
    // The role stands beside the name, where a long title can give way first.
    QStringList parts{row.relationship};
    if (row.lastMet.isValid())
        parts.append(lastMetText(row.lastMet, m_now));
    return parts.join(u" · "_s);
}

QString PeopleListModel::mark(const QString &name, const std::optional<QString> &emoji)
{
    if (emoji && !emoji->trimmed().isEmpty())
        return emoji->trimmed();
    const QStringList words = name.split(u' ', Qt::SkipEmptyParts);
    if (words.isEmpty())
        return u"?"_s;
    QString initials = words.first().left(1);
    if (words.size() > 1)
        initials += words.last().left(1);
    return initials.toUpper();
}

QString PeopleListModel::lastMetText(const QDateTime &met, const QDateTime &now)
{
    const Calendar calendar = Calendar::current();
    const QDate day = calendar.day(met);
    const qint64 days = day.daysTo(calendar.day(now));
    if (days == 0)
        return tr("last met today");
    if (days == 1)
        return tr("last met yesterday");
    if (days > 1 && days < 7)
        return tr("last met %1 days ago").arg(days);
    if (days >= 7 && days < 60)
        return days < 14 ? tr("last met a week ago") : tr("last met %1 weeks ago").arg(days / 7);
    if (days >= 60 && days < 365)
        return tr("last met %1 months ago").arg(days / 30);
    if (days >= 365)
        return days < 730 ? tr("last met a year ago") : tr("last met %1 years ago").arg(days / 365);
    // A meeting logged ahead of its day.
    return tr("meeting on %1").arg(QLocale().toString(day, QLocale::ShortFormat));
}

QSize TwoLineDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &) const
{
    const QFontMetrics metrics(option.font);
    return {option.rect.width(), metrics.height() * 2 + 20};
}

void TwoLineDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                            const QModelIndex &index) const
{
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QPalette &palette = option.palette;
    const QColor text = palette.color(QPalette::Text);
    const QColor window = palette.color(QPalette::Window);
    const QColor accent = palette.color(QPalette::Highlight);
    const QRect rect = option.rect.adjusted(8, 0, -8, 0);

    const bool selected = option.state & QStyle::State_Selected;
    const bool hovered = option.state & QStyle::State_MouseOver;
    if (selected || hovered) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(selected ? Theme::blend(window, accent, 0.22)
                                   : Theme::blend(window, text, 0.05));
        painter->drawRoundedRect(QRectF(rect).adjusted(0, 2, 0, -2), 7, 7);
    }
    QRect inner = rect.adjusted(10, 8, -10, -8);
    QFont font = option.font;
    const QFontMetrics metrics(font);

    if (const QString mark = index.data(PeopleListModel::MarkRole).toString(); !mark.isEmpty()) {
        const int size = metrics.height() * 2;
        const QRect circle(inner.left(), inner.top() + (inner.height() - size) / 2, size, size);
        painter->setPen(Qt::NoPen);
        painter->setBrush(Theme::blend(window, accent, selected ? 0.4 : 0.18));
        painter->drawEllipse(circle);
        QFont markFont = font;
        markFont.setWeight(QFont::DemiBold);
        painter->setFont(markFont);
        painter->setPen(Theme::blend(text, accent, 0.35));
        painter->drawText(circle, Qt::AlignCenter, mark);
        inner.setLeft(circle.right() + 10);
    }

    // The count sits at the end of the first line; the second line runs under it.
    int firstRight = inner.right();
    const qsizetype count = index.data(PeopleListModel::CountRole).toLongLong();
    if (count > 0) {
        QFont small = font;
        small.setPointSizeF(font.pointSizeF() * 0.85);
        small.setWeight(QFont::DemiBold);
        const QFontMetrics smallMetrics(small);
        const QString label = QString::number(count);
        const int width =
            std::max(smallMetrics.horizontalAdvance(label) + 12, smallMetrics.height() + 4);
        const int height = smallMetrics.height() + 4;
        const QRect pill(inner.right() - width, inner.top() + (metrics.height() - height) / 2,
                         width, height);
        painter->setPen(Qt::NoPen);
        painter->setBrush(accent);
        painter->drawRoundedRect(QRectF(pill), pill.height() / 2.0, pill.height() / 2.0);
        painter->setFont(small);
        painter->setPen(palette.color(QPalette::HighlightedText));
        painter->drawText(pill, Qt::AlignCenter, label);
        firstRight = pill.left() - 6;
    }

    QFont title = font;
    title.setWeight(QFont::DemiBold);
    painter->setFont(title);
    painter->setPen(text);
    const QRect first(inner.left(), inner.top(), firstRight - inner.left(), metrics.height());
    const QFontMetrics titleMetrics(title);
    const QString name = titleMetrics.elidedText(index.data(Qt::DisplayRole).toString(),
                                                 Qt::ElideRight, first.width());
    painter->drawText(first, Qt::AlignLeft | Qt::AlignVCenter, name);
    const int asideLeft = first.left() + titleMetrics.horizontalAdvance(name) + 8;
    if (const QString aside = index.data(PeopleListModel::AsideRole).toString();
        !aside.isEmpty() && asideLeft < first.right() - 20) {
        painter->setFont(font);
        painter->setPen(Theme::blend(text, window, 0.45));
        const QRect rest(asideLeft, first.top(), first.right() - asideLeft, first.height());
        painter->drawText(rest, Qt::AlignLeft | Qt::AlignVCenter,
                          metrics.elidedText(aside, Qt::ElideRight, rest.width()));
    }
    painter->setFont(font);
    painter->setPen(Theme::blend(text, window, 0.45));
    const QRect second(inner.left(), first.bottom() + 3, inner.width(), metrics.height());
    painter->drawText(second, Qt::AlignLeft | Qt::AlignVCenter,
                      metrics.elidedText(index.data(PeopleListModel::DetailRole).toString(),
                                         Qt::ElideRight, second.width()));
    painter->restore();
}

#include "JournalDayList.h"

#include "core/Clock.h"
#include "writing/JournalSidebar.h"

#include <QContextMenuEvent>
#include <QLocale>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QStyledItemDelegate>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

enum Role { DayRole = Qt::UserRole, PreviewRole, WinRole, HeaderRole, TodayRole };

QColor blend(const QColor &a, const QColor &b, double amountOfB)
{
    return QColor::fromRgbF(float(a.redF() * (1 - amountOfB) + b.redF() * amountOfB),
                            float(a.greenF() * (1 - amountOfB) + b.greenF() * amountOfB),
                            float(a.blueF() * (1 - amountOfB) + b.blueF() * amountOfB));
}

// A day's row, whose preview is cleaned from the page's text the first time it is asked for,
// and whose tooltip is written when shown.
class DayItem : public QListWidgetItem {
public:
    DayItem(const QString &title, QListWidget *list, QStringList contents)
        : QListWidgetItem(title, list)
        , m_contents(std::move(contents))
    {
    }

    QVariant data(int role) const override
    {
        if (role == Qt::ToolTipRole) {
            const QDateTime day = QListWidgetItem::data(DayRole).toDateTime();
            return QLocale().toString(Calendar::current().day(day), QLocale::LongFormat);
        }
        if (role != PreviewRole)
            return QListWidgetItem::data(role);
        if (!m_preview) {
            QStringList parts;
            for (const QString &content : m_contents) {
                if (QString part = JournalSidebar::cleanedContent(content); !part.isEmpty())
                    parts.append(std::move(part));
            }
            m_preview = parts.join(u' ');
            m_contents.clear();
        }
        return *m_preview;
    }

private:
    mutable QStringList m_contents;
    mutable std::optional<QString> m_preview;
};

class DayDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        const QFontMetrics metrics(option.font);
        if (index.data(HeaderRole).toBool())
            return {option.rect.width(), metrics.height() + 22};
        return {option.rect.width(), metrics.height() * 2 + 18};
    }

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override
    {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        const QPalette &palette = option.palette;
        const QColor text = palette.color(QPalette::Text);
        const QColor window = palette.color(QPalette::Window);
        const QColor muted = blend(text, window, 0.45);
        const QRect rect = option.rect.adjusted(8, 0, -8, 0);
        QFont font = option.font;

        if (index.data(HeaderRole).toBool()) {
            font.setPointSizeF(font.pointSizeF() * 0.85);
            font.setWeight(QFont::DemiBold);
            painter->setFont(font);
            painter->setPen(blend(text, window, 0.35));
            painter->drawText(rect.adjusted(8, 12, -8, -2), Qt::AlignLeft | Qt::AlignBottom,
                              index.data(Qt::DisplayRole).toString().toUpper());
            painter->restore();
            return;
        }

        const bool selected = option.state & QStyle::State_Selected;
        const bool hovered = option.state & QStyle::State_MouseOver;
        if (selected || hovered) {
            const QColor fill = selected ? blend(window, palette.color(QPalette::Highlight), 0.22)
                                         : blend(window, text, 0.05);
            painter->setPen(Qt::NoPen);
            painter->setBrush(fill);
            painter->drawRoundedRect(QRectF(rect).adjusted(0, 2, 0, -2), 7, 7);
        }
        const QRect inner = rect.adjusted(10, 7, -10, -7);
        const QFontMetrics metrics(font);
        QFont title = font;
        title.setWeight(QFont::DemiBold);
        painter->setFont(title);
        painter->setPen(text);
        QString heading = index.data(Qt::DisplayRole).toString();
        if (index.data(WinRole).toBool())
            heading += u"  ★"_s;
        painter->drawText(QRect(inner.left(), inner.top(), inner.width(), metrics.height()),
                          Qt::AlignLeft | Qt::AlignVCenter, heading);
        QString preview = index.data(PreviewRole).toString();
        QFont body = font;
        if (preview.isEmpty()) {
            preview = QObject::tr("Nothing written yet");
            body.setItalic(true);
        }
        painter->setFont(body);
        painter->setPen(muted);
        const QRect line(inner.left(), inner.top() + metrics.height() + 2, inner.width(),
                         metrics.height());
        painter->drawText(line, Qt::AlignLeft | Qt::AlignVCenter,
                          QFontMetrics(body).elidedText(preview, Qt::ElideRight, line.width()));
        painter->restore();
    }
};

} // namespace

JournalDayList::JournalDayList(QWidget *parent)
    : QListWidget(parent)
{
    setItemDelegate(new DayDelegate(this));
    setFrameShape(QFrame::NoFrame);
    setMouseTracking(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setBackgroundRole(QPalette::Window);
    viewport()->setBackgroundRole(QPalette::Window);
    setAutoFillBackground(false);
    connect(this, &QListWidget::currentItemChanged, this, [this](QListWidgetItem *item) {
        if (!m_filling && item && !item->data(HeaderRole).toBool())
            emit daySelected(item->data(DayRole).toDateTime());
    });
}

void JournalDayList::setDays(const QList<Day> &days, const QDateTime &today)
{
    const QDateTime selected = selectedDay();
    const int scroll = verticalScrollBar()->value();
    m_filling = true;
    clear();
    const Calendar calendar = Calendar::current();
    const QLocale locale;

    const auto addDay = [&](const Day &day, const QString &title) {
        auto *item = new DayItem(title, this, day.contents);
        item->setData(DayRole, day.day);
        item->setData(WinRole, day.isWin);
    };

    Day first{today, {}, false};
    for (const Day &day : days) {
        if (calendar.isSameDay(day.day, today))
            first = day;
    }
    addDay(first, tr("Today"));

    QString month;
    for (const Day &day : days) {
        if (calendar.isSameDay(day.day, today))
            continue;
        const QDate date = calendar.day(day.day);
        const QString name =
            locale.standaloneMonthName(date.month()) + u' ' + QString::number(date.year());
        if (name != month) {
            month = name;
            auto *header = new QListWidgetItem(name, this);
            header->setData(HeaderRole, true);
            header->setFlags(Qt::NoItemFlags);
        }
        addDay(day, locale.dayName(date.dayOfWeek()) + u' ' + QString::number(date.day()));
    }
    if (selected.isValid())
        selectDay(selected);
    verticalScrollBar()->setValue(scroll);
    m_filling = false;
}

int JournalDayList::rowOf(const QDateTime &day) const
{
    const Calendar calendar = Calendar::current();
    for (int row = 0; row < count(); ++row) {
        const QListWidgetItem *it = item(row);
        if (!it->data(HeaderRole).toBool() &&
            calendar.isSameDay(it->data(DayRole).toDateTime(), day))
            return row;
    }
    return -1;
}

void JournalDayList::selectDay(const QDateTime &day)
{
    const bool wasFilling = std::exchange(m_filling, true);
    const int row = rowOf(day);
    if (row >= 0)
        setCurrentRow(row);
    else
        clearSelection();
    m_filling = wasFilling;
}

QDateTime JournalDayList::selectedDay() const
{
    const QListWidgetItem *it = currentItem();
    return it && it->isSelected() ? it->data(DayRole).toDateTime() : QDateTime();
}

void JournalDayList::keyPressEvent(QKeyEvent *event)
{
    // Only the deliberate key: a Backspace meant for the page must never remove a day.
    if (event->key() == Qt::Key_Delete && selectedDay().isValid()) {
        emit deleteRequested(selectedDay());
        return;
    }
    QListWidget::keyPressEvent(event);
}

void JournalDayList::contextMenuEvent(QContextMenuEvent *event)
{
    const QListWidgetItem *it = itemAt(event->pos());
    if (!it || it->data(HeaderRole).toBool())
        return;
    const QDateTime day = it->data(DayRole).toDateTime();
    QMenu menu(this);
    menu.addAction(tr("Delete Day…"), this, [this, day] { emit deleteRequested(day); });
    menu.exec(event->globalPos());
}

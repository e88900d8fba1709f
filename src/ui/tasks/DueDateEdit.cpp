#include "DueDateEdit.h"

#include "core/Clock.h"
#include "ui/Theme.h"

#include <QAction>
#include <QCalendarWidget>
#include <QKeyEvent>
#include <QLocale>
#include <QPainter>
#include <QRegularExpression>
#include <QScreen>
#include <QTextCharFormat>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

QDate today()
{
    return Calendar::current().day(Clock::now());
}

QString fullYearFormat()
{
    QString pattern = QLocale().dateFormat(QLocale::ShortFormat);
    if (!pattern.contains(u"yyyy"_s))
        pattern.replace(u"yy"_s, u"yyyy"_s);
    return pattern;
}

// "dd" and "MM" read exactly two digits; "d" and "M" take "8" and "08" alike.
QString forTyping(QString pattern)
{
    static const QRegularExpression day(u"(?<!d)dd(?!d)"_s);
    static const QRegularExpression month(u"(?<!M)MM(?!M)"_s);
    return pattern.replace(day, u"d"_s).replace(month, u"M"_s);
}

} // namespace

DueDateEdit::DueDateEdit(QWidget *parent)
    : QLineEdit(parent)
    , m_pick(new QAction(this))
    , m_popup(new QWidget(this, Qt::Popup))
    , m_calendar(new QCalendarWidget(m_popup))
{
    setPlaceholderText(tr("No date"));
    setToolTip(tr("Due date, like %1; empty for none").arg(format(today().addDays(7))));
    m_pick->setToolTip(tr("Pick a date (Alt+Down)"));
    addAction(m_pick, QLineEdit::TrailingPosition);
    drawIcon();
    connect(m_pick, &QAction::triggered, this, &DueDateEdit::showCalendar);
    // A readable date is shown back the way the locale writes it, year and all.
    connect(this, &QLineEdit::editingFinished, this, [this] {
        if (const std::optional<QDate> date = due())
            setText(format(*date));
    });

    auto *popupLayout = new QVBoxLayout(m_popup);
    popupLayout->setContentsMargins(0, 0, 0, 0);
    popupLayout->addWidget(m_calendar);
    m_calendar->setObjectName(u"dueCalendar"_s);
    m_calendar->setVerticalHeaderFormat(QCalendarWidget::NoVerticalHeader);
    // Weekends in the text's colour rather than the calendar's own red, light and dark alike.
    for (const Qt::DayOfWeek day : {Qt::Saturday, Qt::Sunday})
        m_calendar->setWeekdayTextFormat(day, QTextCharFormat());
    connect(m_calendar, &QCalendarWidget::activated, this, [this](QDate date) {
        setDue(date);
        m_popup->hide();
        setFocus(Qt::PopupFocusReason);
    });
    connect(m_calendar, &QCalendarWidget::clicked, m_calendar, &QCalendarWidget::activated);
}

std::optional<QDate> DueDateEdit::due() const
{
    return parse(text(), today());
}

bool DueDateEdit::isReadable() const
{
    return text().trimmed().isEmpty() || due().has_value();
}

void DueDateEdit::setDue(std::optional<QDate> due)
{
    setText(due ? format(*due) : QString());
}

void DueDateEdit::showCalendar()
{
    const QDate shown = due().value_or(today());
    m_calendar->setSelectedDate(shown);
    m_calendar->setCurrentPage(shown.year(), shown.month());
    m_popup->adjustSize();
    QPoint at = mapToGlobal(QPoint(width() - m_popup->width(), height() + 2));
    if (const QScreen *place = screen()) {
        const QRect room = place->availableGeometry();
        at.setX(std::clamp(at.x(), room.left(), room.right() - m_popup->width()));
        if (at.y() + m_popup->height() > room.bottom())
            at.setY(mapToGlobal(QPoint(0, 0)).y() - m_popup->height() - 2);
    }
    m_popup->move(at);
    m_popup->show();
    m_calendar->setFocus(Qt::PopupFocusReason);
}

std::optional<QDate> DueDateEdit::parse(const QString &text, QDate today)
{
    const QString words = text.trimmed();
    if (words.isEmpty())
        return std::nullopt;
    if (words.compare(tr("today"), Qt::CaseInsensitive) == 0)
        return today;
    if (words.compare(tr("tomorrow"), Qt::CaseInsensitive) == 0)
        return today.addDays(1);

    const QLocale locale;
    const QString shortFormat = forTyping(locale.dateFormat(QLocale::ShortFormat));
    QDate date = locale.toDate(words, forTyping(fullYearFormat()));
    if (!date.isValid()) {
        date = locale.toDate(words, shortFormat);
        // Two digits of year are read as the 1900s.
        if (date.isValid() && date.year() < 2000)
            date = date.addYears(100);
    }
    if (!date.isValid())
        date = locale.toDate(words, QLocale::LongFormat);
    if (!date.isValid()) {
        static const QRegularExpression year(u"^y+[,.\\s/-]*|[,.\\s/-]*y+"_s);
        const QDate day = locale.toDate(words, QString(shortFormat).remove(year));
        if (day.isValid())
            date = QDate(today.year(), day.month(), day.day());
    }
    if (!date.isValid())
        return std::nullopt;
    return date;
}

QString DueDateEdit::format(QDate date)
{
    return QLocale().toString(date, fullYearFormat());
}

QSize DueDateEdit::sizeHint() const
{
    const QFontMetrics metrics(font());
    const int words = std::max(metrics.horizontalAdvance(format(QDate(2026, 12, 28))),
                               metrics.horizontalAdvance(placeholderText()));
    QSize size = QLineEdit::sizeHint();
    size.setWidth(words + metrics.height() + 30);
    return size;
}

void DueDateEdit::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_F4 ||
        (event->key() == Qt::Key_Down && event->modifiers() & Qt::AltModifier)) {
        showCalendar();
        event->accept();
        return;
    }
    QLineEdit::keyPressEvent(event);
}

void DueDateEdit::changeEvent(QEvent *event)
{
    QLineEdit::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        drawIcon();
}

void DueDateEdit::drawIcon()
{
    // The desktop's calendar icon, or a small page of a calendar in the text's quiet colour.
    const int side = 16;
    QPixmap page(side * 2, side * 2);
    page.setDevicePixelRatio(2);
    page.fill(Qt::transparent);
    QPainter painter(&page);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor ink =
        Theme::blend(palette().color(QPalette::Text), palette().color(QPalette::Base), 0.35);
    painter.setPen(QPen(ink, 1.3));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(2.5, 3.5, 11, 10), 2, 2);
    painter.drawLine(QPointF(2.5, 6.5), QPointF(13.5, 6.5));
    painter.drawLine(QPointF(5.5, 2), QPointF(5.5, 4.5));
    painter.drawLine(QPointF(10.5, 2), QPointF(10.5, 4.5));
    painter.end();
    m_pick->setIcon(QIcon::fromTheme(u"x-office-calendar"_s, QIcon(page)));
}

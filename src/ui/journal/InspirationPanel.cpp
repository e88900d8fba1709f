#include "InspirationPanel.h"

#include "core/Clock.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContext.h"
#include "generators/TaskPhraser.h"
#include "ui/Theme.h"

#include <QAbstractButton>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QScrollArea>
#include <QTextCursor>
#include <QTextEdit>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int padding = 10;
constexpr int titleGap = 2;

// One suggestion: its small title over the words it would add. A button so that it is clicked,
// focused and read out like one; Enter works as well as Space.
class SuggestionButton : public QAbstractButton {
public:
    SuggestionButton(InspirationTray::Suggestion suggestion, QWidget *parent)
        : QAbstractButton(parent)
        , m_suggestion(std::move(suggestion))
    {
        setObjectName(u"suggestion"_s);
        setText(m_suggestion.text);
        setAccessibleName(m_suggestion.title + u": "_s + m_suggestion.text);
        setToolTip(u"Add to the page"_s);
        setCursor(Qt::PointingHandCursor);
        // Reachable with Tab, never taken by a click: the caret stays in the page.
        setFocusPolicy(Qt::TabFocus);
        setAttribute(Qt::WA_Hover);
        QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Fixed);
        policy.setHeightForWidth(true);
        setSizePolicy(policy);
    }

    const InspirationTray::Suggestion &suggestion() const { return m_suggestion; }

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override
    {
        const QRect text = fontMetrics().boundingRect(
            QRect(0, 0, std::max(1, width - 2 * padding), 100000), textFlags, m_suggestion.text);
        return padding + QFontMetrics(titleFont()).height() + titleGap + text.height() + padding;
    }
    QSize sizeHint() const override { return {200, heightForWidth(200)}; }
    QSize minimumSizeHint() const override { return {80, heightForWidth(80)}; }

protected:
    void keyPressEvent(QKeyEvent *event) override
    {
        if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
            click();
            return;
        }
        QAbstractButton::keyPressEvent(event);
    }

    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QPalette &colours = palette();
        const QColor base = colours.color(QPalette::Base);
        const QColor text = colours.color(QPalette::Text);
        const QColor accent = colours.color(QPalette::Highlight);
        QColor fill = base;
        if (isDown())
            fill = Theme::blend(base, accent, 0.22);
        else if (underMouse())
            fill = Theme::blend(base, accent, 0.10);
        const QRectF card = QRectF(rect()).adjusted(1, 1, -1, -1);
        QPainterPath shape;
        shape.addRoundedRect(card, 8, 8);
        painter.fillPath(shape, fill);
        painter.setPen(hasFocus() ? QPen(accent, 2) : QPen(Theme::blend(base, text, 0.10), 1));
        painter.drawPath(shape);

        const QRect inner = rect().adjusted(padding, padding, -padding, -padding);
        const QFont small = titleFont();
        const int titleHeight = QFontMetrics(small).height();
        painter.setFont(small);
        painter.setPen(Theme::blend(text, base, 0.45));
        painter.drawText(QRect(inner.left(), inner.top(), inner.width(), titleHeight),
                         Qt::AlignLeft | Qt::AlignVCenter, m_suggestion.title);
        painter.setFont(font());
        painter.setPen(text);
        painter.drawText(inner.adjusted(0, titleHeight + titleGap, 0, 0), textFlags,
                         m_suggestion.text);
    }

private:
    static constexpr int textFlags = Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap;

    QFont titleFont() const
    {
        QFont small = font();
        small.setPointSizeF(small.pointSizeF() * 0.85);
        small.setWeight(QFont::Medium);
        return small;
    }

    InspirationTray::Suggestion m_suggestion;
};

QList<std::shared_ptr<TaskItem>> completedOn(const QDateTime &day, ModelContext &context)
{
    const Calendar calendar = Calendar::current();
    const QDateTime start = calendar.startOfDay(day);
    const QDateTime end = calendar.startOfDay(calendar.day(start).addDays(1));
    return context.tryFetch<TaskItem>(
        {field(&TaskItem::isCompleted) == true && field(&TaskItem::completedAt).inRange(start, end),
         {},
         {}});
}

} // namespace

InspirationPanel::InspirationPanel(ModelContext &context, TaskPhraser &phraser, QTextEdit *page,
                                   QWidget *parent)
    : QWidget(parent)
    , m_context(context)
    , m_phraser(phraser)
    , m_page(page)
    , m_heading(new QLabel(u"From your day"_s, this))
    , m_empty(new QLabel(InspirationTray::emptyText, this))
    , m_scroll(new QScrollArea(this))
{
    setObjectName(u"inspirationPanel"_s);
    setFixedWidth(240);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 18, 0, 0);
    layout->setSpacing(8);

    QFont headingFont = m_heading->font();
    headingFont.setWeight(QFont::DemiBold);
    m_heading->setFont(headingFont);
    m_heading->setContentsMargins(16, 4, 16, 4);
    layout->addWidget(m_heading);

    m_empty->setObjectName(u"inspirationEmpty"_s);
    m_empty->setWordWrap(true);
    m_empty->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_empty->setContentsMargins(16, 0, 16, 0);
    m_empty->hide();
    layout->addWidget(m_empty, 1);

    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setWidgetResizable(true);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setFocusPolicy(Qt::NoFocus);
    // The column's own colour shows through, around the cards.
    m_scroll->viewport()->setAutoFillBackground(false);
    auto *content = new QWidget(m_scroll);
    content->setAutoFillBackground(false);
    m_list = new QVBoxLayout(content);
    m_list->setContentsMargins(12, 0, 12, 16);
    m_list->setSpacing(8);
    m_list->addStretch(1);
    m_scroll->setWidget(content);
    layout->addWidget(m_scroll, 1);

    applyPalette();

    m_reloadTimer.setSingleShot(true);
    connect(&m_reloadTimer, &QTimer::timeout, this, [this] {
        reload();
        askForPhrases();
    });
    connect(&m_phraser, &TaskPhraser::phrasesChanged, this, [this] {
        if (isVisible())
            reload();
        else
            m_stale = true;
    });
    // Whoever saved (the Tasks tab, an assistant, this page), the day may have more to offer.
    connect(&m_context, &ModelContext::didSave, this, &InspirationPanel::refresh);
}

InspirationPanel::~InspirationPanel() = default;

void InspirationPanel::setDay(const QDateTime &day)
{
    m_day = day;
    // A phrase that couldn't be had is asked for again when its day is opened again.
    m_askedTasks.clear();
    refresh();
}

void InspirationPanel::refresh()
{
    m_stale = true;
    // A hidden tab reads nothing; showing it again reads the day afresh.
    if (isVisible() && m_day.isValid())
        m_reloadTimer.start(0);
}

void InspirationPanel::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_stale && m_day.isValid())
        m_reloadTimer.start(0);
}

void InspirationPanel::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyPalette();
}

void InspirationPanel::applyPalette()
{
    const QColor muted =
        Theme::blend(palette().color(QPalette::Text), palette().color(QPalette::Base), 0.45);
    for (QLabel *label : {m_heading, m_empty}) {
        QPalette colours = label->palette();
        colours.setColor(QPalette::WindowText, muted);
        label->setPalette(colours);
    }
}

void InspirationPanel::askForPhrases()
{
    // Each save of the page reads the day again; a task is sent to be phrased once, not with
    // every save, even when the phrasing failed and left its title.
    QList<std::shared_ptr<TaskItem>> fresh;
    for (const auto &task : completedOn(m_day, m_context)) {
        const QString key = task->id.toString() + task->title;
        if (!m_askedTasks.contains(key)) {
            m_askedTasks.insert(key);
            fresh.append(task);
        }
    }
    if (!fresh.isEmpty())
        m_phraser.rewrite(fresh);
}

void InspirationPanel::reload()
{
    if (!m_day.isValid())
        return;
    m_stale = false;
    const QList<InspirationTray::Suggestion> suggestions = InspirationTray::suggestions(
        m_day, m_context, m_used, [this](const TaskItem &task) { return m_phraser.phrase(task); });
    if (m_rendered && suggestions == m_shown)
        return;
    m_shown = suggestions;
    render();
}

void InspirationPanel::render()
{
    // A button may be the one whose click led here: it goes once the click is over.
    for (QAbstractButton *button : std::as_const(m_buttons)) {
        button->hide();
        button->deleteLater();
    }
    m_buttons.clear();
    for (const InspirationTray::Suggestion &suggestion : std::as_const(m_shown)) {
        auto *button = new SuggestionButton(suggestion, m_scroll->widget());
        connect(button, &QAbstractButton::clicked, this, [this, suggestion] { use(suggestion); });
        m_list->insertWidget(m_list->count() - 1, button);
        // At once, not when the layout gets round to it: it may be clicked right away.
        button->show();
        m_buttons.append(button);
    }
    m_empty->setVisible(m_shown.isEmpty());
    m_scroll->setVisible(!m_shown.isEmpty());
    m_rendered = true;
}

void InspirationPanel::use(const InspirationTray::Suggestion &suggestion)
{
    QTextDocument *document = m_page->document();
    // One step for undo, and one change for the page to save.
    QTextCursor block(document);
    block.beginEditBlock();
    InspirationTray::insertSuggestion(*document, suggestion);
    block.endEditBlock();
    m_used.insert(suggestion.id);
    m_shown.removeAll(suggestion);
    render();
    m_page->moveCursor(QTextCursor::End);
    m_page->ensureCursorVisible();
    m_page->setFocus(Qt::OtherFocusReason);
}

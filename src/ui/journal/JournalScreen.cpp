#include "JournalScreen.h"

#include "InspirationPanel.h"
#include "JournalDayList.h"
#include "JournalStreak.h"
#include "JournalTextEdit.h"
#include "LinkDialog.h"
#include "app/BenchProbe.h"
#include "app/TovrenApp.h"
#include "core/AppCalendar.h"
#include "core/Clock.h"
#include "core/ImageStorage.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/UserProfile.h"
#include "core/records/DailyEntry.h"
#include "core/records/EntryImage.h"
#include "core/records/Tag.h"
#include "core/store/ModelContext.h"
#include "generators/EntrySummaryGenerator.h"
#include "generators/Generators.h"
#include "ui/Theme.h"
#include "writing/EditorLink.h"
#include "writing/JournalGreeting.h"
#include "writing/JournalPageEditor.h"
#include "writing/JournalTemplates.h"

#include <QActionGroup>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMap>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollBar>
#include <QShowEvent>
#include <QTextBlock>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

QToolButton *headerButton(const QString &text, const QString &tip, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(tip);
    button->setAutoRaise(true);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setPopupMode(QToolButton::InstantPopup);
    button->setFocusPolicy(Qt::TabFocus);
    // The words say what the buttons do; the menu arrows only add noise.
    button->setStyleSheet(u"QToolButton::menu-indicator { image: none; width: 0px; }"_s);
    return button;
}

QString dayTitle(const QDateTime &day)
{
    const Calendar calendar = Calendar::current();
    const QDate date = calendar.day(day);
    const QDate today = calendar.day(Clock::now());
    const QString format =
        date.year() == today.year() ? u"dddd, MMMM d"_s : u"dddd, MMMM d, yyyy"_s;
    return QLocale().toString(date, format);
}

} // namespace

JournalScreen::JournalScreen(TovrenApp &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
    , m_page(new JournalPageEditor(app.mainContext(), app.preferences(), app.journalDrafts(),
                                   app.saveDebouncer(), this))
    , m_days(new JournalDayList(this))
    , m_editor(new JournalTextEdit(this))
    , m_greeting(new QLabel(this))
    , m_streak(new QLabel(this))
    , m_title(new QLabel(this))
    , m_status(new QLabel(this))
    , m_template(headerButton(tr("Template"), tr("The headings a new page starts with"), this))
    , m_format(headerButton(tr("Format"), tr("Styles for the selection or the line"), this))
    , m_win(headerButton(tr("☆ Win"), tr("Mark this day as a win"), this))
    , m_more(headerButton(u"⋯"_s, tr("More"), this))
{
    setObjectName(u"journalScreen"_s);

    // The day list: a quiet column in the window's colour.
    auto *side = new QWidget(this);
    side->setObjectName(u"journalSide"_s);
    side->setFixedWidth(260);
    auto *sideLayout = new QVBoxLayout(side);
    sideLayout->setContentsMargins(0, 18, 0, 0);
    sideLayout->setSpacing(8);
    auto *heading = new QLabel(tr("Journal"), side);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.25);
    headingFont.setWeight(QFont::DemiBold);
    heading->setFont(headingFont);
    heading->setContentsMargins(18, 0, 18, 4);
    sideLayout->addWidget(heading);
    sideLayout->addWidget(m_days, 1);

    // The page: one calm column on the base colour.
    auto *pageArea = new QWidget(this);
    pageArea->setAutoFillBackground(true);
    pageArea->setBackgroundRole(QPalette::Base);
    auto *pageLayout = new QVBoxLayout(pageArea);
    pageLayout->setContentsMargins(0, 0, 0, 0);
    pageLayout->setSpacing(0);

    auto *header = new QWidget(pageArea);
    auto *headerLayout = new QVBoxLayout(header);
    headerLayout->setSpacing(2);
    auto *topRow = new QHBoxLayout;
    topRow->setSpacing(4);
    topRow->addWidget(m_greeting);
    topRow->addWidget(m_streak);
    topRow->addStretch(1);
    topRow->addWidget(m_template);
    topRow->addWidget(m_format);
    topRow->addWidget(m_win);
    topRow->addWidget(m_more);
    headerLayout->addLayout(topRow);
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.5);
    titleFont.setWeight(QFont::DemiBold);
    m_title->setFont(titleFont);
    m_title->setContentsMargins(0, 8, 0, 4);
    headerLayout->addWidget(m_title);
    m_status->setWordWrap(true);
    m_status->hide();
    headerLayout->addWidget(m_status);
    m_summary = new QLabel(header);
    m_summary->setObjectName(u"entrySummary"_s);
    m_summary->setTextFormat(Qt::PlainText);
    m_summary->setWordWrap(true);
    m_summary->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_summary->setContentsMargins(0, 0, 0, 6);
    m_summary->hide();
    headerLayout->addWidget(m_summary);
    pageLayout->addWidget(header);
    pageLayout->addWidget(m_editor, 1);
    connect(m_editor, &JournalTextEdit::columnChanged, header, [headerLayout](int left, int right) {
        headerLayout->setContentsMargins(left, 22, std::max(12, right - 6), 0);
    });

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(side);
    layout->addWidget(pageArea, 1);
    // Beside the page; it reads its day only once shown.
    m_inspiration =
        new InspirationPanel(app.mainContext(), app.generators().taskPhraser(), m_editor, this);
    layout->addWidget(m_inspiration);

    m_streak->setToolTip(JournalGreeting::streakHelp);
    m_win->setCheckable(true);
    m_win->setPopupMode(QToolButton::DelayedPopup);
    m_format->setMenu(m_editor->createFormatMenu(m_format));
    m_template->setMenu(new QMenu(m_template));
    connect(m_template->menu(), &QMenu::aboutToShow, this, &JournalScreen::buildTemplateMenu);
    auto *moreMenu = new QMenu(m_more);
    m_regenerateSummary =
        moreMenu->addAction(tr("Regenerate summary"), this, &JournalScreen::regenerateSummary);
    connect(moreMenu, &QMenu::aboutToShow, this, &JournalScreen::refreshSummary);
    moreMenu->addAction(tr("Delete This Day…"), this, [this] { deleteDay(shownDay()); });
    m_more->setMenu(moreMenu);
    connect(m_win, &QToolButton::toggled, this, &JournalScreen::toggleWin);

    ModelContext &context = app.mainContext();
    auto services = JournalTextEdit::Services::overStore(this, context, m_app.preferences());
    services.saveImage = [this](const QByteArray &png) -> std::optional<QString> {
        const std::optional<QString> ref = ImageStorage::save(png, QUuid::createUuid());
        if (ref)
            m_pendingImages.insert(*ref, png);
        return ref;
    };
    services.report = [this](const QString &message) { report(message); };
    m_editor->setServices(std::move(services));

    m_refreshTimer.setSingleShot(true);
    connect(&m_refreshTimer, &QTimer::timeout, this, &JournalScreen::refreshDays);
    m_statusTimer.setSingleShot(true);
    m_statusTimer.setInterval(8000);
    connect(&m_statusTimer, &QTimer::timeout, m_status, &QWidget::hide);

    connect(m_page, &JournalPageEditor::textReplaced, this, &JournalScreen::onTextReplaced);
    connect(m_page, &JournalPageEditor::entrySaved, this, [this] {
        attachPendingImages();
        m_refreshTimer.start(0);
    });
    connect(m_editor, &JournalTextEdit::edited, this, &JournalScreen::onEdited);
    connect(m_days, &JournalDayList::daySelected, this, &JournalScreen::showDay);
    connect(m_days, &JournalDayList::deleteRequested, this, &JournalScreen::deleteDay);
    connect(&NoticeCenter::shared(), &NoticeCenter::posted, this, [this](const QString &name) {
        if (name == QLatin1StringView(Notices::dataErased))
            m_pendingImages.clear();
        if (name == QLatin1StringView(Notices::journalReplaced) ||
            name == QLatin1StringView(Notices::dataErased))
            m_refreshTimer.start(0);
    });
    connect(&app.appCalendar(), &AppCalendar::changed, this, [this] {
        m_refreshTimer.start(0);
        refreshHeader();
    });
    m_page->followToday(app.appCalendar());
    m_editor->viewport()->installEventFilter(this);

    m_summaries = app.generators().createEntrySummaryGenerator(this);
    connect(m_summaries, &EntrySummaryGenerator::summaryStored, this, [this](const QDateTime &day) {
        if (Calendar::current().isSameDay(day, m_page->date()))
            refreshSummary();
    });
    connect(m_page, &JournalPageEditor::textReplaced, this, &JournalScreen::refreshSummary);
    connect(m_page, &JournalPageEditor::entrySaved, this, [this] {
        m_summaries->generateSummary(m_page->entries(), m_page->date());
        refreshSummary();
    });

    applyPalette();
    m_page->setDate(app.appCalendar().today());
    refreshDays();
}

JournalScreen::~JournalScreen()
{
    // The page saves what is pending as it goes; the editor it reads from goes first otherwise.
    m_page->save();
}

void JournalScreen::applyPalette()
{
    const QColor muted =
        Theme::blend(palette().color(QPalette::Text), palette().color(QPalette::Base), 0.45);
    // A style sheet rather than the label's palette: the desktop's palette arrives after the
    // screen is built and would otherwise take the labels back to the plain text colour.
    for (QLabel *label : {m_greeting, m_streak, m_status, m_summary})
        label->setStyleSheet(u"QLabel { color: %1; }"_s.arg(muted.name()));
}

void JournalScreen::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyPalette();
}

QDateTime JournalScreen::shownDay() const
{
    return m_page->date();
}

void JournalScreen::showDay(const QDateTime &day)
{
    if (!day.isValid() || Calendar::current().isSameDay(day, m_page->date()))
        return;
    m_page->setDate(day);
}

void JournalScreen::focusToday()
{
    showDay(m_app.appCalendar().today());
    m_editor->moveCursor(QTextCursor::End);
    m_editor->setFocus();
}

void JournalScreen::onTextReplaced(const QString &text)
{
    const QDateTime day = m_page->date();
    const bool sameDay = m_loadedDay.isValid() && Calendar::current().isSameDay(day, m_loadedDay);
    if (!sameDay) {
        m_editor->loadStored(text);
        m_editor->moveCursor(QTextCursor::End);
        m_loadedDay = day;
        m_days->selectDay(day);
        m_inspiration->setDay(day);
        refreshHeader();
        return;
    }
    if (text == m_editor->stored())
        return;
    // Somebody else's words arrived: keep the caret on the line it was on.
    m_editor->loadStoredKeepingCaret(text);
    refreshHeader();
}

void JournalScreen::onEdited()
{
    m_page->setText(m_editor->stored());
    // An emptied page disappears from the list once saved.
    m_refreshTimer.start(SaveDebouncer::delayMs + 200);
}

void JournalScreen::refreshHeader()
{
    const Calendar calendar = Calendar::current();
    m_greeting->setText(JournalGreeting::greeting(Clock::now(), calendar,
                                                  UserProfile::firstName(m_app.preferences())));
    m_title->setText(dayTitle(m_page->date()));
    const auto entries = JournalPageEditor::storedEntries(m_page->date(), m_app.mainContext());
    const bool win = std::any_of(entries.cbegin(), entries.cend(),
                                 [](const auto &entry) { return entry->isWin; });
    const QSignalBlocker blocker(m_win);
    m_win->setChecked(win);
    m_win->setText(win ? tr("★ Win") : tr("☆ Win"));
}

void JournalScreen::refreshDays()
{
    const Calendar calendar = Calendar::current();
    const auto entries = m_app.mainContext().tryFetch<DailyEntry>(
        {{},
         {field(&DailyEntry::date).descending(), field(&DailyEntry::createdAt).ascending()},
         {}});
    QList<JournalDayList::Day> days;
    QList<QDateTime> dates;
    for (const auto &entry : entries) {
        dates.append(entry->date);
        const QDateTime start = calendar.startOfDay(entry->date);
        if (!days.isEmpty() && days.last().day == start) {
            days.last().contents.append(entry->content);
            days.last().isWin |= entry->isWin;
            continue;
        }
        days.append({start, {entry->content}, entry->isWin});
    }
    const QDateTime today = m_app.appCalendar().today();
    m_days->setDays(days, today);
    m_days->selectDay(m_page->date());
    const int weeks = JournalStreak::workWeekStreak(dates, Clock::now(), calendar);
    m_streak->setText(weeks > 0 ? u"·  "_s + JournalGreeting::streakText(weeks) : QString());
    refreshHeader();
    m_inspiration->refresh();
}

void JournalScreen::attachPendingImages()
{
    if (m_pendingImages.isEmpty() || m_page->entries().isEmpty())
        return;
    const auto entry = m_page->entries().first();
    const QSet<QUuid> named = JournalPageEditor::imageIds(entry->content);
    ModelContext &context = m_app.mainContext();
    bool added = false;
    for (auto it = m_pendingImages.begin(); it != m_pendingImages.end();) {
        const QUuid id = QUuid::fromString(it.key());
        if (!named.contains(id)) {
            ++it;
            continue;
        }
        auto image = std::make_shared<EntryImage>(it.value(), std::nullopt, entry);
        image->id = id;
        context.insert(image);
        added = true;
        it = m_pendingImages.erase(it);
    }
    if (added)
        context.trySave();
}

void JournalScreen::toggleWin(bool on)
{
    m_page->save();
    const auto entries = JournalPageEditor::storedEntries(m_page->date(), m_app.mainContext());
    if (entries.isEmpty()) {
        report(tr("Write a few words first: a win is marked on a written page."));
        refreshHeader();
        return;
    }
    for (const auto &entry : entries)
        entry->isWin = on;
    m_app.mainContext().trySave();
    refreshDays();
}

void JournalScreen::buildTemplateMenu()
{
    QMenu *menu = m_template->menu();
    menu->clear();
    auto *group = new QActionGroup(menu);
    const QString current = JournalTemplates::currentTemplateId(m_app.preferences());
    for (const JournalTemplates::Template &entry : JournalTemplates::all()) {
        QAction *action =
            menu->addAction(entry.name, this, [this, id = entry.id] { chooseTemplate(id); });
        action->setCheckable(true);
        action->setChecked(entry.id == current);
        action->setToolTip(entry.description);
        action->setStatusTip(entry.description);
        group->addAction(action);
    }
    menu->setToolTipsVisible(true);
}

void JournalScreen::chooseTemplate(const QString &id)
{
    Preferences &preferences = m_app.preferences();
    const QString before =
        JournalTemplates::content(JournalTemplates::currentTemplateId(preferences), preferences);
    preferences.set(Prefs::journalTemplate, id);
    const bool today = Calendar::current().isSameDay(m_page->date(), Clock::now());
    const QString shown = m_editor->stored().trimmed();
    // Only an untouched page takes the new headings; written words are never replaced.
    if (today && (shown.isEmpty() || shown == before.trimmed())) {
        const QString text = JournalTemplates::content(id, preferences);
        m_editor->loadStored(text);
        m_editor->moveCursor(QTextCursor::End);
        m_page->setText(m_editor->stored());
    }
}

void JournalScreen::deleteDay(const QDateTime &day)
{
    if (!day.isValid())
        return;
    const Calendar calendar = Calendar::current();
    const bool written = !JournalPageEditor::storedEntries(day, m_app.mainContext()).isEmpty();
    const bool shown = calendar.isSameDay(day, m_page->date());
    if (!written && !(shown && !m_editor->stored().trimmed().isEmpty())) {
        report(tr("There is nothing on this day to delete."));
        return;
    }
    QMessageBox box(QMessageBox::Warning, tr("Delete this day?"),
                    tr("The page for %1 and its images will be removed from this computer. This "
                       "can't be undone.")
                        .arg(dayTitle(day)),
                    QMessageBox::NoButton, this);
    QPushButton *remove = box.addButton(tr("Delete"), QMessageBox::DestructiveRole);
    box.addButton(QMessageBox::Cancel);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    if (box.clickedButton() != remove)
        return;
    m_page->deleteDay(day);
    if (shown && !calendar.isSameDay(day, m_app.appCalendar().today()))
        showDay(m_app.appCalendar().today());
    refreshDays();
}

void JournalScreen::report(const QString &message)
{
    m_status->setText(message);
    m_status->show();
    m_statusTimer.start();
}

bool JournalScreen::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_editor->viewport() && event->type() == QEvent::Paint && !m_reportedFirstPage &&
        m_loadedDay.isValid()) {
        m_reportedFirstPage = true;
        QTimer::singleShot(0, this, [] { BenchProbe::firstPageShown(); });
    }
    return QWidget::eventFilter(watched, event);
}

void JournalScreen::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (event->spontaneous())
        return;
    // Behind the page: the pass starts once the page is on screen.
    QTimer::singleShot(0, m_summaries,
                       [summaries = m_summaries] { summaries->generateMissingSummaries(); });
}

void JournalScreen::refreshSummary()
{
    const auto entries = JournalPageEditor::storedEntries(m_page->date(), m_app.mainContext());
    if (m_regenerateSummary)
        m_regenerateSummary->setEnabled(!entries.isEmpty());
    if (!m_summary)
        return;
    QString summary;
    for (const auto &entry : entries) {
        if (entry->summary && !entry->summary->isEmpty()) {
            summary = *entry->summary;
            break;
        }
    }
    // A short page says it all itself.
    const bool shown = !summary.isEmpty() &&
                       EntrySummaryGenerator::isLong(EntrySummaryGenerator::dayText(entries));
    m_summary->setText(shown ? summary : QString());
    m_summary->setVisible(shown);
}

void JournalScreen::regenerateSummary()
{
    // Typing still waiting for its save belongs in the new summary.
    m_page->save();
    const QDateTime day = m_page->date();
    const auto entries = JournalPageEditor::storedEntries(day, m_app.mainContext());
    if (entries.isEmpty())
        return;
    m_summaries->regenerateSummary(entries, day);
    refreshSummary();
}

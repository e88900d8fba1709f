#include "PersonPage.h"

#include "PeopleDialogs.h"
#include "PeopleListModel.h"
#include "app/TovrenApp.h"
#include "core/Clock.h"
#include "core/ImageStorage.h"
#include "core/MeetingTimeline.h"
#include "core/records/ActionItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/Tag.h"
#include "core/store/ModelContext.h"
#include "ui/Theme.h"
#include "ui/journal/JournalTextEdit.h"
#include "ui/journal/LinkDialog.h"
#include "writing/EditorLink.h"
#include "writing/JournalDraftStore.h"
#include "writing/JournalSidebar.h"
#include "writing/SaveDebouncer.h"

#include <QCheckBox>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QLocale>
#include <QMenu>
#include <QPainter>
#include <QScrollArea>
#include <QScrollBar>
#include <QTextBlock>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

QString shortDate(const QDateTime &when)
{
    const Calendar calendar = Calendar::current();
    const QDate day = calendar.day(when);
    const bool thisYear = day.year() == calendar.day(Clock::now()).year();
    return QLocale().toString(day, thisYear ? u"MMM d"_s : u"MMM d, yyyy"_s);
}

QString longDate(const QDateTime &when)
{
    return QLocale().toString(Calendar::current().day(when), u"dddd, MMMM d, yyyy"_s);
}

QToolButton *headerButton(const QString &text, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setText(text);
    button->setAutoRaise(true);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setFocusPolicy(Qt::TabFocus);
    button->setStyleSheet(u"QToolButton::menu-indicator { image: none; width: 0px; }"_s);
    return button;
}

QLabel *sectionLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text.toUpper(), parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.82);
    font.setWeight(QFont::DemiBold);
    font.setLetterSpacing(QFont::PercentageSpacing, 106);
    label->setFont(font);
    return label;
}

void clearRows(QVBoxLayout *layout)
{
    // Rows go later: a row's own check box may be what asked for the rebuild.
    while (QLayoutItem *item = layout->takeAt(0)) {
        if (QWidget *widget = item->widget()) {
            widget->hide();
            widget->deleteLater();
        }
        delete item;
    }
}

} // namespace

PersonPage::PersonPage(TovrenApp &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
    , m_mark(new QLabel(this))
    , m_name(new QLabel(this))
    , m_detail(new QLabel(this))
    , m_newNote(headerButton(tr("New 1:1 Note"), this))
    , m_openSection(new QWidget(this))
    , m_openScroll(new QScrollArea(m_openSection))
    , m_openRows(new QVBoxLayout)
    , m_timeline(new QListWidget(this))
    , m_noteTitle(new QLabel(this))
    , m_noteHint(new QLabel(this))
    , m_editor(new JournalTextEdit(this))
    , m_meetingRows(new QVBoxLayout)
    , m_actionField(new QLineEdit(this))
{
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);

    // Header: the mark, the name at heading size, what they are to the user.
    auto *header = new QHBoxLayout;
    header->setSpacing(12);
    QFont markFont = m_mark->font();
    markFont.setPointSizeF(markFont.pointSizeF() * 1.6);
    m_mark->setFont(markFont);
    m_mark->setAlignment(Qt::AlignCenter);
    m_mark->setFixedSize(52, 52);
    QFont nameFont = m_name->font();
    nameFont.setPixelSize(20);
    nameFont.setWeight(QFont::DemiBold);
    m_name->setFont(nameFont);
    m_name->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *nameColumn = new QVBoxLayout;
    nameColumn->setSpacing(2);
    nameColumn->addStretch(1);
    nameColumn->addWidget(m_name);
    nameColumn->addWidget(m_detail);
    nameColumn->addStretch(1);
    header->addWidget(m_mark);
    header->addLayout(nameColumn, 1);
    auto *edit = headerButton(tr("Edit…"), this);
    edit->setToolTip(tr("Name, role, relationship, email, mark and pin"));
    connect(edit, &QToolButton::clicked, this, &PersonPage::editRequested);
    m_newNote->setToolTip(tr("A note for today's 1:1; the menu offers another day"));
    m_newNote->setPopupMode(QToolButton::MenuButtonPopup);
    auto *noteMenu = new QMenu(m_newNote);
    noteMenu->addAction(tr("Today"), this,
                        [this] { newNote(Calendar::current().day(Clock::now())); });
    noteMenu->addAction(tr("Another Day…"), this, &PersonPage::chooseAnotherDate);
    m_newNote->setMenu(noteMenu);
    connect(m_newNote, &QToolButton::clicked, this,
            [this] { newNote(Calendar::current().day(Clock::now())); });
    auto *more = headerButton(u"⋯"_s, this);
    more->setToolTip(tr("More"));
    more->setPopupMode(QToolButton::InstantPopup);
    auto *moreMenu = new QMenu(more);
    moreMenu->addAction(tr("Delete Person…"), this, &PersonPage::deleteRequested);
    more->setMenu(moreMenu);
    header->addWidget(edit, 0, Qt::AlignTop);
    header->addWidget(m_newNote, 0, Qt::AlignTop);
    header->addWidget(more, 0, Qt::AlignTop);

    // What is still owed, over every meeting.
    auto *openLayout = new QVBoxLayout(m_openSection);
    openLayout->setContentsMargins(0, 4, 0, 4);
    openLayout->setSpacing(4);
    auto *openLabel = sectionLabel(tr("Open actions"), m_openSection);
    openLabel->setForegroundRole(QPalette::PlaceholderText);
    openLayout->addWidget(openLabel);
    m_openRows->setSpacing(2);
    // A long list of debts scrolls in a few rows' height, so the notes keep their room.
    QScrollArea *openScroll = m_openScroll;
    openScroll->setFrameShape(QFrame::NoFrame);
    openScroll->setWidgetResizable(true);
    openScroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto *openList = new QWidget(openScroll);
    openList->setBackgroundRole(QPalette::Base);
    openList->setLayout(m_openRows);
    m_openRows->setContentsMargins(0, 0, 0, 0);
    openScroll->setWidget(openList);
    openScroll->viewport()->setBackgroundRole(QPalette::Base);
    openLayout->addWidget(openScroll);

    // The meetings, and the chosen one's note with its action items.
    m_timeline->setObjectName(u"meetingTimeline"_s);
    m_timeline->setItemDelegate(new TwoLineDelegate(m_timeline));
    m_timeline->setFixedWidth(210);
    m_timeline->setFrameShape(QFrame::NoFrame);
    m_timeline->setMouseTracking(true);
    m_timeline->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_timeline->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_timeline->setBackgroundRole(QPalette::Base);
    connect(m_timeline, &QListWidget::currentRowChanged, this, [this](int row) {
        if (!m_filling && row >= 0 && row < m_meetings.size())
            showMeeting(m_meetings.at(row));
    });

    QFont titleFont = m_noteTitle->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.2);
    titleFont.setWeight(QFont::DemiBold);
    m_noteTitle->setFont(titleFont);
    m_noteHint->setWordWrap(true);
    m_detail->setForegroundRole(QPalette::PlaceholderText);
    m_noteHint->setForegroundRole(QPalette::PlaceholderText);
    m_actionField->setObjectName(u"newAction"_s);
    m_actionField->setPlaceholderText(tr("Add an action item and press Return"));
    m_actionField->setClearButtonEnabled(true);
    connect(m_actionField, &QLineEdit::returnPressed, this, [this] {
        if (!m_actionField->text().trimmed().isEmpty())
            addAction(m_actionField->text().trimmed());
    });
    auto *noteColumn = new QVBoxLayout;
    noteColumn->setSpacing(6);
    auto *noteHead = new QVBoxLayout;
    noteHead->setContentsMargins(0, 0, 0, 0);
    noteHead->setSpacing(2);
    noteHead->addWidget(m_noteTitle);
    noteHead->addWidget(m_noteHint);
    noteColumn->addLayout(noteHead);
    noteColumn->addWidget(m_editor, 1);
    auto *noteFoot = new QVBoxLayout;
    noteFoot->setSpacing(4);
    auto *itemsLabel = sectionLabel(tr("Action items from this note"), this);
    itemsLabel->setForegroundRole(QPalette::PlaceholderText);
    noteFoot->addWidget(itemsLabel);
    m_meetingRows->setSpacing(2);
    noteFoot->addLayout(m_meetingRows);
    noteFoot->addWidget(m_actionField);
    noteColumn->addLayout(noteFoot);
    // Title and action items line up with the note's text column.
    connect(m_editor, &JournalTextEdit::columnChanged, this,
            [noteHead, noteFoot](int left, int right) {
                noteHead->setContentsMargins(left, 0, right, 0);
                noteFoot->setContentsMargins(left, 0, right, 0);
            });

    auto *body = new QHBoxLayout;
    body->setSpacing(12);
    body->addWidget(m_timeline);
    body->addLayout(noteColumn, 1);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 22, 28, 18);
    layout->setSpacing(12);
    layout->addLayout(header);
    layout->addWidget(m_openSection);
    layout->addLayout(body, 1);

    ModelContext &context = app.mainContext();
    auto services = JournalTextEdit::Services::overStore(this, context, m_app.preferences());
    services.report = [this](const QString &message) { m_noteHint->setText(message); };
    m_editor->setServices(std::move(services));
    m_editor->setPlaceholderText(
        tr("What to talk about, what was said. Type / for headings, lists, checklists and more."));
    connect(m_editor, &JournalTextEdit::edited, this, &PersonPage::onEdited);
}

PersonPage::~PersonPage()
{
    save();
}

void PersonPage::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        updateHeader();
}

void PersonPage::showPerson(const std::shared_ptr<Person> &person)
{
    save();
    m_person = person;
    m_meeting.reset();
    if (person) {
        ModelContext &context = m_app.mainContext();
        try {
            MeetingTimeline::tidy(person, context);
        } catch (const StoreError &) {
            // Shown untidied; the next opening tries again.
        }
        if (context.hasChanges())
            context.trySave();
    }
    updateHeader();
    fillTimeline();
    showMeeting(m_meetings.value(0));
    fillActions();
}

void PersonPage::showMeeting(const std::shared_ptr<Meeting> &meeting)
{
    if (meeting == m_meeting && meeting)
        return;
    save();
    m_meeting = meeting;
    m_base = meeting ? meeting->notes : QString();
    m_dirty = false;
    m_editor->loadStored(m_base);
    m_editor->moveCursor(QTextCursor::End);
    m_editor->setEnabled(bool(meeting));
    m_actionField->setEnabled(bool(meeting));
    const bool wasFilling = std::exchange(m_filling, true);
    m_timeline->setCurrentRow(int(m_meetings.indexOf(meeting)));
    m_filling = wasFilling;
    updateNoteTitle();
    fillActions();
}

std::shared_ptr<Meeting> PersonPage::scratchpad() const
{
    for (const auto &meeting : m_meetings) {
        if (meeting->isScratchpad)
            return meeting;
    }
    return nullptr;
}

void PersonPage::onEdited()
{
    if (!m_meeting)
        return;
    m_dirty = true;
    SaveDebouncer &debouncer = m_app.saveDebouncer();
    // One pending save serves the whole window: another page's goes to disk before ours
    // takes its place.
    if (debouncer.isPending() && debouncer.pendingOwner() != this)
        debouncer.fire();
    debouncer.schedule(this, [this, meeting = m_meeting] {
        if (meeting == m_meeting)
            save();
    });
}

void PersonPage::save()
{
    m_app.saveDebouncer().cancel(this);
    if (!m_dirty || !m_meeting || !m_meeting->modelContext())
        return;
    const QString typed = m_editor->stored();
    const QString text = JournalDraftStore::reconcile(typed, m_base, m_meeting->notes);
    if (text != typed)
        showMerged(text);
    m_dirty = false;
    m_base = text;
    if (m_meeting->notes != text) {
        m_meeting->notes = text;
        m_meeting->updatedAt = Clock::now();
        // Nothing but these words changed: the page needs no reading again, only its preview.
        m_savingNote = true;
        m_app.mainContext().trySave();
        m_savingNote = false;
        if (QListWidgetItem *row = m_timeline->item(int(m_meetings.indexOf(m_meeting))))
            row->setData(PeopleListModel::DetailRole, preview(*m_meeting));
    }
}

void PersonPage::takeStoredChange()
{
    if (!m_meeting || m_meeting->notes == m_base)
        return;
    const QString stored = m_meeting->notes;
    const QString typed = m_editor->stored();
    const QString text = m_dirty ? JournalDraftStore::reconcile(typed, m_base, stored) : stored;
    m_base = stored;
    if (text != typed)
        showMerged(text);
    // What the merge kept of the typing still has to reach the store.
    m_dirty = text != stored;
    if (m_dirty)
        onEdited();
}

void PersonPage::showMerged(const QString &text)
{
    // Somebody else's words arrived: the caret stays on the line it was on.
    m_editor->loadStoredKeepingCaret(text);
}

void PersonPage::refresh()
{
    if (m_person && !m_person->modelContext())
        m_person.reset();
    updateHeader();
    fillTimeline();
    if (!m_meetings.contains(m_meeting)) {
        // The note went (its person deleted, or merged into the same day's note).
        m_dirty = false;
        m_meeting.reset();
        showMeeting(m_meetings.value(0));
    } else {
        takeStoredChange();
        updateNoteTitle();
    }
    fillActions();
}

void PersonPage::focusNote()
{
    m_editor->setFocus();
}

void PersonPage::updateHeader()
{
    if (!m_person) {
        m_mark->clear();
        m_name->clear();
        m_detail->clear();
        return;
    }
    // The mark on a round patch of the accent, drawn as one picture.
    const int size = m_mark->width();
    const qreal ratio = devicePixelRatioF();
    QPixmap picture(QSize(size, size) * ratio);
    picture.setDevicePixelRatio(ratio);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(
        Theme::blend(palette().color(QPalette::Base), palette().color(QPalette::Highlight), 0.18));
    painter.drawEllipse(QRectF(0, 0, size, size));
    painter.setFont(m_mark->font());
    painter.setPen(palette().color(QPalette::Text));
    painter.drawText(QRect(0, 0, size, size), Qt::AlignCenter,
                     PeopleListModel::mark(m_person->name, m_person->emoji));
    painter.end();
    m_mark->setPixmap(picture);
    m_name->setText(m_person->name);
    QStringList parts;
    if (!m_person->role.trimmed().isEmpty())
        parts.append(m_person->role.trimmed());
    parts.append(rawValue(m_person->relationship()));
    if (m_person->email && !m_person->email->isEmpty())
        parts.append(*m_person->email);
    if (m_person->isPinned)
        parts.append(tr("Pinned"));
    m_detail->setText(parts.join(u" · "_s));
}

void PersonPage::updateNoteTitle()
{
    if (!m_meeting) {
        m_noteTitle->clear();
        m_noteHint->clear();
        return;
    }
    if (m_meeting->isScratchpad) {
        m_noteTitle->setText(tr("Next 1:1"));
        m_noteHint->setText(tr("Jot down what to bring up. When you log the meeting with New 1:1 "
                               "Note, these words move into it."));
    } else {
        m_noteTitle->setText(longDate(m_meeting->date));
        m_noteHint->setText(
            tr("Notes from your 1:1 with %1").arg(m_person ? m_person->name : QString()));
    }
}

QString PersonPage::preview(const Meeting &meeting)
{
    const QString words = JournalSidebar::cleanedContent(meeting.notes);
    if (!words.isEmpty())
        return words;
    return meeting.isScratchpad ? tr("Nothing noted yet") : tr("No notes");
}

void PersonPage::fillTimeline()
{
    m_meetings = m_person ? m_person->meetings() : QList<std::shared_ptr<Meeting>>();
    // The next 1:1 sorts first by its far-off date, then the newest meeting.
    std::stable_sort(m_meetings.begin(), m_meetings.end(),
                     [](const auto &a, const auto &b) { return a->date > b->date; });
    // Read per meeting: a person has a few dozen items, the store tens of thousands.
    m_items.clear();
    for (const auto &meeting : std::as_const(m_meetings))
        m_items.append(meeting->actionItems());
    const bool wasFilling = std::exchange(m_filling, true);
    const int scroll = m_timeline->verticalScrollBar()->value();
    m_timeline->clear();
    for (const auto &meeting : std::as_const(m_meetings)) {
        auto *row = new QListWidgetItem(m_timeline);
        if (meeting->isScratchpad) {
            row->setText(tr("Next 1:1"));
        } else {
            row->setText(shortDate(meeting->date));
            row->setToolTip(longDate(meeting->date));
        }
        row->setData(PeopleListModel::DetailRole, preview(*meeting));
        row->setData(PeopleListModel::CountRole,
                     std::count_if(m_items.cbegin(), m_items.cend(), [&](const auto &item) {
                         return item->meeting == meeting && !item->isCompleted;
                     }));
    }
    m_timeline->setCurrentRow(int(m_meetings.indexOf(m_meeting)));
    m_timeline->verticalScrollBar()->setValue(scroll);
    m_filling = wasFilling;
}

void PersonPage::fillActions()
{
    clearRows(m_openRows);
    clearRows(m_meetingRows);
    int open = 0;
    for (const auto &item : std::as_const(m_items)) {
        if (!item->isCompleted) {
            m_openRows->addWidget(actionRow(item, true));
            ++open;
        }
        if (item->meeting == m_meeting)
            m_meetingRows->addWidget(actionRow(item, false));
    }
    m_openSection->setVisible(open > 0);
    if (open > 0) {
        const int rowHeight =
            m_openRows->itemAt(0)->widget()->sizeHint().height() + m_openRows->spacing();
        m_openScroll->setFixedHeight(std::min(open, 5) * rowHeight);
    }
}

QWidget *PersonPage::actionRow(const std::shared_ptr<ActionItem> &item, bool sayWhichMeeting)
{
    auto *row = new QWidget(this);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    auto *box = new QCheckBox(item->title, row);
    box->setChecked(item->isCompleted);
    // The style draws the box's edge from the window colour, which on a dark page is no edge.
    QPalette boxPalette = box->palette();
    boxPalette.setColor(QPalette::Window, Theme::blend(palette().color(QPalette::Text),
                                                       palette().color(QPalette::Base), 0.35));
    box->setPalette(boxPalette);
    QFont font = box->font();
    font.setStrikeOut(item->isCompleted);
    box->setFont(font);
    connect(box, &QCheckBox::toggled, this, [this, item](bool done) {
        item->isCompleted = done;
        m_app.mainContext().trySave();
    });
    layout->addWidget(box);
    QStringList notes;
    if (item->dueDate)
        notes.append(tr("due %1").arg(shortDate(*item->dueDate)));
    if (sayWhichMeeting && item->meeting) {
        notes.append(item->meeting->isScratchpad
                         ? tr("for the next 1:1")
                         : tr("from %1").arg(shortDate(item->meeting->date)));
    }
    auto *label = new QLabel(notes.join(u" · "_s), row);
    label->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(label);
    layout->addStretch(1);
    auto *more = headerButton(u"⋯"_s, row);
    more->setToolTip(tr("Edit or delete this action item"));
    more->setPopupMode(QToolButton::InstantPopup);
    auto *menu = new QMenu(more);
    menu->addAction(tr("Edit…"), this, [this, item] {
        const Calendar calendar = Calendar::current();
        const auto values = PeopleDialogs::editAction(
            this, {item->title,
                   item->dueDate ? std::optional(calendar.day(*item->dueDate)) : std::nullopt});
        if (!values)
            return;
        item->title = values->title;
        item->dueDate =
            values->due ? std::optional(calendar.startOfDay(*values->due)) : std::nullopt;
        m_app.mainContext().trySave();
    });
    menu->addAction(tr("Delete"), this, [this, item] {
        m_app.mainContext().remove(item);
        m_app.mainContext().trySave();
    });
    more->setMenu(menu);
    layout->addWidget(more);
    return row;
}

QList<QCheckBox *> PersonPage::openActionBoxes() const
{
    QList<QCheckBox *> boxes;
    for (int i = 0; i < m_openRows->count(); ++i)
        boxes.append(m_openRows->itemAt(i)->widget()->findChild<QCheckBox *>());
    return boxes;
}

QList<QCheckBox *> PersonPage::meetingActionBoxes() const
{
    QList<QCheckBox *> boxes;
    for (int i = 0; i < m_meetingRows->count(); ++i)
        boxes.append(m_meetingRows->itemAt(i)->widget()->findChild<QCheckBox *>());
    return boxes;
}

void PersonPage::addAction(const QString &title, std::optional<QDate> due)
{
    if (!m_meeting || title.trimmed().isEmpty())
        return;
    std::optional<QDateTime> dueDate;
    if (due)
        dueDate = Calendar::current().startOfDay(*due);
    m_app.mainContext().insert(std::make_shared<ActionItem>(title.trimmed(), m_meeting, dueDate));
    m_app.mainContext().trySave();
    m_actionField->clear();
}

void PersonPage::newNote(const QDate &day)
{
    if (!m_person || !day.isValid())
        return;
    save();
    ModelContext &context = m_app.mainContext();
    const Calendar calendar = Calendar::current();
    std::shared_ptr<Meeting> target;
    for (const auto &meeting : std::as_const(m_meetings)) {
        if (!meeting->isScratchpad && meeting->date.isValid() && calendar.day(meeting->date) == day)
            target = meeting;
    }
    if (!target) {
        const bool today = day == calendar.day(Clock::now());
        target = std::make_shared<Meeting>(
            m_person, today ? Clock::now() : calendar.startOfDay(day), QString());
        context.insert(target);
    }
    // The next 1:1's note was written for this conversation: it moves in and starts over.
    if (const auto pad = scratchpad(); pad && !pad->notes.trimmed().isEmpty()) {
        const QString own = target->notes.trimmed();
        target->notes =
            own.isEmpty() ? pad->notes.trimmed() : own + u"\n\n"_s + pad->notes.trimmed();
        pad->notes.clear();
        pad->updatedAt = target->updatedAt = Clock::now();
    }
    context.trySave();
    fillTimeline();
    showMeeting(target);
    focusNote();
}

void PersonPage::chooseAnotherDate()
{
    if (const auto day = PeopleDialogs::pickDate(this, Calendar::current().day(Clock::now())))
        newNote(*day);
}

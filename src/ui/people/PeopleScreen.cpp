#include "PeopleScreen.h"

#include "PeopleDialogs.h"
#include "PeopleListModel.h"
#include "PersonPage.h"
#include "app/TovrenApp.h"
#include "core/Clock.h"
#include "core/Notices.h"
#include "core/PeopleQueries.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/store/ModelContext.h"
#include "ui/Dialogs.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

PeopleScreen::PeopleScreen(TovrenApp &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
    , m_model(new PeopleListModel(this))
    , m_list(new QListView(this))
    , m_detail(new QStackedWidget(this))
    , m_page(new PersonPage(app, this))
    , m_empty(new QWidget(this))
{
    setObjectName(u"peopleScreen"_s);

    // The people: a quiet column in the window's colour, like the day list.
    auto *side = new QWidget(this);
    side->setFixedWidth(290);
    auto *sideLayout = new QVBoxLayout(side);
    sideLayout->setContentsMargins(0, 18, 0, 0);
    sideLayout->setSpacing(8);
    auto *headingRow = new QHBoxLayout;
    headingRow->setContentsMargins(18, 0, 12, 4);
    auto *heading = new QLabel(tr("People"), side);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.25);
    headingFont.setWeight(QFont::DemiBold);
    heading->setFont(headingFont);
    auto *add = new QToolButton(side);
    add->setText(u"+"_s);
    add->setToolTip(tr("Add a person (Ctrl+N)"));
    add->setAutoRaise(true);
    add->setFocusPolicy(Qt::TabFocus);
    connect(add, &QToolButton::clicked, this, &PeopleScreen::newPerson);
    headingRow->addWidget(heading, 1);
    headingRow->addWidget(add);
    sideLayout->addLayout(headingRow);
    m_list->setObjectName(u"peopleList"_s);
    m_list->setModel(m_model);
    m_list->setItemDelegate(new TwoLineDelegate(m_list));
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setMouseTracking(true);
    m_list->setUniformItemSizes(true);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setBackgroundRole(QPalette::Window);
    m_list->viewport()->setBackgroundRole(QPalette::Window);
    m_list->installEventFilter(this);
    sideLayout->addWidget(m_list, 1);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &PeopleScreen::showSelected);

    // Nobody yet: one sentence and the one thing to do.
    m_empty->setAutoFillBackground(true);
    m_empty->setBackgroundRole(QPalette::Base);
    auto *emptyLayout = new QVBoxLayout(m_empty);
    emptyLayout->addStretch(1);
    // One line: a wrapped label under a centring alignment gets too little height.
    auto *sentence = new QLabel(
        tr("Add the people you meet with to keep your 1:1 notes and action items."), m_empty);
    sentence->setObjectName(u"emptySentence"_s);
    auto *addFirst = new QPushButton(tr("Add a person"), m_empty);
    addFirst->setObjectName(u"addFirstPerson"_s);
    connect(addFirst, &QPushButton::clicked, this, &PeopleScreen::newPerson);
    emptyLayout->addWidget(sentence, 0, Qt::AlignHCenter);
    emptyLayout->addSpacing(8);
    emptyLayout->addWidget(addFirst, 0, Qt::AlignHCenter);
    emptyLayout->addStretch(2);

    m_detail->addWidget(m_page);
    m_detail->addWidget(m_empty);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(side);
    layout->addWidget(m_detail, 1);

    connect(m_page, &PersonPage::editRequested, this, &PeopleScreen::editPerson);
    connect(m_page, &PersonPage::deleteRequested, this, &PeopleScreen::deletePerson);
    // Every save, whoever made it (an assistant's tool, this page), shows here at once. While the
    // tab is hidden nothing is read: the journal saves as the user types, and showing the tab
    // reads everything afresh anyway.
    m_refreshTimer.setSingleShot(true);
    connect(&m_refreshTimer, &QTimer::timeout, this, &PeopleScreen::reload);
    connect(&app.mainContext(), &ModelContext::didSave, this, [this] {
        if (isVisible() && !m_page->isSavingNote())
            m_refreshTimer.start(0);
    });
    connect(&NoticeCenter::shared(), &NoticeCenter::posted, this, [this](const QString &name) {
        if (isVisible() && name == QLatin1StringView(Notices::dataErased))
            m_refreshTimer.start(0);
    });
    app.preferences().onChanged(Prefs::peopleSelectPersonId.name, this, [this] {
        if (isVisible())
            takeRequestedPerson();
    });
    // The people are read when the tab first shows, not behind the first journal page.
}

PeopleScreen::~PeopleScreen()
{
    m_page->save();
}

std::shared_ptr<Person> PeopleScreen::selectedPerson() const
{
    const QModelIndex current = m_list->currentIndex();
    if (!current.isValid())
        return nullptr;
    const QUuid id = current.data(PeopleListModel::IdRole).toUuid();
    return m_app.mainContext().tryFetch<Person>({field(&Person::id) == id, {}, 1}).value(0);
}

void PeopleScreen::selectPerson(const QUuid &id)
{
    int row = m_model->rowOf(id);
    if (row < 0) {
        reload();
        row = m_model->rowOf(id);
    }
    if (row >= 0)
        m_list->setCurrentIndex(m_model->index(row));
}

void PeopleScreen::showSelected()
{
    const std::shared_ptr<Person> person = selectedPerson();
    if (person != m_page->person())
        m_page->showPerson(person);
}

void PeopleScreen::reload()
{
    const QUuid shown = m_page->person() ? m_page->person()->id : QUuid();
    const int previousRow = m_list->currentIndex().row();
    m_model->reload(m_app.mainContext(), Clock::now());
    const bool nobody = m_model->rowCount() == 0;
    m_detail->setCurrentWidget(nobody ? m_empty : m_page);
    if (nobody) {
        m_page->showPerson(nullptr);
        return;
    }
    int row = m_model->rowOf(shown);
    if (row < 0)
        row = std::clamp(previousRow, 0, m_model->rowCount() - 1);
    if (m_list->currentIndex().row() != row)
        m_list->setCurrentIndex(m_model->index(row));
    if (m_model->at(row).id == shown)
        m_page->refresh();
}

void PeopleScreen::takeRequestedPerson()
{
    Preferences &preferences = m_app.preferences();
    const std::optional<QString> requested = preferences.value(Prefs::peopleSelectPersonId);
    if (!requested)
        return;
    // A mailbox: read once, so that the next opening starts where the user left it.
    preferences.set(Prefs::peopleSelectPersonId, std::nullopt);
    selectPerson(QUuid::fromString(*requested));
    focusFirst();
}

void PeopleScreen::focusFirst()
{
    if (m_page->person())
        m_page->focusNote();
    else
        m_list->setFocus();
}

void PeopleScreen::newPerson()
{
    const auto values = PeopleDialogs::editPerson(this, tr("Add a Person"), {});
    if (!values)
        return;
    m_page->save();
    auto person = std::make_shared<Person>(values->name, values->role, values->relationship,
                                           values->email.isEmpty() ? std::nullopt
                                                                   : std::optional(values->email));
    person->isPinned = values->isPinned;
    if (!values->emoji.isEmpty())
        person->emoji = values->emoji;
    m_app.mainContext().insert(person);
    m_app.mainContext().trySave();
    selectPerson(person->id);
    focusFirst();
}

void PeopleScreen::editPerson()
{
    const std::shared_ptr<Person> person = m_page->person();
    if (!person)
        return;
    const auto values = PeopleDialogs::editPerson(
        this, tr("Edit %1").arg(person->name),
        {person->name, person->role, person->relationship(), person->email.value_or(QString()),
         person->emoji.value_or(QString()), person->isPinned});
    if (!values)
        return;
    person->name = values->name;
    person->role = values->role;
    person->setRelationship(values->relationship);
    person->email = values->email.isEmpty() ? std::nullopt : std::optional(values->email.toLower());
    person->emoji = values->emoji.isEmpty() ? std::nullopt : std::optional(values->emoji);
    person->isPinned = values->isPinned;
    m_app.mainContext().trySave();
    reload();
}

void PeopleScreen::deletePerson()
{
    const std::shared_ptr<Person> person = selectedPerson();
    if (!person)
        return;
    m_page->save();
    // The next-1:1 note goes too, but it is no meeting the user would count.
    const auto real = PeopleQueries::realMeetings(*person);
    const auto meetings = std::count_if(real.cbegin(), real.cend(),
                                        [](const auto &meeting) { return !meeting->isScratchpad; });
    QString text;
    if (meetings == 0)
        text = tr("%1 will be removed from People. This can't be undone.");
    else if (meetings == 1)
        text = tr("%1 and 1 meeting, with its notes and action items, will be removed. This "
                  "can't be undone.");
    else
        text = tr("%1 and %2 meetings, with their notes and action items, will be removed. This "
                  "can't be undone.")
                   .arg(u"%1"_s, QString::number(meetings));
    const Dialogs::Question question{tr("Delete %1?").arg(person->name), text.arg(person->name),
                                     tr("Delete"), tr("Cancel"), true};
    if (!Dialogs::confirm(this, question))
        return;
    m_page->showPerson(nullptr);
    m_app.mainContext().remove(person);
    m_app.mainContext().trySave();
    reload();
}

void PeopleScreen::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    reload();
    takeRequestedPerson();
    focusFirst();
}

void PeopleScreen::hideEvent(QHideEvent *event)
{
    // Leaving the tab saves what is typed at once.
    m_page->save();
    QWidget::hideEvent(event);
}

void PeopleScreen::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && !isActiveWindow())
        m_page->save();
}

bool PeopleScreen::eventFilter(QObject *watched, QEvent *event)
{
    // Only the deliberate key in the list itself: Delete in a note edits the note.
    if (watched == m_list && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent *>(event)->key() == Qt::Key_Delete) {
        deletePerson();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

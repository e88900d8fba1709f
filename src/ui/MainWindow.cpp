#include "MainWindow.h"

#include "app/TovrenApp.h"
#include "bridge/MCPServer.h"
#include "core/Notices.h"
#include "core/Preferences.h"
#include "journal/JournalScreen.h"
#include "people/PeopleScreen.h"
#include "platform/Autostart.h"
#include "safety/DataSafety.h"
#include "safety/DemoMode.h"
#include "settings/AIProviderPane.h"
#include "settings/DataPane.h"
#include "settings/GeneralPane.h"
#include "settings/JournalPane.h"
#include "settings/MCPConnectorSection.h"
#include "settings/SettingsWindow.h"
#include "tasks/TasksScreen.h"
#include "ui/Theme.h"
#include "ui/inbox/InboxScreen.h"
#include "ui/inbox/InboxUnreadBadge.h"
#include "writing/EditorLink.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

// The screens that exist; a tab joins the sidebar when its screen does.
QWidget *makeScreen(SidebarItem item, TovrenApp &app)
{
    switch (item) {
    case SidebarItem::journal:
        return new JournalScreen(app);
    case SidebarItem::tasks:
        return new TasksScreen(app);
    case SidebarItem::inbox:
        return new InboxScreen(app);
    case SidebarItem::meetings:
        return new PeopleScreen(app);
    default:
        return nullptr;
    }
}

} // namespace

MainWindow::MainWindow(TovrenApp &app, QWidget *parent)
    : QMainWindow(parent)
    , m_app(app)
{
    Theme::followDesktop();
    setObjectName(u"main"_s);
    setWindowTitle(u"Tovren"_s);
    resize(1240, 800);

    auto *central = new QWidget(this);
    auto *layout = new QHBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_sidebar = new QListWidget(central);
    m_sidebar->setObjectName(u"sidebar"_s);
    m_sidebar->setFixedWidth(180);
    Theme::styleSidebar(m_sidebar);
    m_screens = new QStackedWidget(central);
    // The demo banner sits under the tab's screen, where it hides nothing of it.
    auto *column = new QVBoxLayout;
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(m_screens, 1);
    column->addWidget(makeDemoBanner(central));
    layout->addWidget(m_sidebar);
    layout->addLayout(column, 1);
    setCentralWidget(central);

    // Asked before any screen exists: a demo left on at the last quit is back at once.
    DemoMode &demo = m_app.safety().demo();
    buildScreens();
    connect(m_sidebar, &QListWidget::currentRowChanged, m_screens,
            &QStackedWidget::setCurrentIndex);
    buildMenus();
    showDemoState(demo.isActive());
    connect(&demo, &DemoMode::changed, this, &MainWindow::onDemoChanged);
    connect(&NoticeCenter::shared(), &NoticeCenter::posted, this, &MainWindow::onNotice);
}

MainWindow::~MainWindow()
{
    delete m_settings;
}

void MainWindow::buildScreens()
{
    // The screens hold the store they were made over; a change of store makes them anew, and
    // the old ones go now, before anything of theirs can reach the other store.
    const std::optional<SidebarItem> shown = currentTab();
    const QSignalBlocker blocker(m_sidebar);
    delete m_unreadBadge;
    m_sidebar->clear();
    m_tabs.clear();
    while (QWidget *old = m_screens->widget(0)) {
        m_screens->removeWidget(old);
        delete old;
    }
    for (SidebarItem item : SidebarItems::all) {
        if (QWidget *screen = makeScreen(item, m_app))
            addTab(item, screen);
    }
    if (m_tabs.isEmpty())
        return;
    const int row = int(std::max<qsizetype>(0, shown ? m_tabs.indexOf(*shown) : 0));
    m_sidebar->setCurrentRow(row);
    m_screens->setCurrentIndex(row);
}

void MainWindow::addTab(SidebarItem item, QWidget *screen)
{
    m_tabs.append(item);
    m_screens->addWidget(screen);
    auto *row = new QListWidgetItem(SidebarItems::title(item), m_sidebar);
    row->setData(Qt::UserRole, SidebarItems::rawValue(item));
    if (item == SidebarItem::inbox)
        m_unreadBadge = InboxUnreadBadge::attach(m_app.mainContext(), m_sidebar, row);
}

QWidget *MainWindow::makeDemoBanner(QWidget *parent)
{
    auto *banner = new QFrame(parent);
    banner->setObjectName(u"demoBanner"_s);
    // Colours by palette role, so that the strip follows light and dark.
    banner->setStyleSheet(u"#demoBanner { background: palette(alternate-base); border-top: 1px "
                          "solid palette(highlight); }"_s);
    auto *title = new QLabel(tr("Demo mode"), banner);
    QFont titleFont = title->font();
    titleFont.setWeight(QFont::DemiBold);
    title->setFont(titleFont);
    auto *unsaved = new QLabel(tr("Nothing here is saved"), banner);
    unsaved->setForegroundRole(QPalette::PlaceholderText);
    auto *text = new QLabel(
        tr("A filled-in Tovren, here to explore. Your own journal is untouched."), banner);
    text->setWordWrap(true);
    auto *exit = new QPushButton(tr("Exit"), banner);
    exit->setObjectName(u"exitDemo"_s);
    connect(exit, &QPushButton::clicked, this, [this] { m_app.safety().demo().exit(); });

    auto *layout = new QHBoxLayout(banner);
    layout->setContentsMargins(24, 10, 16, 10);
    layout->setSpacing(12);
    layout->addWidget(title);
    layout->addWidget(unsaved);
    layout->addWidget(text, 1);
    layout->addWidget(exit);
    m_demoBanner = banner;
    return banner;
}

void MainWindow::showDemoState(bool active)
{
    m_demoBanner->setVisible(active);
    m_demoAction->setText(active ? tr("Exit Demo Mode") : tr("Enter Demo Mode"));
}

void MainWindow::onDemoChanged(bool active)
{
    buildScreens();
    showDemoState(active);
    if (auto *journal = qobject_cast<JournalScreen *>(m_screens->currentWidget());
        journal && isActiveWindow())
        journal->focusToday();
    // The user's own journal shows again: what waits for its showing runs now.
    if (!active && isVisible())
        shellAppeared();
}

void MainWindow::buildMenus()
{
    QMenu *file = menuBar()->addMenu(tr("&File"));
    // Ctrl+N makes a new item of the tab shown; where a tab has none, a journal entry.
    QAction *newEntry = file->addAction(tr("&New Entry"), this, [this] {
        if (auto *people = qobject_cast<PeopleScreen *>(m_screens->currentWidget()))
            people->newPerson();
        else if (auto *tasks = qobject_cast<TasksScreen *>(m_screens->currentWidget()))
            tasks->focusQuickAdd();
        else
            this->newEntry();
    });
    newEntry->setShortcut(QKeySequence::New);
    QAction *settings = file->addAction(tr("&Settings…"), this, &MainWindow::showSettings);
    settings->setShortcuts({QKeySequence::Preferences, QKeySequence(u"Ctrl+,"_s)});
    m_demoAction = file->addAction(tr("Enter Demo Mode"), this, [this] {
        DemoMode &demo = m_app.safety().demo();
        if (demo.isActive())
            demo.exit();
        else
            demo.enter();
    });
    file->addSeparator();
    QAction *close = file->addAction(tr("&Close Window"), this, &QWidget::close);
    close->setShortcut(QKeySequence::Close);
    QAction *quit = file->addAction(tr("&Quit Tovren"));
    quit->setShortcut(QKeySequence::Quit);
    // Closing the window leaves Tovren running; quitting is a deliberate act.
    connect(quit, &QAction::triggered, qApp, &QApplication::quit);

    QMenu *view = menuBar()->addMenu(tr("&View"));
    for (qsizetype i = 0; i < m_tabs.size(); ++i) {
        const SidebarItem item = m_tabs.at(i);
        QAction *action =
            view->addAction(SidebarItems::title(item), this, [this, item] { selectTab(item); });
        // Ctrl+1 is the first tab, as in any tabbed program.
        const auto position = std::find(SidebarItems::all.begin(), SidebarItems::all.end(), item) -
                              SidebarItems::all.begin();
        action->setShortcut(QKeySequence(Qt::CTRL | Qt::Key(Qt::Key_1 + position)));
    }
}

std::optional<SidebarItem> MainWindow::currentTab() const
{
    const int row = m_sidebar->currentRow();
    if (row < 0 || row >= m_tabs.size())
        return std::nullopt;
    return m_tabs.at(row);
}

bool MainWindow::selectTab(SidebarItem item)
{
    const qsizetype row = m_tabs.indexOf(item);
    if (row < 0)
        return false;
    m_sidebar->setCurrentRow(int(row));
    return true;
}

QWidget *MainWindow::screen(SidebarItem item) const
{
    const qsizetype row = m_tabs.indexOf(item);
    return row < 0 ? nullptr : m_screens->widget(int(row));
}

void MainWindow::onNotice(const QString &name, const QVariantMap &info)
{
    if (name == QLatin1StringView(Notices::openTab)) {
        if (const auto item = SidebarItems::fromRaw(info.value(u"item"_s).toString()))
            selectTab(*item);
    }
}

OpenAtLoginToggle::LoginItem MainWindow::loginItem()
{
    return {&Autostart::isEnabled, &Autostart::setEnabled};
}

SettingsWindow *MainWindow::settingsWindow()
{
    if (m_settings)
        return m_settings;
    // A window of its own, not a child: it stays open while the main window is closed.
    m_settings = new SettingsWindow;
    m_settings->addPane(u"General"_s, new GeneralPane(m_app.preferences(), loginItem()));
    m_settings->addPane(u"Journal"_s, new JournalPane(m_app.preferences()));
    m_settings->addPane(u"Connections"_s,
                        // The log of what went out is the user's own; the window also
                        // outlives any demo store.
                        new AIProviderPane(m_app.aiContext(), &m_app.realContext()));
    m_settings->addPane(u"Assistant"_s,
                        new MCPConnectorSection(m_app.preferences(), m_app.mcpServer(),
                                                AIConnector::Bridge::detect(
                                                    35468, QCoreApplication::applicationFilePath()),
                                                loginItem()));
    m_settings->addPane(u"Data"_s, new DataPane([this] { return m_app.eraseAllData(); }));
    return m_settings;
}

void MainWindow::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    // Every showing, from the tray, another start or --show, runs the appearance work again;
    // what must happen once guards itself. The platform's own show events after mapping or
    // restoring add no showing of ours.
    if (event->spontaneous())
        return;
    shellAppeared();
}

void MainWindow::shellAppeared()
{
    m_app.shellDidAppear();
    if (const auto alert = m_app.firstPageDidAppear()) {
        m_recoveryAlert =
            new QMessageBox(QMessageBox::Warning, alert->title, alert->text, QMessageBox::Ok, this);
        m_recoveryAlert->setAttribute(Qt::WA_DeleteOnClose);
        m_recoveryAlert->open();
    }
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    // The window goes; Tovren stays. Typing waiting for its save goes to disk now.
    m_app.saveNow();
    QMainWindow::closeEvent(event);
}

void MainWindow::bringToFront()
{
    if (isMinimized())
        showNormal();
    else
        show();
    // Whoever opens the window means to write: today's page has the keys, not the first list
    // in the focus chain, where typing would go to its type-ahead and Backspace delete a day.
    selectTab(SidebarItem::journal);
    if (auto *journal = qobject_cast<JournalScreen *>(screen(SidebarItem::journal)))
        journal->focusToday();
    raise();
    activateWindow();
}

void MainWindow::openLink(const QUrl &url)
{
    bringToFront();
    if (EditorLink::follow(url, m_app.preferences()) == EditorLink::Followed::external)
        QDesktopServices::openUrl(url);
}

void MainWindow::newEntry()
{
    bringToFront();
}

void MainWindow::showSettings()
{
    SettingsWindow *settings = settingsWindow();
    settings->show();
    settings->raise();
    settings->activateWindow();
}

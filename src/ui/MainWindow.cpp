#include "MainWindow.h"

#include "app/TovrenApp.h"
#include "bridge/MCPServer.h"
#include "core/Notices.h"
#include "core/Preferences.h"
#include "journal/JournalScreen.h"
#include "people/PeopleScreen.h"
#include "platform/Autostart.h"
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
#include <QHBoxLayout>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QStackedWidget>

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
    layout->addWidget(m_sidebar);
    layout->addWidget(m_screens, 1);
    setCentralWidget(central);

    for (SidebarItem item : SidebarItems::all) {
        if (QWidget *screen = makeScreen(item, m_app))
            addTab(item, screen);
    }
    connect(m_sidebar, &QListWidget::currentRowChanged, m_screens,
            &QStackedWidget::setCurrentIndex);
    if (!m_tabs.isEmpty())
        m_sidebar->setCurrentRow(0);
    buildMenus();
    connect(&NoticeCenter::shared(), &NoticeCenter::posted, this, &MainWindow::onNotice);
}

MainWindow::~MainWindow()
{
    delete m_settings;
}

void MainWindow::addTab(SidebarItem item, QWidget *screen)
{
    m_tabs.append(item);
    m_screens->addWidget(screen);
    auto *row = new QListWidgetItem(SidebarItems::title(item), m_sidebar);
    row->setData(Qt::UserRole, SidebarItems::rawValue(item));
    if (item == SidebarItem::inbox)
        InboxUnreadBadge::attach(m_app.mainContext(), m_sidebar, row);
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
    m_settings->addPane(u"Connections"_s, new AIProviderPane(m_app.aiContext()));
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

#pragma once

#include <QTimer>
#include <QUuid>
#include <QWidget>

#include <memory>

class PeopleListModel;
class Person;
class PersonPage;
class QListView;
class QStackedWidget;
class TovrenApp;

// The People tab: everyone the user meets with in a column, pinned people first, and the chosen
// person's page beside it. A person chosen elsewhere (a link in a page, an inbox row) arrives
// through the peopleSelectPersonId preference, read when the tab opens.
class PeopleScreen : public QWidget {
    Q_OBJECT
public:
    explicit PeopleScreen(TovrenApp &app, QWidget *parent = nullptr);
    ~PeopleScreen() override;

    QListView *list() const { return m_list; }
    PeopleListModel *model() const { return m_model; }
    PersonPage *page() const { return m_page; }
    // Shown instead of the page while there is nobody.
    QWidget *emptyState() const { return m_empty; }

    void selectPerson(const QUuid &id);
    std::shared_ptr<Person> selectedPerson() const;
    // The keys go where the user writes first: the chosen person's note, or the list.
    void focusFirst();

public slots:
    void newPerson();
    void editPerson();
    // Asks first, saying how many meetings go too.
    void deletePerson();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void reload();
    void takeRequestedPerson();
    void showSelected();

    TovrenApp &m_app;
    PeopleListModel *m_model;
    QListView *m_list;
    QStackedWidget *m_detail;
    PersonPage *m_page;
    QWidget *m_empty;
    QTimer m_refreshTimer;
};

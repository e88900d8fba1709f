#pragma once

#include <QList>
#include <QString>

class QWidget;

// The questions Tovren asks before doing something it can't undo. Tests queue the answers, so
// a widget test never waits on a modal box nobody will click.
namespace Dialogs {

struct Question {
    QString title;
    QString text;
    QString acceptLabel;
    QString cancelLabel = QStringLiteral("Cancel");
    bool destructive = false;
};

// True when the user chose the accept button.
bool confirm(QWidget *parent, const Question &question);

// Test seam: the next calls answer these, in order, without showing anything; each question
// asked that way is kept for the test to read.
void queueAnswers(const QList<bool> &answers);
QList<Question> takeAskedQuestions();

} // namespace Dialogs

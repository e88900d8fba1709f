#include "Dialogs.h"

#include <QMessageBox>
#include <QPushButton>

namespace {

QList<bool> queuedAnswers;
QList<Dialogs::Question> askedQuestions;

} // namespace

namespace Dialogs {

bool confirm(QWidget *parent, const Question &question)
{
    if (!queuedAnswers.isEmpty()) {
        askedQuestions.append(question);
        return queuedAnswers.takeFirst();
    }
    QMessageBox box(question.destructive ? QMessageBox::Warning : QMessageBox::Question,
                    question.title, question.text, QMessageBox::NoButton, parent);
    QPushButton *accept = box.addButton(question.acceptLabel, QMessageBox::AcceptRole);
    QPushButton *cancel = box.addButton(question.cancelLabel, QMessageBox::RejectRole);
    // Something that can't be undone is never the button Return presses.
    box.setDefaultButton(question.destructive ? cancel : accept);
    box.setEscapeButton(cancel);
    box.exec();
    return box.clickedButton() == accept;
}

void queueAnswers(const QList<bool> &answers)
{
    queuedAnswers.append(answers);
}

QList<Question> takeAskedQuestions()
{
    return std::exchange(askedQuestions, {});
}

} // namespace Dialogs

#pragma once

#include <QPushButton>
#include <QTimer>

#include <functional>

// A button that puts a text on the clipboard and says "Copied" for a moment.
class CopyButton : public QPushButton {
    Q_OBJECT
public:
    static constexpr int copiedMs = 1500;

    CopyButton(const QString &restingLabel, std::function<QString()> text,
               QWidget *parent = nullptr);

    void setRestingLabel(const QString &label);

signals:
    void copied(const QString &text);

private:
    QString m_restingLabel;
    std::function<QString()> m_text;
    QTimer m_reset;
};

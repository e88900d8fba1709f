#pragma once

#include <QDialog>

#include <optional>

class QLineEdit;

// The small prompt for a link's address. An empty address removes the link.
class LinkDialog : public QDialog {
    Q_OBJECT
public:
    explicit LinkDialog(const QString &current, QWidget *parent = nullptr);

    QString address() const;
    QLineEdit *field() const { return m_field; }

    // Nothing when the user cancelled.
    static std::optional<QString> ask(QWidget *parent, const QString &current);

private:
    QLineEdit *m_field;
};

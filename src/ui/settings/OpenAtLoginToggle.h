#pragma once

#include <QWidget>

#include <functional>
#include <optional>

class QCheckBox;
class QLabel;

// "Open at login". It never switches itself on; it only reflects and changes what the user chose.
class OpenAtLoginToggle : public QWidget {
    Q_OBJECT
public:
    struct LoginItem {
        std::function<bool()> isEnabled;
        // A plain-words reason when the change didn't happen.
        std::function<std::optional<QString>(bool)> setEnabled;
    };

    explicit OpenAtLoginToggle(LoginItem loginItem, QWidget *parent = nullptr);

    // Shows the state as it is now, which may have changed outside Tovren.
    void refresh();

private:
    LoginItem m_loginItem;
    QCheckBox *m_toggle = nullptr;
    QLabel *m_problem = nullptr;
};

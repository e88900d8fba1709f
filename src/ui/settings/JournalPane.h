#pragma once

#include <QWidget>

class Preferences;

// What a new page starts with, and how much Tovren and assistants write.
class JournalPane : public QWidget {
    Q_OBJECT
public:
    explicit JournalPane(Preferences &preferences, QWidget *parent = nullptr);
};

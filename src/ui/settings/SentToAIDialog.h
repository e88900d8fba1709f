#pragma once

#include <QDialog>
#include <QList>

#include <memory>
#include <optional>

class AIInteraction;
class ModelContext;
class Preferences;
class QLabel;
class QPlainTextEdit;
class QStackedWidget;
class QTreeWidget;

// Everything Tovren has sent to a text-generation provider, newest first: the prompt of each
// request and the answer that was kept, with the one system text that went ahead of them all.
class SentToAIDialog : public QDialog {
    Q_OBJECT
public:
    // The log is read once, here; the dialog is opened afresh each time.
    SentToAIDialog(ModelContext &context, const Preferences &preferences,
                   QWidget *parent = nullptr);
    ~SentToAIDialog() override;

    // The rows read; more than this and a line says only the latest are shown.
    static constexpr int shownLimit = 500;

    // "Journal summary" for "entry_summary"; a feature not known here as stored.
    static QString featureName(const QString &feature);
    // "0.8 s", "12 s", or a dash when the time wasn't kept.
    static QString durationText(std::optional<qint64> milliseconds);

private:
    void showSelected();

    QList<std::shared_ptr<AIInteraction>> m_rows;
    QStackedWidget *m_body = nullptr;
    QTreeWidget *m_list = nullptr;
    QPlainTextEdit *m_system = nullptr;
    QPlainTextEdit *m_prompt = nullptr;
    QPlainTextEdit *m_response = nullptr;
    QLabel *m_more = nullptr;
};

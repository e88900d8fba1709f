#pragma once

#include "writing/Completion.h"
#include "writing/EditingRules.h"
#include "writing/EntryMarkup.h"
#include "writing/LineFormatting.h"

#include <QHash>
#include <QKeySequence>
#include <QTextEdit>

#include <functional>
#include <optional>

class ModelContext;
class PickerPopup;
class Preferences;
class QAction;
class QMenu;
class QTextTable;

// The page: stored text shown as styled text with its marks hidden. Every key and menu command
// is handed to the writing rules; this class only routes events, draws the block decoration
// (quote bar, rules, code background) and keeps the look of each line.
class JournalTextEdit : public QTextEdit {
    Q_OBJECT
public:
    explicit JournalTextEdit(QWidget *parent = nullptr);

    // What the page needs from its surroundings. Each may be left empty.
    struct Services {
        std::function<QList<Completion::MentionSuggestion>()> people;
        std::function<QStringList()> tagNames;
        // Saves picked or pasted image data; gives the id for the token, or nothing.
        std::function<std::optional<QString>(const QByteArray &png)> saveImage;
        std::function<std::optional<QImage>(const QString &id)> loadImage;
        // Asks for a link's address, prefilled; nothing when the user cancelled.
        std::function<std::optional<QString>(const QString &current)> askForLink;
        std::function<void(const QUrl &url)> followLink;
        std::function<void(const QString &message)> report;

        // What every page over the store shares: mentions and tags from the store, stored
        // pictures, and links asked for over and followed from `owner`.
        static Services overStore(QWidget *owner, ModelContext &context, Preferences &preferences);
    };
    void setServices(Services services);

    // Replaces the page without counting as an edit; undo starts afresh.
    void loadStored(const QString &text);
    // The same, for text that changed under the user (an assistant's write): the caret stays on
    // the line it was on, found again by its text nearby, and the view doesn't scroll.
    void loadStoredKeepingCaret(const QString &text);
    QString stored() const;

    // The commands of the Format menu, in order, with their shortcuts; nullptr entries are
    // separators.
    QList<QAction *> formatActions() const { return m_formatActions; }
    QAction *linkAction() const { return m_linkAction; }
    QMenu *createFormatMenu(QWidget *parent) const;

    PickerPopup *popup() const { return m_popup; }
    // The rectangle of a checklist line's box, in viewport coordinates; empty for other lines.
    QRect checkboxRect(const QTextBlock &block) const;

    // Offers an image file chosen by the user, or given by the slash menu.
    void insertImageFromFile();
    void insertImage(const QImage &image);
    void insertTable();
    void promptForLink();

signals:
    // The user changed the page.
    void edited();
    // Where the text column starts and ends in the widget, for what lines up with it.
    void columnChanged(int left, int right);

protected:
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void keyReleaseEvent(QKeyEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    QMimeData *createMimeDataFromSelection() const override;
    bool canInsertFromMimeData(const QMimeData *source) const override;
    void insertFromMimeData(const QMimeData *source) override;
    void changeEvent(QEvent *event) override;

private:
    enum class PopupKind { none, slash, completion };

    QAction *addFormatAction(const QString &text, const QKeySequence &shortcut,
                             std::function<void(QTextCursor &)> apply);
    void runOnCursor(const std::function<void(QTextCursor &)> &apply);
    void afterTyping(const QString &typed);
    void updateCompletion();
    void choosePopupRow(int row);
    void onContentsChange(int position, int removed, int added);
    void onContentsChanged();
    void styleBlock(const QTextBlock &block, bool withMarks);
    void styleAll();
    void styleTable(QTextTable *table);
    QColor linkColor() const;
    void applyPlaceholderColor();
    void applyBaseFont();
    void centerColumn();
    QList<EntryMarkup::MentionTarget> mentionTargets() const;
    std::optional<QUrl> linkAt(const QPoint &viewportPos) const;
    void updatePointer(Qt::KeyboardModifiers modifiers);
    int imagePositionAt(const QPoint &viewportPos) const;
    void resizeImage(int position, std::optional<int> width);
    bool insertImageData(const QByteArray &data);

    Services m_services;
    PickerPopup *m_popup;
    PopupKind m_popupKind = PopupKind::none;
    std::optional<Completion::Query> m_query;
    QList<Completion::MentionSuggestion> m_mentionRows;
    QStringList m_tagRows;
    QList<QAction *> m_formatActions;
    QHash<QKeySequence, QAction *> m_shortcuts;
    QAction *m_linkAction = nullptr;
    QAction *m_tableAction = nullptr;
    bool m_loading = false;
    bool m_styling = false;
    int m_changedFrom = -1;
    int m_changedTo = -1;
    QList<EntryMarkup::MentionTarget> m_people;
    // Where the mouse rests over the page, for the pointer to follow Ctrl without a move.
    std::optional<QPoint> m_hover;
};

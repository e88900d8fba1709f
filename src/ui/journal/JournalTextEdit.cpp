#include "JournalTextEdit.h"

#include "LinkDialog.h"
#include "PickerPopup.h"
#include "core/ImageStorage.h"
#include "core/records/Tag.h"
#include "core/store/ModelContext.h"
#include "writing/EditorLink.h"
#include "writing/HighlightPalette.h"
#include "writing/PasteNormalizer.h"
#include "writing/SlashMenu.h"
#include "writing/TableEditing.h"

#include <QAbstractTextDocumentLayout>
#include <QAction>
#include <QApplication>
#include <QBuffer>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QImageReader>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextDocumentFragment>
#include <QTextLayout>
#include <QTextTable>
#include <QToolTip>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// A comfortable line of text: about 75 characters of the body font.
constexpr int columnWidth = 700;
constexpr int minimumSideMargin = 40;
constexpr int quoteIndent = 20;
constexpr int codeIndent = 14;
// Highlighter colours are light in both themes.
const QColor highlightedTextColor(0x1d, 0x1d, 0x1f);

QColor blend(const QColor &a, const QColor &b, double amountOfB)
{
    return QColor::fromRgbF(float(a.redF() * (1 - amountOfB) + b.redF() * amountOfB),
                            float(a.greenF() * (1 - amountOfB) + b.greenF() * amountOfB),
                            float(a.blueF() * (1 - amountOfB) + b.blueF() * amountOfB));
}

bool inTable(const QTextBlock &block)
{
    return QTextCursor(block).currentTable() != nullptr;
}

// The look of a line that the stored text does not carry: spacing and indents.
QTextBlockFormat decorated(QTextBlockFormat format, LineFormatting kind)
{
    double top = 0;
    double bottom = 0;
    double left = 0;
    switch (kind) {
    case LineFormatting::h1:
        top = 20;
        bottom = 6;
        break;
    case LineFormatting::h2:
        top = 16;
        bottom = 4;
        break;
    case LineFormatting::h3:
        top = 12;
        bottom = 2;
        break;
    case LineFormatting::quote:
        left = quoteIndent;
        break;
    case LineFormatting::code:
        left = codeIndent;
        break;
    case LineFormatting::divider:
        top = 8;
        bottom = 8;
        break;
    default:
        break;
    }
    format.setTopMargin(top);
    format.setBottomMargin(bottom);
    format.setLeftMargin(left);
    if (kind == LineFormatting::code) {
        format.clearProperty(QTextFormat::LineHeight);
        format.clearProperty(QTextFormat::LineHeightType);
    } else {
        format.setLineHeight(135, QTextBlockFormat::ProportionalHeight);
    }
    return format;
}

// Shifted symbols arrive as their symbol; the menu names the digit.
int unshifted(int key)
{
    switch (key) {
    case Qt::Key_Asterisk:
        return Qt::Key_8;
    case Qt::Key_Ampersand:
        return Qt::Key_7;
    case Qt::Key_ParenLeft:
        return Qt::Key_9;
    case Qt::Key_Greater:
        return Qt::Key_Period;
    default:
        return key;
    }
}

QKeySequence sequenceOf(const QKeyEvent *event)
{
    return QKeySequence(QKeyCombination(event->modifiers() & ~Qt::KeypadModifier,
                                        Qt::Key(unshifted(event->key()))));
}

} // namespace

JournalTextEdit::Services JournalTextEdit::Services::overStore(QWidget *owner,
                                                               ModelContext &context,
                                                               Preferences &preferences)
{
    Services services;
    services.people = [&context] { return Completion::mentionSuggestions(context); };
    services.tagNames = [&context] {
        QStringList names;
        for (const auto &tag : context.tryFetch<Tag>())
            names.append(tag->name);
        return names;
    };
    services.loadImage = [](const QString &id) -> std::optional<QImage> {
        const std::optional<QByteArray> data = ImageStorage::load(id);
        if (!data)
            return std::nullopt;
        QImage image = QImage::fromData(*data);
        return image.isNull() ? std::nullopt : std::optional<QImage>(image);
    };
    services.askForLink = [owner](const QString &current) {
        return LinkDialog::ask(owner, current);
    };
    services.followLink = [&preferences](const QUrl &url) {
        if (EditorLink::follow(url, preferences) == EditorLink::Followed::external)
            QDesktopServices::openUrl(url);
    };
    return services;
}

JournalTextEdit::JournalTextEdit(QWidget *parent)
    : QTextEdit(parent)
    , m_popup(new PickerPopup(viewport()))
{
    setAcceptRichText(false);
    setPlaceholderText(tr("Write about your day. Type / for headings, lists, tables and more."));
    setFrameShape(QFrame::NoFrame);
    setTabChangesFocus(false);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);
    viewport()->setMouseTracking(true);
    applyPlaceholderColor();
    document()->setDocumentMargin(4);
    applyBaseFont();

    connect(document(), &QTextDocument::contentsChange, this, &JournalTextEdit::onContentsChange);
    connect(document(), &QTextDocument::contentsChanged, this, &JournalTextEdit::onContentsChanged);
    connect(m_popup, &PickerPopup::chosen, this, &JournalTextEdit::choosePopupRow);
    connect(this, &QTextEdit::cursorPositionChanged, this, [this] {
        if (m_popupKind == PopupKind::completion)
            updateCompletion();
        else if (m_popupKind == PopupKind::slash && !SlashMenu::shouldOpen(textCursor()))
            m_popup->close();
    });

    using EditingRules::InlineStyle;
    const auto inlineStyle = [this](InlineStyle style) {
        return [this, style](QTextCursor &cursor) {
            const QTextCharFormat typing = EditingRules::toggleInline(cursor, style);
            if (!cursor.hasSelection())
                cursor.setCharFormat(typing);
        };
    };
    const auto line = [](LineFormatting kind) {
        return [kind](QTextCursor &cursor) { EditingRules::toggleLineFormatting(cursor, kind); };
    };
    const auto ctrl = [](int key) {
        return QKeySequence(QKeyCombination(Qt::ControlModifier, Qt::Key(key)));
    };
    const auto ctrlShift = [](int key) {
        return QKeySequence(QKeyCombination(Qt::ControlModifier | Qt::ShiftModifier, Qt::Key(key)));
    };
    const auto ctrlAlt = [](int key) {
        return QKeySequence(QKeyCombination(Qt::ControlModifier | Qt::AltModifier, Qt::Key(key)));
    };

    addFormatAction(tr("Bold"), ctrl(Qt::Key_B), inlineStyle(InlineStyle::bold));
    addFormatAction(tr("Italic"), ctrl(Qt::Key_I), inlineStyle(InlineStyle::italic));
    addFormatAction(tr("Underline"), ctrl(Qt::Key_U), inlineStyle(InlineStyle::underline));
    addFormatAction(tr("Strikethrough"), ctrlShift(Qt::Key_X),
                    inlineStyle(InlineStyle::strikethrough));
    m_linkAction = addFormatAction(tr("Link…"), ctrl(Qt::Key_K), {});
    connect(m_linkAction, &QAction::triggered, this, &JournalTextEdit::promptForLink);
    for (const QString &name : HighlightPalette::entries()) {
        QAction *action =
            addFormatAction(tr("Highlight %1").arg(name.at(0).toUpper() + name.mid(1)), {},
                            [name](QTextCursor &c) { EditingRules::setHighlight(c, name); });
        QPixmap swatch(12, 12);
        swatch.fill(HighlightPalette::color(name));
        action->setIcon(QIcon(swatch));
    }
    addFormatAction(tr("Remove Highlight"), {},
                    [](QTextCursor &c) { EditingRules::setHighlight(c, std::nullopt); });
    addFormatAction(tr("Clear Formatting"), ctrl(Qt::Key_Backslash), EditingRules::clearFormatting);
    m_formatActions.append(nullptr);
    addFormatAction(tr("Heading"), ctrlAlt(Qt::Key_1), line(LineFormatting::h1));
    addFormatAction(tr("Subheading"), ctrlAlt(Qt::Key_2), line(LineFormatting::h2));
    addFormatAction(tr("Small Heading"), ctrlAlt(Qt::Key_3), line(LineFormatting::h3));
    addFormatAction(tr("Body Text"), ctrlAlt(Qt::Key_0), line(LineFormatting::body));
    m_formatActions.append(nullptr);
    addFormatAction(tr("Bullet List"), ctrlShift(Qt::Key_8), line(LineFormatting::bullet));
    addFormatAction(tr("Numbered List"), ctrlShift(Qt::Key_7), line(LineFormatting::numbered));
    addFormatAction(tr("Checklist"), ctrlShift(Qt::Key_9), line(LineFormatting::checklist));
    addFormatAction(tr("Quote"), ctrlShift(Qt::Key_Period), line(LineFormatting::quote));
    addFormatAction(tr("Code Block"), ctrlAlt(Qt::Key_C), line(LineFormatting::code));
    addFormatAction(tr("Divider"), {}, line(LineFormatting::divider));
    m_formatActions.append(nullptr);
    m_tableAction = addFormatAction(tr("Table"), {}, {});
    connect(m_tableAction, &QAction::triggered, this, &JournalTextEdit::insertTable);
    QAction *image = addFormatAction(tr("Image…"), {}, {});
    connect(image, &QAction::triggered, this, &JournalTextEdit::insertImageFromFile);
}

void JournalTextEdit::setServices(Services services)
{
    m_services = std::move(services);
}

QAction *JournalTextEdit::addFormatAction(const QString &text, const QKeySequence &shortcut,
                                          std::function<void(QTextCursor &)> apply)
{
    auto *action = new QAction(text, this);
    if (!shortcut.isEmpty()) {
        // The page handles its keys itself; the menu only names them.
        action->setShortcut(shortcut);
        action->setShortcutContext(Qt::WidgetShortcut);
        m_shortcuts.insert(shortcut, action);
    }
    if (apply)
        connect(action, &QAction::triggered, this, [this, apply] { runOnCursor(apply); });
    m_formatActions.append(action);
    return action;
}

QMenu *JournalTextEdit::createFormatMenu(QWidget *parent) const
{
    auto *menu = new QMenu(parent);
    for (QAction *action : m_formatActions) {
        if (action)
            menu->addAction(action);
        else
            menu->addSeparator();
    }
    return menu;
}

void JournalTextEdit::runOnCursor(const std::function<void(QTextCursor &)> &apply)
{
    QTextCursor cursor = textCursor();
    cursor.beginEditBlock();
    apply(cursor);
    cursor.endEditBlock();
    setTextCursor(cursor);
    if (!cursor.hasSelection())
        setCurrentCharFormat(cursor.charFormat());
    setFocus();
}

void JournalTextEdit::applyBaseFont()
{
    QFont font = QApplication::font();
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * 1.15);
    document()->setDefaultFont(font);
}

void JournalTextEdit::loadStoredKeepingCaret(const QString &text)
{
    const QTextCursor before = textCursor();
    const QString lineText = before.block().text();
    const int blockNumber = before.blockNumber();
    const int column = before.positionInBlock();
    const int scroll = verticalScrollBar()->value();
    loadStored(text);
    QTextDocument *page = document();
    QTextBlock target;
    for (int distance = 0; distance < page->blockCount() && !target.isValid(); ++distance) {
        for (int number : {blockNumber + distance, blockNumber - distance}) {
            const QTextBlock block = page->findBlockByNumber(number);
            if (block.isValid() && block.text() == lineText) {
                target = block;
                break;
            }
        }
    }
    if (!target.isValid())
        target = page->findBlockByNumber(std::min(blockNumber, page->blockCount() - 1));
    QTextCursor after(target);
    after.setPosition(target.position() + std::min(column, target.length() - 1));
    setTextCursor(after);
    verticalScrollBar()->setValue(scroll);
}

void JournalTextEdit::loadStored(const QString &text)
{
    m_popup->close();
    m_popupKind = PopupKind::none;
    m_loading = true;
    m_people = mentionTargets();
    EntryMarkup::LoadOptions options;
    options.people = m_people;
    options.image = m_services.loadImage;
    EntryMarkup::loadFromMarkdown(text, *document(), options);
    styleAll();
    document()->clearUndoRedoStacks();
    document()->setModified(false);
    m_loading = false;
}

QString JournalTextEdit::stored() const
{
    return EntryMarkup::serializeToMarkdown(*document());
}

QList<EntryMarkup::MentionTarget> JournalTextEdit::mentionTargets() const
{
    QList<EntryMarkup::MentionTarget> targets;
    if (m_services.people) {
        for (const auto &person : m_services.people())
            targets.append({person.id, person.name});
    }
    return targets;
}

void JournalTextEdit::styleBlock(const QTextBlock &block, bool withMarks)
{
    if (QTextTable *table = QTextCursor(block).currentTable()) {
        styleTable(table);
        return;
    }
    if (withMarks)
        EntryMarkup::restyleBlock(block, m_people);
    const LineFormatting kind = EntryMarkup::lineFormatting(block);
    const QTextBlockFormat wanted = decorated(block.blockFormat(), kind);
    if (wanted != block.blockFormat())
        QTextCursor(block).setBlockFormat(wanted);
    if (kind == LineFormatting::code)
        return;

    // Colours the stored text has no word for: the user's links, and dark words on the light
    // highlighter colours whatever the theme.
    QList<std::tuple<int, int, QTextCharFormat>> changes;
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        QTextCharFormat format = fragment.charFormat();
        if (format.isImageFormat() || format.boolProperty(EntryMarkup::DerivedLinkProperty))
            continue;
        std::optional<QColor> colour;
        if (format.hasProperty(EntryMarkup::HighlightProperty))
            colour = highlightedTextColor;
        else if (format.isAnchor())
            colour = linkColor();
        const bool has = format.hasProperty(QTextFormat::ForegroundBrush);
        if (colour && (!has || format.foreground().color() != *colour)) {
            format.setForeground(*colour);
            changes.append({fragment.position(), fragment.length(), format});
        } else if (!colour && has) {
            format.clearForeground();
            changes.append({fragment.position(), fragment.length(), format});
        }
    }
    for (const auto &[position, length, format] : changes) {
        QTextCursor cursor(document());
        cursor.setPosition(position);
        cursor.setPosition(position + length, QTextCursor::KeepAnchor);
        cursor.setCharFormat(format);
    }
}

QColor JournalTextEdit::linkColor() const
{
    // Some dark themes keep the light theme's link blue, which can't be read on them.
    const QColor link = palette().color(QPalette::Link);
    const int contrast = std::abs(link.lightness() - palette().color(QPalette::Base).lightness());
    return contrast < 100 ? link.lighter(180) : link;
}

void JournalTextEdit::styleTable(QTextTable *table)
{
    QTextTableFormat format = table->format();
    const QColor text = palette().color(QPalette::Text);
    const QColor base = palette().color(QPalette::Base);
    QTextTableFormat wanted = format;
    wanted.setBorderCollapse(true);
    wanted.setBorder(1);
    wanted.setBorderBrush(blend(base, text, 0.22));
    wanted.setBorderStyle(QTextFrameFormat::BorderStyle_Solid);
    wanted.setCellPadding(7);
    wanted.setCellSpacing(0);
    wanted.setTopMargin(10);
    wanted.setBottomMargin(10);
    if (wanted != format)
        table->setFormat(wanted);
}

void JournalTextEdit::styleAll()
{
    const bool wasStyling = std::exchange(m_styling, true);
    for (QTextBlock block = document()->begin(); block.isValid(); block = block.next())
        styleBlock(block, false);
    // Images wider than the column are shown at its width; only a user's resize is stored.
    const int maxWidth = columnWidth - 2 * codeIndent;
    QTextCursor cursor(document());
    for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            if (!fragment.charFormat().isImageFormat())
                continue;
            QTextImageFormat image = fragment.charFormat().toImageFormat();
            if (image.hasProperty(QTextFormat::ImageWidth))
                continue;
            const QImage natural = document()
                                       ->resource(QTextDocument::ImageResource, QUrl(image.name()))
                                       .value<QImage>();
            if (natural.width() <= maxWidth)
                continue;
            image.setWidth(maxWidth);
            cursor.setPosition(fragment.position());
            cursor.setPosition(fragment.position() + fragment.length(), QTextCursor::KeepAnchor);
            cursor.setCharFormat(image);
        }
    }
    m_styling = wasStyling;
}

void JournalTextEdit::onContentsChange(int position, int removed, int added)
{
    Q_UNUSED(removed);
    if (m_styling || m_loading)
        return;
    m_changedFrom = m_changedFrom < 0 ? position : std::min(m_changedFrom, position);
    m_changedTo = std::max(m_changedTo, position + added);
}

void JournalTextEdit::onContentsChanged()
{
    if (m_styling || m_loading)
        return;
    const int from = std::max(0, m_changedFrom);
    const int to = std::max(from, m_changedTo);
    m_changedFrom = m_changedTo = -1;
    m_styling = true;
    QTextCursor edit(document());
    edit.joinPreviousEditBlock();
    QTextBlock last = document()->findBlock(to);
    if (!last.isValid())
        last = document()->lastBlock();
    for (QTextBlock block = document()->findBlock(from); block.isValid(); block = block.next()) {
        styleBlock(block, true);
        if (block == last)
            break;
    }
    edit.endEditBlock();
    m_styling = false;
    emit edited();
}

bool JournalTextEdit::event(QEvent *event)
{
    if (event->type() == QEvent::ShortcutOverride) {
        auto *key = static_cast<QKeyEvent *>(event);
        // The page's own commands win over the window's while it has the focus.
        if (m_shortcuts.contains(sequenceOf(key)) ||
            (m_popup->isOpen() && (key->key() == Qt::Key_Escape || key->key() == Qt::Key_Tab))) {
            event->accept();
            return true;
        }
    }
    return QTextEdit::event(event);
}

void JournalTextEdit::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Control)
        updatePointer(event->modifiers() | Qt::ControlModifier);
    if (m_popup->isOpen() && event->modifiers() == Qt::NoModifier) {
        if (m_popup->handleKey(event->key()) != CompletionList::Outcome::ignored) {
            if (!m_popup->isOpen() && m_popupKind != PopupKind::none &&
                event->key() == Qt::Key_Escape)
                m_popupKind = PopupKind::none;
            return;
        }
    }
    if (QAction *action = m_shortcuts.value(sequenceOf(event))) {
        action->trigger();
        return;
    }
    if (event->matches(QKeySequence::Undo) || event->matches(QKeySequence::Redo)) {
        // Undo puts the old look back itself; restyling it would cut the redo history.
        QTextCursor cursor = textCursor();
        m_styling = true;
        if (event->matches(QKeySequence::Undo))
            document()->undo(&cursor);
        else
            document()->redo(&cursor);
        m_styling = false;
        setTextCursor(cursor);
        emit edited();
        return;
    }
    QTextCursor cursor = textCursor();
    const int key = event->key();
    const Qt::KeyboardModifiers mods = event->modifiers() & ~Qt::KeypadModifier;
    if ((key == Qt::Key_Return || key == Qt::Key_Enter) &&
        (mods == Qt::NoModifier || mods == Qt::ShiftModifier)) {
        if (!EditingRules::handleReturn(cursor)) {
            // A soft line break has no place in the stored text: Shift-Return is Return.
            cursor.insertBlock();
        }
        setTextCursor(cursor);
        ensureCursorVisible();
        return;
    }
    if (key == Qt::Key_Backspace && mods == Qt::NoModifier &&
        EditingRules::handleBackspaceInMarker(cursor)) {
        setTextCursor(cursor);
        return;
    }
    if ((key == Qt::Key_Tab || key == Qt::Key_Backtab) &&
        (mods == Qt::NoModifier || mods == Qt::ShiftModifier)) {
        const bool back = key == Qt::Key_Backtab || mods == Qt::ShiftModifier;
        if (QTextTable *table = cursor.currentTable()) {
            // Tab walks the cells, as in any table.
            const QTextTableCell cell = table->cellAt(cursor);
            int index = cell.row() * table->columns() + cell.column() + (back ? -1 : 1);
            index = std::clamp(index, 0, table->rows() * table->columns() - 1);
            QTextCursor next = table->cellAt(index / table->columns(), index % table->columns())
                                   .lastCursorPosition();
            setTextCursor(next);
            return;
        }
        if (EditingRules::indentSelection(cursor, back)) {
            setTextCursor(cursor);
            return;
        }
        if (back)
            return;
    }
    QTextEdit::keyPressEvent(event);
    const QString typed = event->text();
    if (!typed.isEmpty() && typed.at(0).isPrint() && !(mods & Qt::ControlModifier))
        afterTyping(typed);
    else if (key == Qt::Key_Backspace || key == Qt::Key_Delete)
        updateCompletion();
}

void JournalTextEdit::afterTyping(const QString &typed)
{
    QTextCursor cursor = textCursor();
    bool changed = false;
    if (typed == u" "_s)
        changed |= EditingRules::checkListShortcut(cursor);
    changed |= EditingRules::checkSmartSubstitutions(cursor);
    if (changed)
        setTextCursor(cursor);
    if (SlashMenu::shouldOpen(cursor)) {
        QStringList rows;
        for (const SlashMenu::Item &item : SlashMenu::items())
            rows.append(item.title);
        m_popupKind = PopupKind::slash;
        m_popup->open(rows, cursorRect());
        return;
    }
    updateCompletion();
}

void JournalTextEdit::updateCompletion()
{
    if (m_popupKind == PopupKind::slash) {
        if (!SlashMenu::shouldOpen(textCursor())) {
            m_popup->close();
            m_popupKind = PopupKind::none;
        }
        return;
    }
    m_query = Completion::activeQuery(textCursor());
    QStringList rows;
    if (m_query && m_query->trigger == Completion::Trigger::mention && m_services.people) {
        m_mentionRows = Completion::mentionCandidates(m_query->text, m_services.people());
        for (const auto &person : std::as_const(m_mentionRows))
            rows.append(person.emoji ? *person.emoji + u' ' + person.name : person.name);
    } else if (m_query && m_query->trigger == Completion::Trigger::tag && m_services.tagNames) {
        m_tagRows = Completion::tagCandidates(m_query->text, m_services.tagNames());
        for (const QString &tag : std::as_const(m_tagRows))
            rows.append(u'#' + tag);
    }
    if (rows.isEmpty()) {
        m_popup->close();
        m_popupKind = PopupKind::none;
        return;
    }
    m_popupKind = PopupKind::completion;
    m_popup->open(rows, cursorRect());
}

void JournalTextEdit::choosePopupRow(int row)
{
    const PopupKind kind = std::exchange(m_popupKind, PopupKind::none);
    m_popup->close();
    QTextCursor cursor = textCursor();
    if (kind == PopupKind::slash) {
        if (row < 0 || row >= SlashMenu::items().size())
            return;
        const SlashMenu::Action action = SlashMenu::items().at(row).action;
        SlashMenu::apply(cursor, action);
        setTextCursor(cursor);
        if (action == SlashMenu::Action::image)
            insertImageFromFile();
        return;
    }
    if (kind != PopupKind::completion || !m_query)
        return;
    QString name;
    if (m_query->trigger == Completion::Trigger::mention && row < m_mentionRows.size())
        name = m_mentionRows.at(row).name;
    else if (m_query->trigger == Completion::Trigger::tag && row < m_tagRows.size())
        name = m_tagRows.at(row);
    if (name.isEmpty())
        return;
    if (m_query->trigger == Completion::Trigger::mention)
        m_people = mentionTargets();
    Completion::insert(cursor, *m_query, name);
    setTextCursor(cursor);
    m_query.reset();
}

void JournalTextEdit::focusOutEvent(QFocusEvent *event)
{
    m_popup->close();
    m_popupKind = PopupKind::none;
    QTextEdit::focusOutEvent(event);
}

QRect JournalTextEdit::checkboxRect(const QTextBlock &block) const
{
    if (!block.isValid() || EntryMarkup::lineFormatting(block) != LineFormatting::checklist)
        return {};
    const EntryMarkup::ListMarker marker = EntryMarkup::listMarker(block);
    const QTextLayout *layout = block.layout();
    if (marker.markerLength == 0 || !layout || layout->lineCount() == 0)
        return {};
    const QTextLine line = layout->lineForTextPosition(marker.indentLength);
    if (!line.isValid())
        return {};
    const double x0 = line.cursorToX(marker.indentLength);
    const double x1 = line.cursorToX(marker.indentLength + 1);
    const QPointF origin =
        layout->position() - QPointF(horizontalScrollBar()->value(), verticalScrollBar()->value());
    return QRectF(origin.x() + x0, origin.y() + line.y(), x1 - x0, line.height())
        .toAlignedRect()
        .adjusted(-3, 0, 3, 0);
}

std::optional<QUrl> JournalTextEdit::linkAt(const QPoint &viewportPos) const
{
    const QString href = anchorAt(viewportPos);
    if (href.isEmpty())
        return std::nullopt;
    return EditorLink::url(QVariant(href));
}

void JournalTextEdit::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        const QPoint pos = event->position().toPoint();
        const QTextBlock block = cursorForPosition(pos).block();
        if (checkboxRect(block).contains(pos)) {
            QTextCursor edit(block);
            edit.beginEditBlock();
            EditingRules::toggleChecklistItem(block);
            edit.endEditBlock();
            return;
        }
        if (const auto url = linkAt(pos)) {
            // Internal links follow on a click; the user's own need Ctrl, so they stay editable.
            if ((EditorLink::isInternal(*url) || event->modifiers() & Qt::ControlModifier) &&
                m_services.followLink) {
                m_services.followLink(*url);
                return;
            }
        }
    }
    QTextEdit::mousePressEvent(event);
}

void JournalTextEdit::mouseMoveEvent(QMouseEvent *event)
{
    m_hover = event->position().toPoint();
    updatePointer(event->modifiers());
    QTextEdit::mouseMoveEvent(event);
}

// A hand where a click does something: a checkbox, a tag or mention, or a link while Ctrl is
// held. A plain click on a link places the caret, so links stay editable.
void JournalTextEdit::updatePointer(Qt::KeyboardModifiers modifiers)
{
    if (!m_hover)
        return;
    const QPoint pos = *m_hover;
    const bool onBox = checkboxRect(cursorForPosition(pos).block()).contains(pos);
    const auto url = onBox ? std::nullopt : linkAt(pos);
    const bool pointing =
        onBox || (url && (EditorLink::isInternal(*url) || modifiers & Qt::ControlModifier));
    viewport()->setCursor(pointing ? Qt::PointingHandCursor : Qt::IBeamCursor);
}

bool JournalTextEdit::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::Leave)
        m_hover.reset();
    if (event->type() == QEvent::ToolTip) {
        const auto *help = static_cast<QHelpEvent *>(event);
        if (const auto url = linkAt(help->pos()); url && !EditorLink::isInternal(*url)) {
            QToolTip::showText(help->globalPos(), tr("Ctrl+click to open"), viewport());
            return true;
        }
    }
    return QTextEdit::viewportEvent(event);
}

void JournalTextEdit::keyReleaseEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Control)
        updatePointer(event->modifiers() & ~Qt::ControlModifier);
    QTextEdit::keyReleaseEvent(event);
}

int JournalTextEdit::imagePositionAt(const QPoint &viewportPos) const
{
    const int position = cursorForPosition(viewportPos).position();
    for (int candidate : {position, position - 1}) {
        if (candidate < 0 ||
            document()->characterAt(candidate) != QChar::ObjectReplacementCharacter)
            continue;
        QTextCursor cursor(document());
        cursor.setPosition(candidate + 1);
        if (cursor.charFormat().isImageFormat())
            return candidate;
    }
    return -1;
}

void JournalTextEdit::resizeImage(int position, std::optional<int> width)
{
    QTextCursor cursor(document());
    cursor.setPosition(position + 1);
    QTextImageFormat image = cursor.charFormat().toImageFormat();
    const QImage natural =
        document()->resource(QTextDocument::ImageResource, QUrl(image.name())).value<QImage>();
    if (width && !natural.isNull() && natural.width() > 0) {
        image.setWidth(*width);
        image.setHeight(std::max(1, *width * natural.height() / natural.width()));
    } else {
        image.clearProperty(QTextFormat::ImageWidth);
        image.clearProperty(QTextFormat::ImageHeight);
    }
    cursor.setPosition(position);
    cursor.setPosition(position + 1, QTextCursor::KeepAnchor);
    cursor.setCharFormat(image);
}

void JournalTextEdit::contextMenuEvent(QContextMenuEvent *event)
{
    QMenu menu(this);
    const QPoint pos = event->pos();
    const int imageAt = imagePositionAt(pos);
    QTextCursor clicked = cursorForPosition(pos);
    if (!textCursor().hasSelection() || clicked.position() < textCursor().selectionStart() ||
        clicked.position() > textCursor().selectionEnd())
        setTextCursor(clicked);

    if (imageAt >= 0) {
        const std::pair<QString, int> sizes[] = {
            {tr("Small"), 240}, {tr("Medium"), 420}, {tr("Large"), columnWidth - 2 * codeIndent}};
        for (const auto &[title, width] : sizes)
            menu.addAction(title, this,
                           [this, imageAt, width = width] { resizeImage(imageAt, width); });
        menu.addAction(tr("Original Size"), this,
                       [this, imageAt] { resizeImage(imageAt, std::nullopt); });
        menu.addSeparator();
    }
    if (textCursor().currentTable()) {
        const std::pair<QString, bool (*)(QTextCursor &)> commands[] = {
            {tr("Insert Row Above"), TableEditing::insertRowAbove},
            {tr("Insert Row Below"), TableEditing::insertRowBelow},
            {tr("Delete Row"), TableEditing::deleteRow},
            {tr("Insert Column Before"), TableEditing::insertColumnBefore},
            {tr("Insert Column After"), TableEditing::insertColumnAfter},
            {tr("Delete Column"), TableEditing::deleteColumn},
        };
        for (const auto &[title, command] : commands) {
            menu.addAction(title, this, [this, command = command] {
                runOnCursor([command](QTextCursor &c) { command(c); });
            });
        }
        menu.addSeparator();
    }
    QAction *undo = menu.addAction(tr("Undo"), this, [this] {
        m_styling = true;
        document()->undo();
        m_styling = false;
        emit edited();
    });
    undo->setEnabled(document()->isUndoAvailable());
    menu.addSeparator();
    menu.addAction(tr("Cut"), QKeySequence::Cut, this, &QTextEdit::cut)
        ->setEnabled(textCursor().hasSelection());
    menu.addAction(tr("Copy"), QKeySequence::Copy, this, &QTextEdit::copy)
        ->setEnabled(textCursor().hasSelection());
    menu.addAction(tr("Paste"), QKeySequence::Paste, this, &QTextEdit::paste)
        ->setEnabled(canPaste());
    menu.addSeparator();
    QMenu *format = createFormatMenu(&menu);
    format->setTitle(tr("Format"));
    menu.addMenu(format);
    menu.exec(event->globalPos());
}

void JournalTextEdit::paintEvent(QPaintEvent *event)
{
    {
        QPainter painter(viewport());
        const QColor text = palette().color(QPalette::Text);
        const QColor base = palette().color(QPalette::Base);
        const QPointF offset(-horizontalScrollBar()->value(), -verticalScrollBar()->value());
        QAbstractTextDocumentLayout *layout = document()->documentLayout();
        QTextBlock block = cursorForPosition(QPoint(0, 0)).block();
        for (; block.isValid(); block = block.next()) {
            const QRectF rect = layout->blockBoundingRect(block).translated(offset);
            if (rect.top() > viewport()->height())
                break;
            if (inTable(block))
                continue;
            switch (EntryMarkup::lineFormatting(block)) {
            case LineFormatting::code: {
                // One panel across the column, without seams between its lines.
                const auto isCode = [](const QTextBlock &b) {
                    return b.isValid() && EntryMarkup::lineFormatting(b) == LineFormatting::code;
                };
                const QTextBlock next = block.next();
                const double top = rect.top() - (isCode(block.previous()) ? 0 : 6);
                const double bottom = isCode(next)
                                          ? layout->blockBoundingRect(next).translated(offset).top()
                                          : rect.bottom() + 6;
                const double right = viewport()->width() - document()->documentMargin();
                painter.fillRect(QRectF(rect.left(), top, right - rect.left(), bottom - top),
                                 blend(base, text, 0.06));
                break;
            }
            case LineFormatting::quote:
                painter.fillRect(QRectF(rect.left() + 2, rect.top() + 2, 3, rect.height() - 4),
                                 blend(base, text, 0.3));
                break;
            case LineFormatting::divider: {
                const double y = std::round(rect.center().y()) + 0.5;
                painter.setPen(QPen(blend(base, text, 0.2), 1));
                painter.drawLine(QPointF(rect.left(), y), QPointF(rect.right(), y));
                break;
            }
            default:
                break;
            }
        }
    }
    QTextEdit::paintEvent(event);
}

void JournalTextEdit::centerColumn()
{
    const int available =
        width() - (verticalScrollBar()->isVisible() ? verticalScrollBar()->width() : 0);
    const int side = std::max(minimumSideMargin, (available - columnWidth) / 2);
    setViewportMargins(side, 8, side, 24);
    const int margin = int(document()->documentMargin());
    emit columnChanged(side + margin, width() - available + side + margin);
}

void JournalTextEdit::resizeEvent(QResizeEvent *event)
{
    centerColumn();
    QTextEdit::resizeEvent(event);
}

void JournalTextEdit::changeEvent(QEvent *event)
{
    QTextEdit::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::ApplicationFontChange)
        applyBaseFont();
    if (event->type() == QEvent::PaletteChange)
        applyPlaceholderColor();
    if (event->type() == QEvent::PaletteChange && !m_loading) {
        // Colours drawn into the page follow the theme; this is no edit of the user's.
        const bool undo = document()->isUndoRedoEnabled();
        document()->setUndoRedoEnabled(false);
        styleAll();
        document()->setUndoRedoEnabled(undo);
    }
}

void JournalTextEdit::applyPlaceholderColor()
{
    // Themes that leave the placeholder role alone get a hint that can be read but stays quiet.
    const QColor wanted =
        blend(palette().color(QPalette::Base), palette().color(QPalette::Text), 0.45);
    if (palette().color(QPalette::PlaceholderText) == wanted)
        return;
    QPalette adjusted = palette();
    adjusted.setColor(QPalette::PlaceholderText, wanted);
    setPalette(adjusted);
}

void JournalTextEdit::insertTable()
{
    runOnCursor([](QTextCursor &cursor) { TableEditing::insertTable(cursor); });
}

void JournalTextEdit::promptForLink()
{
    QTextCursor cursor = textCursor();
    if (!cursor.hasSelection())
        cursor.select(QTextCursor::WordUnderCursor);
    QString current;
    if (cursor.charFormat().isAnchor() &&
        !cursor.charFormat().boolProperty(EntryMarkup::DerivedLinkProperty))
        current = cursor.charFormat().anchorHref();
    if (!m_services.askForLink)
        return;
    const std::optional<QString> answer = m_services.askForLink(current);
    if (!answer)
        return;
    cursor.beginEditBlock();
    EditingRules::applyLink(cursor, *answer);
    cursor.endEditBlock();
    setTextCursor(cursor);
    setFocus();
}

void JournalTextEdit::insertImageFromFile()
{
    const QString path = QFileDialog::getOpenFileName(
        this, tr("Insert Image"), QString(), tr("Images (*.png *.jpg *.jpeg *.gif *.webp *.bmp)"));
    if (path.isEmpty())
        return;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || !insertImageData(file.readAll())) {
        if (m_services.report)
            m_services.report(u"Couldn't import 1 of 1 image(s)"_s);
    }
}

bool JournalTextEdit::insertImageData(const QByteArray &data)
{
    const QImage image = QImage::fromData(data);
    if (image.isNull())
        return false;
    insertImage(image);
    return true;
}

void JournalTextEdit::insertImage(const QImage &image)
{
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (image.isNull() || !image.save(&buffer, "PNG") || !m_services.saveImage) {
        if (m_services.report)
            m_services.report(u"Couldn't read your selection: (editor unavailable)"_s);
        return;
    }
    const std::optional<QString> id = m_services.saveImage(png);
    if (!id) {
        if (m_services.report)
            m_services.report(u"Couldn't import 1 of 1 image(s)"_s);
        return;
    }
    QTextImageFormat format;
    format.setName(EntryMarkup::imageUrlPrefix + *id);
    format.setProperty(EntryMarkup::ImageIdProperty, *id);
    const int maxWidth = columnWidth - 2 * codeIndent;
    if (image.width() > maxWidth)
        format.setWidth(maxWidth);
    document()->addResource(QTextDocument::ImageResource, QUrl(format.name()), image);
    QTextCursor cursor = textCursor();
    cursor.beginEditBlock();
    cursor.insertImage(format);
    cursor.endEditBlock();
    setTextCursor(cursor);
}

QMimeData *JournalTextEdit::createMimeDataFromSelection() const
{
    // Qt's own data names a fixed list of formats, which would hide ours; it gives the text and
    // the HTML that other programs read.
    const std::unique_ptr<QMimeData> shown(QTextEdit::createMimeDataFromSelection());
    auto *data = new QMimeData;
    data->setText(shown->text());
    data->setHtml(shown->html());
    const QTextCursor cursor = textCursor();
    QTextCursor start(document());
    start.setPosition(cursor.selectionStart());
    QTextCursor end(document());
    end.setPosition(cursor.selectionEnd());
    // Cells copied from within one table are words, not a table.
    const QTextTable *table = start.currentTable();
    if (!table || end.currentTable() != table)
        data->setData(EntryMarkup::markupMimeType,
                      EntryMarkup::serializeSelection(cursor).toUtf8());
    return data;
}

bool JournalTextEdit::canInsertFromMimeData(const QMimeData *source) const
{
    return source->hasFormat(EntryMarkup::markupMimeType) || source->hasImage() ||
           source->hasUrls() || QTextEdit::canInsertFromMimeData(source);
}

void JournalTextEdit::insertFromMimeData(const QMimeData *source)
{
    const bool ours = source->hasFormat(EntryMarkup::markupMimeType);
    if (source->hasImage() && !ours) {
        insertImage(qvariant_cast<QImage>(source->imageData()));
        return;
    }
    if (source->hasUrls() && !ours) {
        QList<QString> files;
        for (const QUrl &url : source->urls()) {
            if (url.isLocalFile())
                files.append(url.toLocalFile());
        }
        if (!files.isEmpty()) {
            qsizetype failed = 0;
            for (const QString &path : std::as_const(files)) {
                QFile file(path);
                if (!file.open(QIODevice::ReadOnly) || !insertImageData(file.readAll()))
                    ++failed;
            }
            if (failed > 0 && m_services.report) {
                m_services.report(
                    u"Couldn't import %1 of %2 image(s)"_s.arg(failed).arg(files.size()));
            }
            return;
        }
    }
    QTextCursor cursor = textCursor();
    const LineFormatting kind = EntryMarkup::lineFormatting(cursor.block());
    if (cursor.currentTable() || kind == LineFormatting::code) {
        // Cells and code keep pasted text as it is, on their own lines.
        QString text = source->text();
        if (cursor.currentTable())
            text.replace(u'\n', u' ');
        cursor.insertText(text);
        setTextCursor(cursor);
        return;
    }
    QString markdown;
    if (ours) {
        markdown = QString::fromUtf8(source->data(EntryMarkup::markupMimeType));
    } else if (source->hasHtml()) {
        QTextDocument rich;
        rich.setHtml(source->html());
        markdown = PasteNormalizer::prepareForPaste(rich);
    } else {
        markdown = PasteNormalizer::normalizePastedLists(source->text());
    }
    EntryMarkup::LoadOptions options;
    options.people = m_people;
    options.image = m_services.loadImage;
    cursor.beginEditBlock();
    if (cursor.hasSelection())
        cursor.removeSelectedText();
    EntryMarkup::insertMarkdown(cursor, markdown, options);
    cursor.endEditBlock();
    setTextCursor(cursor);
}

#include "SentToAIDialog.h"

#include "SettingsUi.h"
#include "ai/AIInstructionBuilder.h"
#include "ai/AIProvider.h"
#include "core/Clock.h"
#include "core/records/AIInteraction.h"
#include "core/store/ModelContext.h"
#include "ui/CopyButton.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QPlainTextEdit>
#include <QSplitter>
#include <QStackedWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

enum Column { when, feature, provider, duration };

QString providerName(const QString &raw)
{
    const std::optional<AIProvider> provider = AIProviders::fromRaw(raw);
    if (!provider)
        return raw;
    // The picker's "Other…" says nothing in a log; which endpoint it was isn't kept.
    return *provider == AIProvider::custom ? u"Custom endpoint"_s
                                           : AIProviders::displayName(*provider);
}

QPlainTextEdit *readOnlyText(const QString &name, QWidget *parent)
{
    auto *text = new QPlainTextEdit(parent);
    text->setObjectName(name);
    text->setReadOnly(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    return text;
}

// A small bold title with a copy button for the text below it.
QWidget *titledText(const QString &title, QPlainTextEdit *text, QWidget *parent)
{
    auto *box = new QWidget(parent);
    auto *layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    auto *top = new QHBoxLayout;
    auto *label = new QLabel(title, box);
    QFont bold = label->font();
    bold.setBold(true);
    label->setFont(bold);
    top->addWidget(label);
    top->addStretch(1);
    auto *copy = new CopyButton(
        u"Copy"_s, [text] { return text->toPlainText(); }, box);
    copy->setObjectName(text->objectName() + u"Copy"_s);
    // Enter closes the dialog; it never copies by surprise.
    copy->setAutoDefault(false);
    top->addWidget(copy);
    layout->addLayout(top);
    text->setParent(box);
    layout->addWidget(text, 1);
    return box;
}

} // namespace

SentToAIDialog::SentToAIDialog(ModelContext &context, const Preferences &preferences,
                               QWidget *parent)
    : QDialog(parent)
{
    setObjectName(u"sentToAI"_s);
    setWindowTitle(u"Sent to AI"_s);
    resize(980, 680);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 16, 20, 12);
    layout->setSpacing(10);
    m_body = new QStackedWidget(this);
    layout->addWidget(m_body, 1);

    auto *log = new QWidget(m_body);
    auto *logLayout = new QVBoxLayout(log);
    logLayout->setContentsMargins(0, 0, 0, 0);
    logLayout->setSpacing(10);
    logLayout->addWidget(SettingsUi::hint(
        u"Each request Tovren sent to your AI provider, newest first, with the answer it kept."_s,
        log));

    // The same text goes ahead of every prompt, so it is shown once rather than in each.
    m_system = readOnlyText(u"systemText"_s, log);
    m_system->setPlainText(AIInstructionBuilder::systemInstruction(preferences));
    m_system->setMaximumHeight(m_system->fontMetrics().lineSpacing() * 4 + 12);
    logLayout->addWidget(titledText(u"Sent ahead of every prompt"_s, m_system, log));

    m_more = SettingsUi::hint(QString(), log);
    m_more->setObjectName(u"moreNote"_s);
    logLayout->addWidget(m_more);

    auto *split = new QSplitter(Qt::Vertical, log);
    split->setChildrenCollapsible(false);
    m_list = new QTreeWidget(split);
    m_list->setObjectName(u"interactions"_s);
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->setAllColumnsShowFocus(true);
    m_list->setHeaderLabels({u"When"_s, u"Feature"_s, u"Provider"_s, u"Time"_s});
    m_list->header()->setStretchLastSection(false);
    m_list->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_list->header()->setSectionResizeMode(Column::feature, QHeaderView::Stretch);
    m_list->headerItem()->setTextAlignment(Column::duration, Qt::AlignRight | Qt::AlignVCenter);

    auto *detail = new QWidget(split);
    auto *detailLayout = new QHBoxLayout(detail);
    detailLayout->setContentsMargins(0, 6, 0, 0);
    detailLayout->setSpacing(16);
    m_prompt = readOnlyText(u"prompt"_s, detail);
    m_response = readOnlyText(u"response"_s, detail);
    detailLayout->addWidget(titledText(u"Prompt"_s, m_prompt, detail), 3);
    detailLayout->addWidget(titledText(u"Answer"_s, m_response, detail), 2);
    split->addWidget(m_list);
    split->addWidget(detail);
    split->setStretchFactor(0, 2);
    split->setStretchFactor(1, 3);
    logLayout->addWidget(split, 1);
    m_body->addWidget(log);

    auto *empty = new QLabel(u"Nothing has been sent to an AI provider yet. When Tovren writes a "
                             u"summary, a recap or a suggestion, what it sent shows here."_s,
                             m_body);
    empty->setObjectName(u"emptyLog"_s);
    empty->setWordWrap(true);
    empty->setAlignment(Qt::AlignCenter);
    empty->setForegroundRole(QPalette::PlaceholderText);
    m_body->addWidget(empty);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    m_rows = context.tryFetch<AIInteraction>(
        {{}, {field(&AIInteraction::createdAt).descending()}, shownLimit});
    if (m_rows.isEmpty()) {
        m_body->setCurrentWidget(empty);
        return;
    }
    if (m_rows.size() == shownLimit) {
        qint64 total = 0;
        try {
            total = context.fetchCount<AIInteraction>();
        } catch (const StoreError &) {
        }
        if (total > shownLimit)
            m_more->setText(u"Showing the latest %1 of %2 requests."_s.arg(
                QLocale().toString(shownLimit), QLocale().toString(total)));
    }
    m_more->setVisible(!m_more->text().isEmpty());

    const QTimeZone zone = Calendar::current().timeZone();
    QList<QTreeWidgetItem *> items;
    items.reserve(m_rows.size());
    for (const auto &row : std::as_const(m_rows)) {
        auto *item = new QTreeWidgetItem;
        item->setText(Column::when,
                      QLocale().toString(row->createdAt.toTimeZone(zone), QLocale::ShortFormat));
        item->setText(Column::feature, featureName(row->feature));
        item->setText(Column::provider, providerName(row->provider));
        item->setText(Column::duration, durationText(row->durationMs));
        item->setTextAlignment(Column::duration, Qt::AlignRight | Qt::AlignVCenter);
        items.append(item);
    }
    m_list->addTopLevelItems(items);
    connect(m_list, &QTreeWidget::currentItemChanged, this, &SentToAIDialog::showSelected);
    m_list->setCurrentItem(items.first());
    // The arrow keys walk the rows from the start, not the system text above them.
    m_list->setFocus();
}

SentToAIDialog::~SentToAIDialog() = default;

QString SentToAIDialog::featureName(const QString &feature)
{
    static const QHash<QString, QString> names{
        {u"entry_summary"_s, u"Journal summary"_s},
        {u"weekly_review_summary"_s, u"Recap"_s},
        {u"goal_insights"_s, u"Goal suggestions"_s},
        {u"performance_review"_s, u"Performance review"_s},
        {u"star_story"_s, u"STAR stories"_s},
        {u"meeting_prep"_s, u"Meeting prep"_s},
        {u"goal_coaching"_s, u"Goal coaching"_s},
    };
    return names.value(feature, feature);
}

QString SentToAIDialog::durationText(std::optional<qint64> milliseconds)
{
    if (!milliseconds || *milliseconds < 0)
        return u"—"_s;
    const double seconds = double(*milliseconds) / 1000.0;
    // Tenths matter for quick answers; past ten seconds they are noise.
    if (std::round(seconds * 10.0) < 100.0)
        return QLocale().toString(seconds, 'f', 1) + u" s"_s;
    return QLocale().toString(qint64(std::llround(seconds))) + u" s"_s;
}

void SentToAIDialog::showSelected()
{
    const int row = m_list->indexOfTopLevelItem(m_list->currentItem());
    const auto interaction = m_rows.value(row);
    m_prompt->setPlainText(interaction ? interaction->prompt : QString());
    m_response->setPlainText(interaction ? interaction->response : QString());
}

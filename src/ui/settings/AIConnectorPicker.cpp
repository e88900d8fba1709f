#include "AIConnectorPicker.h"

#include "SettingsUi.h"
#include "ui/CopyButton.h"

#include <QComboBox>
#include <QFontDatabase>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

AIConnectorPicker::AIConnectorPicker(const AIConnector::Bridge &bridge, bool compact,
                                     QWidget *parent)
    : QWidget(parent)
    , m_connectors(AIConnector::all(bridge))
    , m_compact(compact)
{
    setObjectName(u"connectorPicker"_s);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    auto *chooser = new QHBoxLayout;
    auto *label = new QLabel(tr("Assistant"), this);
    m_choice = new QComboBox(this);
    m_choice->setObjectName(u"connectorChoice"_s);
    for (const AIConnector &connector : std::as_const(m_connectors))
        m_choice->addItem(connector.name, connector.id);
    label->setBuddy(m_choice);
    chooser->addWidget(label);
    chooser->addWidget(m_choice);
    chooser->addStretch();
    layout->addLayout(chooser);

    m_body = new QWidget(this);
    m_bodyLayout = new QVBoxLayout(m_body);
    m_bodyLayout->setContentsMargins(0, 0, 0, 0);
    m_bodyLayout->setSpacing(8);
    layout->addWidget(m_body);

    connect(m_choice, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0 && index < m_connectors.size()) {
            m_current = m_connectors.at(index);
            rebuild();
        }
    });
    select(AIConnector::initialId);
}

void AIConnectorPicker::select(const QString &id)
{
    const int index = m_choice->findData(id);
    // An unknown id shows the first row, as the picker's "current" does.
    const int shown = index >= 0 ? index : 0;
    if (m_choice->currentIndex() == shown) {
        m_current = m_connectors.at(shown);
        rebuild();
    } else {
        m_choice->setCurrentIndex(shown);
    }
}

void AIConnectorPicker::rebuild()
{
    while (QLayoutItem *item = m_bodyLayout->takeAt(0)) {
        if (QWidget *widget = item->widget())
            widget->deleteLater();
        delete item;
    }

    // There is no one-click install on this desktop, so the Claude row is the by-hand setup.
    const bool byHand = std::holds_alternative<AIConnector::ClaudeExtension>(m_current.payload);
    auto *instructions = new QLabel(
        SettingsUi::withCode(byHand ? AIConnector::byHandInstructions : m_current.instructions),
        m_body);
    instructions->setObjectName(u"connectorInstructions"_s);
    instructions->setTextFormat(Qt::RichText);
    instructions->setWordWrap(true);
    m_bodyLayout->addWidget(instructions);
    m_bodyLayout->addWidget(payloadView(m_current));

    if (!m_current.instructionsHome)
        return;
    m_bodyLayout->addWidget(SettingsUi::sectionHeading(AIConnector::standingLineHeading, m_body));
    auto *sentence = new QLabel(m_current.standingLineSentence(m_compact), m_body);
    sentence->setObjectName(u"standingSentence"_s);
    sentence->setWordWrap(true);
    m_bodyLayout->addWidget(sentence);
    if (m_compact)
        return;
    auto *line = new QLabel(AIConnector::standingLine, m_body);
    line->setObjectName(u"standingLine"_s);
    line->setWordWrap(true);
    line->setTextInteractionFlags(Qt::TextSelectableByMouse);
    line->setFrameShape(QFrame::StyledPanel);
    line->setMargin(8);
    auto *row = new QHBoxLayout;
    row->addWidget(line, 1);
    auto *copyLine = new CopyButton(u"Copy Line"_s, [] { return AIConnector::standingLine; });
    copyLine->setObjectName(u"copyLine"_s);
    row->addWidget(copyLine, 0, Qt::AlignTop);
    m_bodyLayout->addLayout(row);
}

QWidget *AIConnectorPicker::payloadView(const AIConnector &connector)
{
    if (const auto *form = std::get_if<AIConnector::Fields>(&connector.payload)) {
        // Label, value and copy button in columns, so the form reads down like the one the
        // user is filling in.
        auto *view = new QWidget(m_body);
        auto *grid = new QGridLayout(view);
        grid->setContentsMargins(0, 0, 0, 0);
        grid->setHorizontalSpacing(14);
        const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        int row = 0;
        for (const AIConnector::Field &field : form->fields) {
            grid->addWidget(new QLabel(field.label, view), row, 0);
            auto *value = new QLabel(field.value, view);
            value->setTextInteractionFlags(Qt::TextSelectableByMouse);
            if (field.isLiteral) {
                value->setFont(fixed);
                const QString text = field.value;
                auto *copy = new CopyButton(u"Copy "_s + field.label, [text] { return text; });
                copy->setObjectName(u"copyField"_s);
                grid->addWidget(copy, row, 2, Qt::AlignLeft);
            } else {
                value->setForegroundRole(QPalette::PlaceholderText);
            }
            grid->addWidget(value, row, 1);
            ++row;
        }
        grid->setColumnStretch(3, 1);
        return view;
    }
    if (const auto *unsupported = std::get_if<AIConnector::Unsupported>(&connector.payload))
        return SettingsUi::hint(unsupported->reason, m_body);
    return snippetView(connector.copyableText().value_or(QString()));
}

QWidget *AIConnectorPicker::snippetView(const QString &text)
{
    auto *view = new QWidget(m_body);
    auto *layout = new QHBoxLayout(view);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *snippet = new QPlainTextEdit(text, view);
    snippet->setObjectName(u"snippet"_s);
    snippet->setReadOnly(true);
    snippet->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    snippet->setLineWrapMode(QPlainTextEdit::NoWrap);
    const int lines = int(text.count(u'\n')) + 1;
    snippet->setFixedHeight(snippet->fontMetrics().lineSpacing() * lines + 18);
    layout->addWidget(snippet, 1);
    auto *copy = new CopyButton(u"Copy"_s, [text] { return text; });
    copy->setObjectName(u"copySnippet"_s);
    layout->addWidget(copy, 0, Qt::AlignTop);
    return view;
}

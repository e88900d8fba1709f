#include "AIProviderPane.h"

#include "SentToAIDialog.h"
#include "SettingsUi.h"
#include "ai/AIClientError.h"
#include "ai/AIEndpointProbe.h"
#include "ai/AIKeyStore.h"
#include "ai/AIModelCatalog.h"
#include "ai/OnDeviceModel.h"
#include "ai/TovrenAI.h"
#include "core/Clock.h"
#include "core/JournalLanguage.h"
#include "core/PreferenceKeys.h"
#include "ui/Dialogs.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

QString formatLabel(AIWireFormat format)
{
    return format == AIWireFormat::anthropic ? u"Anthropic"_s : u"OpenAI"_s;
}

} // namespace

AIProviderPane::AIProviderPane(AIContext context, ModelContext *log, QWidget *parent)
    : QWidget(parent)
    , m_context(context)
    , m_log(log)
{
    setObjectName(u"aiProviderPane"_s);
    QVBoxLayout *column = SettingsUi::paneColumn(this);
    column->addWidget(SettingsUi::sectionHeading(u"AI Provider"_s, this));

    m_form = new QFormLayout;
    m_form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    column->addLayout(m_form);

    m_provider = new QComboBox(this);
    m_provider->setObjectName(u"provider"_s);
    for (AIProvider each : AIProviders::all)
        m_provider->addItem(AIProviders::displayName(each), AIProviders::rawValue(each));
    m_provider->setCurrentIndex(
        m_provider->findData(AIProviders::rawValue(AIProviders::stored(m_context.preferences))));
    m_form->addRow(u"Provider:"_s, m_provider);
    m_where = SettingsUi::hint(QString(), this);
    m_where->setObjectName(u"endpointDescription"_s);
    m_form->addRow(QString(), m_where);

    m_onDeviceStatus = new QLabel(this);
    m_onDeviceStatus->setObjectName(u"onDeviceStatus"_s);
    m_onDeviceStatus->setWordWrap(true);
    m_form->addRow(QString(), m_onDeviceStatus);

    m_address = new QLineEdit(this);
    m_address->setObjectName(u"baseURL"_s);
    m_address->setPlaceholderText(u"https://gateway.example.com/v1"_s);
    m_form->addRow(u"Address:"_s, m_address);
    m_addressHint = SettingsUi::hint(
        u"Works with your company's AI, including Vertex AI and Bedrock gateways, services like "
        u"OpenRouter, and models running on this computer."_s,
        this);
    m_form->addRow(QString(), m_addressHint);
    m_detected = new QLabel(this);
    m_detected->setObjectName(u"detectedFormat"_s);
    m_form->addRow(QString(), m_detected);

    m_keyRow = new QWidget(this);
    auto *keyLayout = new QHBoxLayout(m_keyRow);
    keyLayout->setContentsMargins(0, 0, 0, 0);
    m_key = new QLineEdit(m_keyRow);
    m_key->setObjectName(u"apiKey"_s);
    m_key->setEchoMode(QLineEdit::Password);
    m_key->setPlaceholderText(u"API key"_s);
    keyLayout->addWidget(m_key, 1);
    m_terminalKey = new QPushButton(u"Use the key from your terminal"_s, m_keyRow);
    m_terminalKey->setObjectName(u"useTerminalKey"_s);
    keyLayout->addWidget(m_terminalKey);
    m_form->addRow(u"API key:"_s, m_keyRow);
    m_keyHint = SettingsUi::hint(u"Models running on this computer usually don’t need a key. "
                                 u"Leave it empty if yours doesn’t."_s,
                                 this);
    m_form->addRow(QString(), m_keyHint);
    m_keyFallback = SettingsUi::hint(QString(), this);
    m_keyFallback->setObjectName(u"keyFallbackNotice"_s);
    m_form->addRow(QString(), m_keyFallback);

    m_modelRow = new QWidget(this);
    auto *modelLayout = new QHBoxLayout(m_modelRow);
    modelLayout->setContentsMargins(0, 0, 0, 0);
    m_model = new QComboBox(m_modelRow);
    m_model->setObjectName(u"model"_s);
    m_model->setEditable(true);
    m_model->setInsertPolicy(QComboBox::NoInsert);
    modelLayout->addWidget(m_model, 1);
    m_reload = new QToolButton(m_modelRow);
    m_reload->setObjectName(u"reloadModels"_s);
    m_reload->setIcon(QIcon::fromTheme(u"view-refresh"_s));
    m_reload->setText(u"Reload"_s);
    m_reload->setToolTip(u"Reload the model list"_s);
    modelLayout->addWidget(m_reload);
    m_form->addRow(u"Model:"_s, m_modelRow);
    m_modelHint = SettingsUi::hint(QString(), this);
    m_modelHint->setObjectName(u"modelHint"_s);
    m_form->addRow(QString(), m_modelHint);
    m_catalogNote = SettingsUi::hint(QString(), this);
    m_catalogNote->setObjectName(u"catalogNote"_s);
    m_form->addRow(QString(), m_catalogNote);

    auto *buttons = new QHBoxLayout;
    m_save = new QPushButton(u"Save"_s, this);
    m_save->setObjectName(u"save"_s);
    m_save->setDefault(true);
    m_removeKey = new QPushButton(u"Remove Key"_s, this);
    m_removeKey->setObjectName(u"removeKey"_s);
    m_test = new QPushButton(u"Test Connection"_s, this);
    m_test->setObjectName(u"test"_s);
    m_savedNote = new QLabel(this);
    m_savedNote->setObjectName(u"savedNote"_s);
    buttons->addWidget(m_save);
    buttons->addWidget(m_removeKey);
    buttons->addWidget(m_test);
    buttons->addWidget(m_savedNote);
    buttons->addStretch();
    column->addLayout(buttons);
    m_testResult = new QLabel(this);
    m_testResult->setObjectName(u"testResult"_s);
    m_testResult->setWordWrap(true);
    m_testResult->setTextInteractionFlags(Qt::TextSelectableByMouse);
    column->addWidget(m_testResult);
    m_savedNoteTimer = new QTimer(this);
    m_savedNoteTimer->setSingleShot(true);
    m_savedNoteTimer->setInterval(2000);
    connect(m_savedNoteTimer, &QTimer::timeout, m_savedNote, &QLabel::clear);

    m_pending = new QGroupBox(this);
    m_pending->setObjectName(u"pendingEndpoint"_s);
    auto *pendingLayout = new QVBoxLayout(m_pending);
    m_pendingTitle = new QLabel(m_pending);
    m_pendingTitle->setObjectName(u"pendingEndpointTitle"_s);
    m_pendingTitle->setWordWrap(true);
    QFont bold = m_pendingTitle->font();
    bold.setBold(true);
    m_pendingTitle->setFont(bold);
    pendingLayout->addWidget(m_pendingTitle);
    pendingLayout->addWidget(SettingsUi::hint(
        u"Your journal text would be sent there when Tovren writes summaries. Approve only if "
        u"you recognize it."_s,
        m_pending));
    auto *pendingButtons = new QHBoxLayout;
    auto *approve = new QPushButton(u"Approve"_s, m_pending);
    approve->setObjectName(u"approveEndpoint"_s);
    auto *decline = new QPushButton(u"Decline"_s, m_pending);
    decline->setObjectName(u"declineEndpoint"_s);
    pendingButtons->addWidget(approve);
    pendingButtons->addWidget(decline);
    pendingButtons->addStretch();
    pendingLayout->addLayout(pendingButtons);
    m_pending->hide();
    column->addWidget(m_pending);

    addLanguageRow(column);
    if (m_log) {
        column->addWidget(SettingsUi::sectionHeading(u"Privacy"_s, this));
        column->addWidget(SettingsUi::hint(
            u"Every prompt Tovren has sent to a provider, and the answer it kept."_s, this));
        auto *sentRow = new QHBoxLayout;
        auto *sent = new QPushButton(u"Sent to AI…"_s, this);
        sent->setObjectName(u"sentToAI"_s);
        sentRow->addWidget(sent);
        sentRow->addStretch();
        column->addLayout(sentRow);
        connect(sent, &QPushButton::clicked, this, [this] {
            auto *dialog = new SentToAIDialog(*m_log, m_context.preferences, this);
            dialog->setAttribute(Qt::WA_DeleteOnClose);
            dialog->open();
        });
    }
    column->addStretch();

    connect(m_provider, &QComboBox::currentIndexChanged, this, &AIProviderPane::providerPicked);
    connect(m_address, &QLineEdit::editingFinished, this, [this] {
        if (m_address->isModified()) {
            m_address->setModified(false);
            start(detectAndRefresh());
        }
    });
    connect(m_key, &QLineEdit::textEdited, this, [this] { updateModelHint(); });
    connect(m_terminalKey, &QPushButton::clicked, this, [this] {
        if (const auto key = AIProviders::environmentKey(provider())) {
            m_key->setText(*key);
            updateModelHint();
        }
    });
    connect(m_reload, &QToolButton::clicked, this, [this] { start(refreshModels(true)); });
    connect(m_save, &QPushButton::clicked, this, [this] {
        if (m_keyLoaded && consentGiven())
            start(saveCurrent());
    });
    connect(m_removeKey, &QPushButton::clicked, this, [this] {
        if (m_keyLoaded)
            start(removeCurrent());
    });
    connect(m_test, &QPushButton::clicked, this, [this] {
        if (m_keyLoaded && consentGiven())
            start(runTest());
    });
    connect(approve, &QPushButton::clicked, this, [this] {
        if (!m_pendingEndpoint)
            return;
        const PendingEndpoint endpoint = *m_pendingEndpoint;
        setPendingEndpoint(std::nullopt);
        start(approvePending(endpoint));
    });
    connect(decline, &QPushButton::clicked, this, [this] {
        if (!m_pendingEndpoint)
            return;
        const QUrl endpoint = m_pendingEndpoint->baseUrl;
        setPendingEndpoint(std::nullopt);
        emit pendingEndpointDeclined(endpoint);
    });

    updateRows();
    start(loadForCurrentProvider());
}

void AIProviderPane::addLanguageRow(QVBoxLayout *column)
{
    Preferences &preferences = m_context.preferences;
    column->addWidget(SettingsUi::sectionHeading(u"Language"_s, this));
    m_language = new QComboBox(this);
    m_language->setObjectName(u"outputLanguage"_s);
    m_language->addItem(automaticLanguageLabel(), u"auto"_s);
    for (const JournalLanguage::Choice &choice : JournalLanguage::choices())
        m_language->addItem(choice.name, choice.id);
    // A stored word this picker doesn't know reads as the automatic choice, and stays stored.
    const int chosen =
        m_language->findData(preferences.value(Prefs::aiOutputLanguage).value_or(u"auto"_s));
    m_language->setCurrentIndex(std::max(chosen, 0));
    auto *form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    form->addRow(u"Summaries in"_s, m_language);
    column->addLayout(form);
    column->addWidget(SettingsUi::hint(u"The language Tovren writes in"_s, this));
    connect(m_language, &QComboBox::currentIndexChanged, this, [this] {
        m_context.preferences.set(Prefs::aiOutputLanguage, m_language->currentData().toString());
    });
    preferences.onChanged(Prefs::aiDetectedJournalLanguage.name, this,
                          [this] { m_language->setItemText(0, automaticLanguageLabel()); });
}

QString AIProviderPane::automaticLanguageLabel() const
{
    const std::optional<QString> detected =
        m_context.preferences.value(Prefs::aiDetectedJournalLanguage);
    if (!detected || detected->isEmpty())
        return u"Automatic"_s;
    return u"Automatic ("_s + JournalLanguage::displayName(*detected) + u')';
}

void AIProviderPane::setPendingEndpoint(std::optional<PendingEndpoint> endpoint)
{
    m_pendingEndpoint = std::move(endpoint);
    if (m_pendingEndpoint)
        m_pendingTitle->setText(u"An app asked to connect Tovren to "_s +
                                m_pendingEndpoint->shownHost());
    m_pending->setVisible(m_pendingEndpoint.has_value());
}

QCoro::Task<> AIProviderPane::approvePending(PendingEndpoint endpoint)
{
    QPointer<AIProviderPane> self(this);
    endpoint.approve(m_context.preferences);
    {
        // The provider is stored already; the picker only follows.
        const QSignalBlocker blocker(m_provider);
        m_provider->setCurrentIndex(
            m_provider->findData(AIProviders::rawValue(AIProvider::custom)));
    }
    m_testResult->clear();
    updateRows();
    emit pendingEndpointApproved(endpoint.baseUrl);
    const int generation = m_loadGeneration + 1;
    co_await loadForCurrentProvider(false);
    if (self && generation == m_loadGeneration)
        co_await detectAndRefresh();
}

AIProvider AIProviderPane::provider() const
{
    return AIProviders::fromRaw(m_provider->currentData().toString())
        .value_or(AIProvider::appleFoundation);
}

void AIProviderPane::providerPicked()
{
    m_context.preferences.set(Prefs::aiProvider, AIProviders::rawValue(provider()));
    m_testResult->clear();
    m_detected->clear();
    updateRows();
    start(loadForCurrentProvider());
}

void AIProviderPane::updateRows()
{
    const AIProvider current = provider();
    const bool onDevice = current == AIProvider::appleFoundation;
    const bool custom = current == AIProvider::custom;
    m_where->setText(
        AIProviders::endpointDescription(current, m_context.preferences, m_context.hosts));
    m_form->setRowVisible(m_onDeviceStatus, onDevice);
    m_form->setRowVisible(m_address, custom);
    m_form->setRowVisible(m_addressHint, custom);
    m_form->setRowVisible(m_detected, custom);
    m_form->setRowVisible(m_keyRow, !onDevice);
    m_form->setRowVisible(m_keyHint, custom);
    m_form->setRowVisible(m_catalogNote, !onDevice);
    m_removeKey->setVisible(!onDevice);
    m_terminalKey->setVisible(AIProviders::environmentKey(current).has_value());
    const QString source = custom ? u"your endpoint"_s : AIProviders::displayName(current);
    m_catalogNote->setText(u"Tovren keeps the model list current by fetching it from "_s + source +
                           u" about every two weeks, a read-only request that lists models only. "
                           u"No journal or prompt data is sent. Tap refresh to update now."_s);
    m_keyFallback->setText(m_context.keys.fallbackNotice());
    m_form->setRowVisible(m_keyFallback, !m_keyFallback->text().isEmpty());
    updateModelHint();
}

void AIProviderPane::updateActions()
{
    m_key->setEnabled(m_keyLoaded);
    m_removeKey->setEnabled(m_keyLoaded);
    m_save->setEnabled(m_keyLoaded);
    m_test->setEnabled(m_keyLoaded && !m_isTesting);
}

void AIProviderPane::updateModelHint()
{
    const AIProvider current = provider();
    QString hint;
    bool canReload = false;
    if (current == AIProvider::appleFoundation) {
        canReload = true;
    } else if (m_isFetchingModels) {
        hint = u"Loading models…"_s;
    } else if (current == AIProvider::custom && !AIProviders::normalizedBase(m_address->text())) {
        hint = u"Enter an address to load models"_s;
    } else if (current != AIProvider::custom && m_key->text().trimmed().isEmpty()) {
        hint = u"Enter your key to load models"_s;
    } else {
        canReload = true;
        if (current == AIProvider::custom && m_model->count() == 0)
            hint = u"Type the model name your endpoint uses"_s;
    }
    m_reload->setEnabled(canReload && !m_isFetchingModels);
    if (!m_modelHint->property("nothingNew").toBool())
        m_modelHint->setText(hint);
    m_form->setRowVisible(m_modelHint, !m_modelHint->text().isEmpty());
}

void AIProviderPane::showModels(const QStringList &models)
{
    const QString typed = m_model->currentText();
    const QSignalBlocker blocker(m_model);
    m_model->clear();
    m_model->addItems(models);
    m_model->setCurrentText(typed);
}

void AIProviderPane::flash(const QString &text)
{
    m_savedNote->setText(text);
    m_savedNoteTimer->start();
}

bool AIProviderPane::consentGiven()
{
    const AIProvider current = provider();
    if (!AIProviders::isRemote(current) || m_hasStoredKey ||
        m_context.preferences.value(Prefs::aiConsent(AIProviders::rawValue(current))))
        return true;
    const QString name = AIProviders::displayName(current);
    Dialogs::Question question;
    question.title = u"Use "_s + name + u'?';
    question.text = u"Saving this key routes every Tovren summary, recap, and insight through "_s +
                    name +
                    u". Prompts include the journal entries, meeting notes, and profile context "
                    u"needed to answer. They leave your computer and are subject to "_s +
                    name +
                    u"'s privacy policy and terms of service. The on-device model stays "
                    u"available as a fully on-device alternative."_s;
    question.acceptLabel = u"I understand, enable"_s;
    if (!Dialogs::confirm(this, question))
        return false;
    m_context.preferences.set(Prefs::aiConsent(AIProviders::rawValue(current)), true);
    return true;
}

QCoro::Task<> AIProviderPane::loadForCurrentProvider(bool refreshStaleModels)
{
    QPointer<AIProviderPane> self(this);
    const int generation = ++m_loadGeneration;
    const AIProvider current = provider();
    Preferences &preferences = m_context.preferences;
    m_address->setText(preferences.value(Prefs::aiBaseUrlCustom).value_or(QString()));
    m_model->setCurrentText(AIProviders::model(preferences, current));
    m_modelHint->setProperty("nothingNew", false);
    // Nothing of the provider shown before may stay in the field: saved or tested now, it would
    // go to this provider as its key.
    m_key->clear();
    m_hasStoredKey = false;
    m_keyLoaded = current == AIProvider::appleFoundation;
    updateActions();

    if (current == AIProvider::appleFoundation) {
        m_onDeviceStatus->setText(u"Looking for the model server on this computer…"_s);
        const OnDeviceModel::State state =
            co_await OnDeviceModel::current(m_context.network, m_context.onDeviceServer);
        if (!self || generation != m_loadGeneration)
            co_return;
        showModels(state.models);
        if (m_model->currentText().isEmpty() && !state.models.isEmpty()) {
            const std::optional<QString> chat = co_await OnDeviceModel::firstChatModel(
                m_context.network, m_context.onDeviceServer, state.models);
            if (!self || generation != m_loadGeneration)
                co_return;
            m_model->setCurrentText(chat.value_or(QString()));
        }
        m_onDeviceStatus->setText(state.status == AppleModelStatus::available
                                      ? u"The on-device model is ready."_s
                                      : OnDeviceModel::statusText(state.status));
        updateRows();
        co_return;
    }

    showModels(AIModelCatalog::cached(preferences, current));
    const std::optional<QString> key =
        co_await m_context.keys.read(AIProviders::keyAccount(current));
    // A read that ends after another switch belongs to the provider shown before.
    if (!self || generation != m_loadGeneration)
        co_return;
    m_hasStoredKey = key.has_value() && !key->isEmpty();
    m_key->setText(key.value_or(QString()));
    m_keyLoaded = true;
    updateActions();
    updateRows();
    if (refreshStaleModels && AIModelCatalog::isStale(preferences, current, Clock::now()) &&
        AIModelCatalog::canLoadModels(preferences, current, m_key->text()))
        co_await refreshModels(false);
}

QCoro::Task<> AIProviderPane::refreshModels(bool announceNothingNew)
{
    QPointer<AIProviderPane> self(this);
    const AIProvider current = provider();
    if (current == AIProvider::appleFoundation) {
        co_await loadForCurrentProvider();
        co_return;
    }
    const QStringList before = AIModelCatalog::cached(m_context.preferences, current);
    m_isFetchingModels = true;
    m_modelHint->setProperty("nothingNew", false);
    updateModelHint();
    const bool fetched =
        co_await AIModelCatalog::refresh(m_context, current, m_key->text().trimmed(),
                                         AIProviders::normalizedBase(m_address->text()));
    if (!self)
        co_return;
    m_isFetchingModels = false;
    if (provider() != current) {
        updateModelHint();
        co_return;
    }
    const QStringList after = AIModelCatalog::cached(m_context.preferences, current);
    showModels(after);
    if (fetched && announceNothingNew && after == before) {
        m_modelHint->setText(u"Nothing new to add"_s);
        m_modelHint->setProperty("nothingNew", true);
    }
    updateModelHint();
}

QCoro::Task<> AIProviderPane::detectAndRefresh()
{
    QPointer<AIProviderPane> self(this);
    m_detected->clear();
    const auto base = AIProviders::normalizedBase(m_address->text());
    updateModelHint();
    if (!base || provider() != AIProvider::custom)
        co_return;
    m_isDetecting = true;
    m_detected->setText(u"Checking the endpoint…"_s);
    const auto format =
        co_await AIEndpointProbe::detect(m_context.network, *base, m_key->text().trimmed());
    if (!self)
        co_return;
    m_isDetecting = false;
    if (format) {
        AIProviders::storeDetectedWireFormat(m_context.preferences, *format);
        m_detected->setText(u"Connected. Using the "_s + formatLabel(*format) + u" format."_s);
    } else {
        m_detected->clear();
    }
    co_await refreshModels(false);
}

QCoro::Task<bool> AIProviderPane::saveCurrent()
{
    QPointer<AIProviderPane> self(this);
    const int generation = m_loadGeneration;
    const AIProvider current = provider();
    const QString raw = AIProviders::rawValue(current);
    Preferences &preferences = m_context.preferences;
    const QString key = m_key->text().trimmed();
    const QString model = m_model->currentText().trimmed();
    const bool hadKey = m_hasStoredKey;
    bool kept = true;
    if (AIProviders::isRemote(current) && !key.isEmpty()) {
        kept = co_await m_context.keys.write(key, AIProviders::keyAccount(current));
        if (!self)
            co_return false;
        if (kept && generation == m_loadGeneration)
            m_hasStoredKey = true;
    } else if (hadKey) {
        // An emptied field is how a key is taken back.
        kept = co_await removeKey(current);
        if (!self || !kept)
            co_return false;
    }
    if (current == AIProvider::custom) {
        if (const auto base = AIProviders::normalizedBase(m_address->text()))
            preferences.set(Prefs::aiBaseUrlCustom, base->toString());
        else
            preferences.set(Prefs::aiBaseUrlCustom, std::nullopt);
    }
    preferences.set(Prefs::aiModel(raw), model);
    updateRows();
    if (!kept) {
        m_testResult->setText(u"The key couldn't be saved because the keyring refused it. Unlock "
                              u"your keyring and save again."_s);
        co_return false;
    }
    flash(key.isEmpty() && hadKey ? u"Key removed"_s : u"Saved"_s);
    co_return true;
}

QCoro::Task<bool> AIProviderPane::removeKey(AIProvider provider)
{
    QPointer<AIProviderPane> self(this);
    const int generation = m_loadGeneration;
    const bool removed = co_await m_context.keys.remove(AIProviders::keyAccount(provider));
    if (!self)
        co_return removed;
    if (!removed) {
        m_testResult->setText(u"The key couldn't be removed because the keyring refused. It is "
                              u"still saved. Unlock your keyring and try again."_s);
        co_return false;
    }
    if (generation == m_loadGeneration) {
        m_hasStoredKey = false;
        m_key->clear();
    }
    co_return true;
}

QCoro::Task<> AIProviderPane::removeCurrent()
{
    QPointer<AIProviderPane> self(this);
    const bool removed = co_await removeKey(provider());
    if (!self || !removed)
        co_return;
    updateRows();
    flash(u"Key removed"_s);
}

QCoro::Task<> AIProviderPane::runTest()
{
    if (m_isTesting)
        co_return;
    QPointer<AIProviderPane> self(this);
    m_isTesting = true;
    updateActions();
    m_testResult->setText(u"Testing…"_s);
    const int generation = m_loadGeneration;
    const bool saved = co_await saveCurrent();
    if (!self)
        co_return;
    // Another provider picked meanwhile hasn't been agreed to; and a refused key says so already.
    if (!saved || generation != m_loadGeneration) {
        m_isTesting = false;
        updateActions();
        if (saved)
            m_testResult->clear();
        co_return;
    }
    QString result;
    try {
        const std::unique_ptr<AIClient> client = co_await TovrenAI::current(m_context);
        co_await client->respond(u"Reply with the word OK."_s);
        result = u"Connection OK"_s;
    } catch (const AIClientError &error) {
        result = error.errorDescription();
    }
    if (!self)
        co_return;
    m_isTesting = false;
    updateActions();
    m_testResult->setText(result);
}

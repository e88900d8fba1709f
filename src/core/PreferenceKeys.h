#pragma once

#include "Preferences.h"

// Every preference key of Tovren, with its type and the default an absent key reads as. The
// names are what the file holds and must never change: other installs and people's hand-edited
// files use them.
namespace Prefs {

template<class T>
using Optional = PrefKey<std::optional<T>>;

// Start-up and shell.
inline const PrefKey<bool> onboardingCompleted{QStringLiteral("onboardingCompleted"), false};
inline const PrefKey<bool> coachMarksCompleted{QStringLiteral("coachMarksCompleted"), false};
inline const PrefKey<bool> showMenuBarIcon{QStringLiteral("showMenuBarIcon"), true};
inline const PrefKey<bool> privacyScreenEnabled{QStringLiteral("privacyScreenEnabled"), true};
inline const Optional<QString> pendingRecoveryNotice{QStringLiteral("pendingRecoveryNotice"),
                                                     std::nullopt};
inline const PrefKey<bool> pendingDemoTour{QStringLiteral("pendingDemoTour"), false};
inline const PrefKey<bool> pendingOnboardingCelebration{
    QStringLiteral("pendingOnboardingCelebration"), false};
inline const PrefKey<bool> libraryNudgePosted{QStringLiteral("libraryNudgePosted"), false};
inline const PrefKey<bool> inboxRetiredFeaturesPurged{
    QStringLiteral("inboxRetiredFeaturesPurged.v1"), false};
inline const PrefKey<bool> demoModeActive{QStringLiteral("demoModeActive"), false};
inline const PrefKey<bool> legacyJournalImportDone{QStringLiteral("legacyJournalImportDone"),
                                                   false};
// "none", "passcode", "biometric" or "both".
inline const PrefKey<QString> appLockMethod{QStringLiteral("appLockMethod"),
                                            QStringLiteral("none")};
inline const PrefKey<bool> pendingNewPerson{QStringLiteral("pendingNewPerson"), false};
inline const Optional<QString> peopleSelectPersonId{QStringLiteral("peopleSelectPersonId"),
                                                    std::nullopt};

// The profile's copy, for code without a store at hand.
inline const Optional<QString> userProfileName{QStringLiteral("userProfileName"), std::nullopt};
inline const Optional<QByteArray> userProfileAvatar{QStringLiteral("userProfileAvatar"),
                                                    std::nullopt};
inline const Optional<QString> userProfileEmail{QStringLiteral("userProfileEmail"), std::nullopt};

// Journal and writing. The day last shown and a new goal's draft title are per-window state and
// live with their windows, not here.
inline const PrefKey<QString> journalTemplate{QStringLiteral("journalTemplate"),
                                              QStringLiteral("blank")};
// JSON text of the user's own template sections.
inline const PrefKey<QString> customTemplateSections{QStringLiteral("customTemplateSections"),
                                                     QString()};
inline const PrefKey<QString> menuBarDraftText{QStringLiteral("menuBarDraftText"), QString()};
inline const PrefKey<QStringList> pendingQuickCaptures{QStringLiteral("pendingQuickCaptures"), {}};
inline const PrefKey<qint64> quickCaptureKeyCode{QStringLiteral("quickCaptureKeyCode"), 45};
inline const PrefKey<qint64> quickCaptureModifiers{QStringLiteral("quickCaptureModifiers"), 0x1100};

// AI. The per-provider keys end in the provider's raw value.
inline const PrefKey<QString> aiProvider{QStringLiteral("aiProvider"),
                                         QStringLiteral("appleFoundation")};
inline const Optional<QString> aiBaseUrlCustom{QStringLiteral("ai-baseurl-custom"), std::nullopt};
inline const Optional<QString> aiWireFormatCustom{QStringLiteral("ai-wireformat-custom"),
                                                  std::nullopt};
inline Optional<QString> aiModel(const QString &provider)
{
    return {QStringLiteral("ai-model-") + provider, std::nullopt};
}
inline Optional<QStringList> aiModelsCache(const QString &provider)
{
    return {QStringLiteral("ai-models-cache-") + provider, std::nullopt};
}
// Seconds since 1970.
inline Optional<double> aiModelsFetchedAt(const QString &provider)
{
    return {QStringLiteral("ai-models-fetchedAt-") + provider, std::nullopt};
}
// Whether the user agreed that prompts may go to this provider.
inline PrefKey<bool> aiConsent(const QString &provider)
{
    return {QStringLiteral("aiConsent.") + provider, false};
}
inline const Optional<QString> aiOutputLanguage{QStringLiteral("aiOutputLanguage"), std::nullopt};
inline const Optional<QString> aiDetectedJournalLanguage{
    QStringLiteral("aiDetectedJournalLanguage"), std::nullopt};
// "brief", "balanced" or "detailed".
inline const PrefKey<QString> journalWritingStyle{QStringLiteral("journalWritingStyle"),
                                                  QStringLiteral("balanced")};

// Assistant bridge.
inline const PrefKey<bool> mcpServerEnabled{QStringLiteral("mcpServerEnabled"), false};
inline const PrefKey<bool> mcpToolGroupDefaultsApplied{
    QStringLiteral("mcpToolGroupDefaultsApplied"), false};
// No value when unset or not a bool; whether that means on depends on the group, which the tool
// groups decide.
inline Optional<bool> mcpToolGroup(const QString &group)
{
    return {QStringLiteral("mcpToolGroup-") + group, std::nullopt};
}

// Reminders and reviews.
inline const PrefKey<bool> dailyReminderEnabled{QStringLiteral("dailyReminderEnabled"), false};
inline const PrefKey<qint64> dailyReminderHour{QStringLiteral("dailyReminderHour"), 17};
inline const PrefKey<qint64> dailyReminderMinute{QStringLiteral("dailyReminderMinute"), 0};
inline const PrefKey<bool> reminderMonday{QStringLiteral("reminderMonday"), true};
inline const PrefKey<bool> reminderTuesday{QStringLiteral("reminderTuesday"), true};
inline const PrefKey<bool> reminderWednesday{QStringLiteral("reminderWednesday"), true};
inline const PrefKey<bool> reminderThursday{QStringLiteral("reminderThursday"), true};
inline const PrefKey<bool> reminderFriday{QStringLiteral("reminderFriday"), true};
inline const PrefKey<bool> reminderSaturday{QStringLiteral("reminderSaturday"), false};
inline const PrefKey<bool> reminderSunday{QStringLiteral("reminderSunday"), false};
inline const PrefKey<qint64> reminderSnoozeMinutes{QStringLiteral("reminderSnoozeMinutes"), 15};
inline const PrefKey<bool> planReminderEnabled{QStringLiteral("planReminderEnabled"), false};
inline const PrefKey<qint64> planReminderHour{QStringLiteral("planReminderHour"), 9};
inline const PrefKey<qint64> planReminderMinute{QStringLiteral("planReminderMinute"), 0};
inline const PrefKey<bool> notifyMeetingPrep{QStringLiteral("notifyMeetingPrep"), true};
inline const PrefKey<qint64> meetingPrepLeadMinutes{QStringLiteral("meetingPrepLeadMinutes"), 15};
// On for anyone who never turned it off, including installs from before the setting existed.
inline const PrefKey<bool> notifyStreakAtRisk{QStringLiteral("notifyStreakAtRisk"), true};
inline const PrefKey<bool> reviewRemindersEnabled{QStringLiteral("reviewRemindersEnabled"), false};
// Bit m - 1 stands for month m, January being 1.
inline const PrefKey<qint64> reviewMonthsMask{QStringLiteral("reviewMonthsMask"), 0};
// The older form of the review months, read once to fill the mask.
inline const Optional<QString> reviewCycle{QStringLiteral("reviewCycle"), std::nullopt};
inline const PrefKey<bool> reviewMonthsMigrated{QStringLiteral("reviewMonthsMigrated"), false};
inline const PrefKey<qint64> sprintLengthWeeks{QStringLiteral("sprintLengthWeeks"), 2};
// Sunday is 1.
inline const PrefKey<qint64> sprintStartDay{QStringLiteral("sprintStartDay"), 2};

// Streaks and the growth prompt.
// Milestone raw value to the date it was reached, each in Preferences::dateToJson form.
inline const PrefKey<QJsonObject> milestoneAwardDates{QStringLiteral("milestoneAwardDates"), {}};
inline const Optional<QDateTime> growthPromptLastShown{QStringLiteral("growthPromptLastShown"),
                                                       std::nullopt};
inline const PrefKey<qint64> growthPromptCountThisYear{QStringLiteral("growthPromptCountThisYear"),
                                                       0};
inline const PrefKey<qint64> growthPromptYear{QStringLiteral("growthPromptYear"), 0};
inline const PrefKey<bool> growthPromptUserRated{QStringLiteral("growthPromptUserRated"), false};

// Backups, updates, contacts, calendar.
// A first launch backs up although nobody has written the key.
inline const PrefKey<bool> backupEnabled{QStringLiteral("backupEnabled"), true};
// Seconds since 1970; 0 means no backup yet.
inline const PrefKey<double> backupLastDate{QStringLiteral("backupLastDate"), 0.0};
inline const Optional<QByteArray> backupExtraFolderBookmark{
    QStringLiteral("backupExtraFolderBookmark"), std::nullopt};
inline const Optional<QByteArray> backupPendingRestoreBookmark{
    QStringLiteral("backupPendingRestoreBookmark"), std::nullopt};
// Seconds since 1970.
inline const PrefKey<double> updateLastCheck{QStringLiteral("updateLastCheck"), 0.0};
inline const Optional<QString> updateAnnouncedVersion{QStringLiteral("updateAnnouncedVersion"),
                                                      std::nullopt};
inline const PrefKey<bool> applicationsNudgeSuppressed{
    QStringLiteral("applicationsNudgeSuppressed"), false};
inline const PrefKey<QStringList> discoveredContactsDismissed{
    QStringLiteral("discoveredContacts.dismissed"), {}};
inline const PrefKey<QStringList> discoveredContactsSelfEmails{
    QStringLiteral("discoveredContacts.selfEmails"), {}};
inline const Optional<QString> msGraphAccount{QStringLiteral("ms-graph-account"), std::nullopt};

} // namespace Prefs

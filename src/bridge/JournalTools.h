#pragma once

class JournalDraftStore;
class MCPTools;
class Preferences;

// The tools that read and write the day pages. They work from a day's live text, the stored
// rows merged with what the open page holds unsaved, so that neither the user's typing nor the
// assistant's writing is lost; adding never overwrites, and replacing is a compare-and-swap
// against text the assistant has read.
namespace JournalTools {

// get_entries, get_journal_template, add_journal_entry and update_journal_entry, in the
// journal group. The drafts and preferences must outlive the registry.
void registerAll(MCPTools &tools, JournalDraftStore &drafts, const Preferences &preferences);

} // namespace JournalTools

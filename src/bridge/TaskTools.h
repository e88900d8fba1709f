#pragma once

class MCPTools;

// The rest of an assistant's everyday toolbox: the task list, one text search over everything
// written, the inbox, the tags in use and the at-a-glance figures. Titles are matched whole in
// any case, and a write that could mean two records refuses rather than guess.
namespace TaskTools {

// get_open_tasks, add_task, complete_task, search, get_inbox, mark_inbox_read and get_tags in
// the journal group; get_stats in the goals group.
void registerAll(MCPTools &tools);

} // namespace TaskTools
